// SPDX-License-Identifier: MIT
#include "tools/explain/checks.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace explain {

namespace {

struct row {
    std::string_view file;
    int line;
    std::string_view text;
};

constexpr auto CASES = std::to_array<row>({
#define CHECKED_CASE(file, line, name) {file, line, name},
#define CHECK_TEXT(file, line, text)
#include "tools/explain/checks.def"
#undef CHECKED_CASE
#undef CHECK_TEXT
});

constexpr auto TEXTS = std::to_array<row>({
#define CHECKED_CASE(file, line, name)
#define CHECK_TEXT(file, line, text) {file, line, text},
#include "tools/explain/checks.def"
#undef CHECKED_CASE
#undef CHECK_TEXT
});

const row *case_row(std::string_view name)
{
    const auto *const found = std::ranges::find(CASES, name, &row::text);
    return found == CASES.end() ? nullptr : found;
}

// The line at which the next case of the file begins.
int end_of(const row &defined)
{
    int end = 1 << 30;
    for (const row &each : CASES) {
        if (each.file == defined.file && each.line > defined.line) end = std::min(end, each.line);
    }
    return end;
}

// "msg='...' line=204"
int named_line(std::string_view message)
{
    const std::size_t at = message.rfind("line=");
    int line = 0;
    if (at == std::string_view::npos) return 0;
    std::from_chars(message.data() + at + 5, message.data() + message.size(), line);
    return line;
}

} // namespace

place place_of_case(std::string_view name)
{
    const row *defined = case_row(name);
    return defined == nullptr ? place{} : place{std::string(defined->file), defined->line};
}

place place_of_check(std::string_view case_name, std::string_view message)
{
    const row *defined = case_row(case_name);
    if (defined == nullptr) return {};
    const std::string file(defined->file);
    if (const int line = named_line(message)) return {file, line};
    const row *shared = nullptr;
    for (const row &each : TEXTS) {
        if (each.text != message || each.file != defined->file) continue;
        if (each.line >= defined->line && each.line < end_of(*defined)) return {file, each.line};
        // What several cases share stands before them.
        if (shared == nullptr || each.line < defined->line) shared = &each;
    }
    return {file, shared != nullptr ? shared->line : defined->line};
}

} // namespace explain

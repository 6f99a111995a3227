// SPDX-License-Identifier: MIT
//
// Written out without regular expressions: a log is read once a case while tavor runs.
#include "tools/tavor_output/table.h"

#include <algorithm>
#include <array>
#include <unordered_map>

#include "tools/common/numbers.h"
#include "tools/common/registry.h"

namespace tavor_output {

namespace {

constexpr std::string_view FAIL = "FAIL : ";

// What all names begin with.
constexpr std::string_view NAME_START = "kel_";

// The row of a column's text without the blanks that fill it.
const std::unordered_map<std::string_view, int> &rows_by_column()
{
    static const auto COLUMNS = [] {
        std::unordered_map<std::string_view, int> rows;
        int row = 0;
        for (const tools::test_case &each : tools::all_cases()) {
            rows[each.name.substr(0, NAME_COLUMN)] = row++;
        }
        return rows;
    }();
    return COLUMNS;
}

// A number printed with %3u.
std::optional<unsigned> parse_count(std::string_view text)
{
    const std::size_t start = text.find_first_not_of(' ');
    if (text.size() < 3 || start == std::string_view::npos || (start > 0 && text.size() > 3)) {
        return std::nullopt;
    }
    return tools::parse_number<unsigned>(text.substr(start));
}

} // namespace

bool is_kernel_text(std::string_view text)
{
    if (text.starts_with('<')) {
        const std::size_t end = text.find_first_not_of("0123456789", 1);
        if (end == std::string_view::npos || end == 1 || text[end] != '>') {
            return false;
        }
        text.remove_prefix(end + 1);
    }
    if (!text.starts_with('[')) {
        return false;
    }
    const std::size_t whole = text.find_first_not_of(' ', 1);
    const std::size_t point = text.find_first_not_of("0123456789", whole);
    if (whole == std::string_view::npos || point == std::string_view::npos || point == whole ||
        text[point] != '.') {
        return false;
    }
    const std::size_t end = text.find_first_not_of("0123456789", point + 1);
    return end != std::string_view::npos && end >= point + 4 && text[end] == ']';
}

std::optional<int> row_in_name_column(std::string_view line)
{
    if (line.size() <= NAME_COLUMN || line[NAME_COLUMN] != ' ' || !line.starts_with(NAME_START)) {
        return std::nullopt;
    }
    const std::string_view column = line.substr(0, NAME_COLUMN);
    const auto found = rows_by_column().find(column.substr(0, column.find_last_not_of(' ') + 1));
    if (found == rows_by_column().end()) {
        return std::nullopt;
    }
    return found->second;
}

std::optional<verdict_text> verdict_at_end(std::string_view line)
{
    const std::size_t fail = line.rfind(FAIL);
    if (fail != std::string_view::npos) {
        return parse_verdict(line.substr(fail));
    }
    return line.ends_with("PASS")     ? std::optional(verdict_text{verdict::pass})
           : line.ends_with("IGNORE") ? std::optional(verdict_text{verdict::ignore})
                                      : std::nullopt;
}

std::optional<verdict_text> parse_verdict(std::string_view text)
{
    if (text == "PASS") {
        return verdict_text{verdict::pass};
    }
    if (text == "IGNORE") {
        return verdict_text{verdict::ignore};
    }
    if (!text.starts_with(FAIL)) {
        return std::nullopt;
    }
    std::string_view message = text.substr(FAIL.size());
    // Some captures lose the blanks at the end of a line; between, nothing may be missing.
    const bool is_whole =
        message.size() == MESSAGE_WIDTH ||
        (message.size() < MESSAGE_WIDTH && !message.empty() && message.back() != ' ');
    const bool is_clean = std::all_of(message.begin(), message.end(), [](char character) {
        return static_cast<unsigned char>(character) >= ' ' && character != '\x7f';
    });
    if (!is_whole || !is_clean) {
        return std::nullopt;
    }
    for (std::size_t at = message.find('['); at != std::string_view::npos;
         at = message.find('[', at + 1)) {
        if (is_kernel_text(message.substr(at))) {
            return std::nullopt;
        }
    }
    message = message.substr(0, message.find_last_not_of(' ') + 1);
    return verdict_text{verdict::fail, message};
}

bool shows_verdict(std::string_view text)
{
    return text.ends_with("PASS") || text.ends_with("IGNORE") ||
           text.find(FAIL) != std::string_view::npos;
}

bool begins_verdict(std::string_view text)
{
    return std::string_view("PASS").starts_with(text) ||
           std::string_view("IGNORE").starts_with(text) || FAIL.starts_with(text) ||
           text.starts_with(FAIL);
}

bool is_header(std::string_view line)
{
    return line == HEADER;
}

bool is_rule(std::string_view line)
{
    return (line.size() == 74 || line.size() == 75) &&
           line.find_first_not_of('=') == std::string_view::npos;
}

std::optional<summary_count> parse_summary(std::string_view line)
{
    struct form {
        summary_line which;
        std::string_view text;
    };
    static constexpr auto FORMS = std::to_array<form>({
        {summary_line::run, "Summary: Number of tests run:    "},
        {summary_line::passed, "         Number of tests passed: "},
        {summary_line::failed, "         Number of tests failed: "},
    });
    for (const form &each : FORMS) {
        if (line.starts_with(each.text)) {
            if (const auto number = parse_count(line.substr(each.text.size()))) {
                return summary_count{each.which, *number};
            }
        }
    }
    return std::nullopt;
}

} // namespace tavor_output

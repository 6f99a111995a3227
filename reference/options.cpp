// SPDX-License-Identifier: MIT
//
// Takes the open choices from their setting, and lists them.

#include "reference/options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "reference/load.h"

namespace kel_reference {

options options_in_force;

namespace {

struct option_row {
    std::string_view name;
    std::uint32_t options::*value;
    std::uint32_t default_value;
    std::vector<std::uint32_t> others;
    const char *meaning;
};

const std::vector<option_row> &option_rows()
{
#define VALUES(...)                                                                                \
    {                                                                                              \
        __VA_ARGS__                                                                                \
    }
#define OPTION(name, default_value, other_values, meaning)                                         \
    {#name, &options::name, default_value, VALUES other_values, meaning},
    static const std::vector<option_row> rows = {
#include "reference/options.def"
    };
#undef OPTION
#undef VALUES
    return rows;
}

void choose(std::string_view word)
{
    constexpr const char *VARIABLE = "KEL_REFERENCE_OPTIONS";
    const std::size_t equals = word.find('=');
    if (equals == std::string_view::npos) refuse_setting(VARIABLE, word, "not name=value");

    const auto row = std::ranges::find(option_rows(), word.substr(0, equals), &option_row::name);
    if (row == option_rows().end()) refuse_setting(VARIABLE, word, "no such option");

    const std::string_view text = word.substr(equals + 1);
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool is_number = error == std::errc{} && end == text.data() + text.size();
    const bool is_legal =
        value == row->default_value || std::ranges::find(row->others, value) != row->others.end();
    if (!is_number || !is_legal) refuse_setting(VARIABLE, word, "not a legal value");
    options_in_force.*row->value = value;
}

} // namespace

void choose_options(const std::vector<std::string_view> &words)
{
    std::ranges::for_each(words, choose);
}

// A line each: name, default, other values separated by commas, meaning; tabs between.
void list_options()
{
    for (const option_row &row : option_rows()) {
        std::printf("%s\t%u\t", row.name.data(), row.default_value);
        const char *separator = "";
        for (const std::uint32_t other : row.others) {
            std::printf("%s%u", separator, other);
            separator = ",";
        }
        std::printf("\t%s\n", row.meaning);
    }
}

} // namespace kel_reference

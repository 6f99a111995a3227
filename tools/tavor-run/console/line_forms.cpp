// SPDX-License-Identifier: MIT
//
// Written out without regular expressions: a log is read once a case while tavor runs.
#include "tools/tavor-run/console/line_forms.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <unordered_map>

#include "tools/common/registry.h"

namespace tavor_run {

namespace {

constexpr std::size_t MESSAGE_WIDTH = 83;
constexpr std::string_view FAIL = "FAIL : ";

bool is_digit(char character)
{
    return character >= '0' && character <= '9';
}

// The length of the text's beginning that has the shape: 9 stands for a digit, A for a letter,
// all else for itself. 0 when it has not.
std::size_t length_of_shape(std::string_view text, std::string_view shape)
{
    if (text.size() < shape.size()) {
        return 0;
    }
    for (std::size_t i = 0; i < shape.size(); i++) {
        const bool fits =
            shape[i] == '9' ? is_digit(text[i])
            : shape[i] == 'A'
                ? std::string_view("JFMASONDanebrpyulgctov").find(text[i]) != std::string_view::npos
                : text[i] == shape[i];
        if (!fits) {
            return 0;
        }
    }
    return shape.size();
}

// A fraction of a second, a zone and the blank that ends a stamp without brackets.
std::size_t end_of_stamp(std::string_view line, std::size_t at)
{
    const std::size_t end = line.find_first_not_of("0123456789.,+-:Z", at);
    if (end == std::string_view::npos || (line[end] != ' ' && line[end] != '\t')) {
        return 0;
    }
    return end + 1;
}

stamped_line split_bracketed(std::string_view line)
{
    const std::size_t end = line.find(']');
    if (end == std::string_view::npos || end + 1 >= line.size() || line[end + 1] != ' ') {
        return {stamp_style::none, line};
    }
    const std::string_view inside = line.substr(1, end - 1);
    const bool has_digit = std::any_of(inside.begin(), inside.end(), is_digit);
    if (!has_digit || inside.find_first_not_of("0123456789 .,:+-/TZ") != std::string_view::npos) {
        return {stamp_style::none, line};
    }
    const bool is_seconds = inside.find_first_not_of("0123456789 .") == std::string_view::npos;
    return {is_seconds ? stamp_style::seconds : stamp_style::bracketed, line.substr(end + 2)};
}

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
    unsigned number = 0;
    if (text.size() < 3 || start == std::string_view::npos || (start > 0 && text.size() > 3)) {
        return std::nullopt;
    }
    const auto [end, error] =
        std::from_chars(text.data() + start, text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

} // namespace

stamped_line split_stamp(std::string_view line)
{
    if (line.starts_with('[')) {
        return split_bracketed(line);
    }
    struct form {
        stamp_style style;
        std::string_view shape;
    };
    static constexpr auto FORMS = std::to_array<form>({
        {stamp_style::date, "9999-99-99T99:99:99"},
        {stamp_style::date, "9999-99-99 99:99:99"},
        {stamp_style::month, "AAA 99 99:99:99"},
        {stamp_style::month, "AAA  9 99:99:99"},
        {stamp_style::clock, "99:99:99"},
    });
    for (const form &each : FORMS) {
        if (const std::size_t length = length_of_shape(line, each.shape)) {
            if (const std::size_t end = end_of_stamp(line, length)) {
                return {each.style, line.substr(end)};
            }
        }
    }
    return {stamp_style::none, line};
}

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

bool is_logged_kernel_text(std::string_view text)
{
    const std::size_t blank = text.find(' ');
    return blank != std::string_view::npos && text.substr(blank + 1).starts_with("kernel: ");
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
    return line == "Name                                     Verdict  Info";
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

} // namespace tavor_run

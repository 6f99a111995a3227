// SPDX-License-Identifier: MIT
//
// Written out without regular expressions: a log is read once a case while tavor runs.
#include "tools/tavor-run/console/line_forms.h"

#include <algorithm>
#include <array>

namespace tavor_run {

namespace {

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

bool is_logged_kernel_text(std::string_view text)
{
    const std::size_t blank = text.find(' ');
    return blank != std::string_view::npos && text.substr(blank + 1).starts_with("kernel: ");
}

} // namespace tavor_run

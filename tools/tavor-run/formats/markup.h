// SPDX-License-Identifier: MIT
//
// Texts inside XML and HTML.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tavor_run {

// For element content and for attributes in double quotes, made printable; line ends and tabulators
// stay.
std::string escaped(std::string_view text);

// Counts as widths, in the colour of a class each. It is for eyes only: the counts are beside it.
struct bar_part {
    std::string_view style;
    std::size_t count;
};
std::string bar_of(const std::vector<bar_part> &parts);

// A page up to its first heading, with the colours of verdicts.
std::string html_head(std::string_view title);

} // namespace tavor_run

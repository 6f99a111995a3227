// SPDX-License-Identifier: MIT
//
// Texts inside XML and HTML.
#pragma once

#include <string>
#include <string_view>

namespace tavor_run {

// For element content and for attributes in double quotes, made printable; line ends and tabulators
// stay.
std::string escaped(std::string_view text);

// A page up to its first heading, with the colours of verdicts.
std::string html_head(std::string_view title);

} // namespace tavor_run

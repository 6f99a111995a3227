// SPDX-License-Identifier: MIT
//
// Text from outside, made fit for terminals and documents.
#pragma once

#include <string>
#include <string_view>

namespace tools {

// Valid UTF-8 without control characters: a byte that is part of such a one, of a code point that
// no document may hold, or of nothing valid is written as \xNN. Those in `kept` stay.
std::string printable(std::string_view text, std::string_view kept = "");

} // namespace tools

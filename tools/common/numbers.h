// SPDX-License-Identifier: MIT
//
// Numbers as text.
#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>

namespace tools {

// The number that the whole text is, without sign or blanks where the type has no sign; nothing
// when it is none or does not fit.
template <std::integral number> std::optional<number> parse_number(std::string_view text)
{
    number parsed{};
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, parsed);
    if (error != std::errc{} || stop != end) {
        return std::nullopt;
    }
    return parsed;
}

} // namespace tools

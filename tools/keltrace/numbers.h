// SPDX-License-Identifier: MIT
//
// Numbers as people write and read them: error numbers and notices by name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace keltrace {

// A number with its sign kept apart, so that both -1 and all bits of 64 can be written.
struct number {
    std::uint64_t magnitude = 0;
    bool negative = false;

    constexpr std::uint64_t bits() const { return negative ? 0 - magnitude : magnitude; }
    // Whether it fits in so many bytes, taken as signed or as unsigned.
    bool fits(std::size_t width) const;
};

// Decimal or 0x hexadecimal, with or without a sign; the name of an errno value or a notice.
std::optional<number> parse_number(std::string_view text);

} // namespace keltrace

// SPDX-License-Identifier: MIT
//
// Numbers and names in both directions.
#include "tools/keltrace/numbers.h"

#include <charconv>

#include "tools/common/error_names.h"

namespace keltrace {

bool number::fits(std::size_t width) const
{
    if (width >= sizeof magnitude) {
        return !negative || magnitude <= std::uint64_t{1} << (8 * sizeof magnitude - 1);
    }
    const std::uint64_t limit = std::uint64_t{1} << (8 * width);
    return negative ? magnitude <= limit / 2 : magnitude < limit;
}

std::optional<number> parse_number(std::string_view text)
{
    if (const std::uint32_t named = tools::error_number(text)) return number{named, false};

    number parsed;
    if (text.starts_with('-') || text.starts_with('+')) {
        parsed.negative = text.front() == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.starts_with("0x")) {
        base = 16;
        text.remove_prefix(2);
    }
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, parsed.magnitude, base);
    if (error != std::errc{} || stop != end || text.empty()) return std::nullopt;
    return parsed;
}

} // namespace keltrace

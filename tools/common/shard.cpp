// SPDX-License-Identifier: MIT
#include "tools/common/shard.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace tools {

namespace {

std::optional<unsigned> parse_number(std::string_view text)
{
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

} // namespace

shard parse_shard(const std::string &text)
{
    const std::string_view all = text;
    const std::size_t slash = all.find('/');
    if (slash != std::string_view::npos) {
        const auto index = parse_number(all.substr(0, slash));
        const auto count = parse_number(all.substr(slash + 1));
        if (index && count && *index >= 1 && *index <= *count) {
            return {*index, *count};
        }
    }
    throw usage_error("no shard: " + text + " (1/4 is the first of four)");
}

} // namespace tools

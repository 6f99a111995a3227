// SPDX-License-Identifier: MIT
#include "tools/common/shard.h"

#include <string_view>

#include "tools/common/numbers.h"

namespace tools {

shard parse_shard(const std::string &text)
{
    const std::string_view all = text;
    const std::size_t slash = all.find('/');
    if (slash != std::string_view::npos) {
        const auto index = parse_number<unsigned>(all.substr(0, slash));
        const auto count = parse_number<unsigned>(all.substr(slash + 1));
        if (index && count && *index >= 1 && *index <= *count) {
            return {*index, *count};
        }
    }
    throw usage_error("no shard: " + text + " (1/4 is the first of four)");
}

} // namespace tools

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/suggestion.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "tools/common/registry.h"

namespace tavor_run {

namespace {

// How many letters must be changed, put in, left out, or exchanged with the next one.
std::size_t distance_between(std::string_view one, std::string_view other)
{
    std::vector<std::size_t> before_last;
    std::vector<std::size_t> last(other.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); i++) {
        std::vector<std::size_t> next = {i + 1};
        for (std::size_t k = 0; k < other.size(); k++) {
            std::size_t least =
                std::min({next[k] + 1, last[k + 1] + 1, last[k] + (one[i] == other[k] ? 0 : 1)});
            if (i > 0 && k > 0 && one[i] == other[k - 1] && one[i - 1] == other[k]) {
                least = std::min(least, before_last[k - 1] + 1);
            }
            next.push_back(least);
        }
        before_last = std::exchange(last, std::move(next));
    }
    return last.back();
}

} // namespace

std::string nearest_name(std::string_view name)
{
    constexpr std::string_view PREFIX = "kel_";
    constexpr std::size_t LONGEST = 100; // nobody means a name with more
    if (name.size() > LONGEST) return "";
    const std::string whole =
        name.starts_with(PREFIX) ? std::string(name) : std::string(PREFIX) + std::string(name);
    std::string_view nearest;
    std::size_t least = 1 + std::max<std::size_t>(2, whole.size() / 5);
    const auto look_at = [&](std::string_view candidate) {
        const std::size_t distance = distance_between(whole, candidate);
        if (distance < least) {
            least = distance;
            nearest = candidate;
        }
    };
    for (const tools::test_case &each : tools::all_cases()) {
        look_at(each.suite);
        look_at(each.name);
    }
    return std::string(nearest);
}

tools::usage_error no_such(const std::string &what, const std::string &name)
{
    const std::string nearest = nearest_name(name);
    return tools::usage_error("no such " + what + ": " + name +
                              (nearest.empty() ? "" : " (did you mean " + nearest + "?)"));
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/histories/reduction.h"

#include <ctime>

#include "tools/histories/influence.h"

namespace histories {

namespace {

// Of processor time: for each attempt, and for all.
constexpr std::chrono::milliseconds LIMIT{50};
constexpr std::clock_t ALL = CLOCKS_PER_SEC / 4;

history without(const history &whole, std::size_t index)
{
    std::vector<bool> kept(whole.times.size(), true);
    kept[index] = false;
    history part;
    part.made = selection(whole.made, kept);
    part.times = whole.times;
    part.times.erase(part.times.begin() + static_cast<std::ptrdiff_t>(index));
    return part;
}

} // namespace

history without_needless_calls(const history &illegal, checker &by)
{
    history left = illegal;
    const std::clock_t end = std::clock() + ALL;
    for (std::size_t i = left.times.size(); i-- > 0 && std::clock() < end;) {
        const sequence::call &made = left.made.calls[i];
        const auto &which = sequence::schema_of(made.operation);
        const bool reads = which.name.starts_with("get_data") || which.name == "get_cause" ||
                           which.name == "get_tag" || which.name == "get_length" ||
                           !has_effect(made, left.made.answers[i]);
        if (!reads) continue;
        history tried = without(left, i);
        if (by.check(tried, LIMIT).outcome == outcome::illegal) left = std::move(tried);
    }
    return left;
}

} // namespace histories

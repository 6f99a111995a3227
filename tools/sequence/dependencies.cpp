// SPDX-License-Identifier: MIT
#include "tools/sequence/dependencies.h"

#include <algorithm>

namespace sequence {

std::set<variable> used_by(const call &made)
{
    std::set<variable> used;
    for (const value &given : made.arguments) {
        for (const scalar &each : given.scalars) {
            if (each.name >= 0) used.insert(each.name);
        }
    }
    return used;
}

std::vector<std::size_t> related_to(const call_sequence &whole, std::size_t index)
{
    std::set<variable> related = used_by(whole.calls[index]);
    std::vector<std::size_t> found;
    for (std::size_t i = index; i-- > 0;) {
        const auto used = used_by(whole.calls[i]);
        const auto &names = whole.calls[i].names;
        const auto is_related = [&](variable each) { return related.contains(each); };
        if (std::ranges::none_of(names, is_related) && std::ranges::none_of(used, is_related)) {
            continue;
        }
        related.insert(used.begin(), used.end());
        found.push_back(i);
    }
    return found;
}

std::vector<bool> closed(const call_sequence &whole, std::vector<bool> kept)
{
    std::set<variable> missing;
    for (std::size_t i = 0; i < whole.calls.size(); i++) {
        const call &made = whole.calls[i];
        if (kept[i]) {
            for (const variable each : used_by(made)) {
                if (missing.contains(each)) kept[i] = false;
            }
        }
        for (const variable each : made.names) {
            if (each >= 0 && !kept[i]) missing.insert(each);
        }
    }
    return kept;
}

} // namespace sequence

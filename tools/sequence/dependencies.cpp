// SPDX-License-Identifier: MIT
#include "tools/sequence/dependencies.h"

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

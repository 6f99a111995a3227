// SPDX-License-Identifier: MIT
//
// What of the library's state each call of a history depends on, and whether it changed it: the
// search has to try both orders of two calls only where one changes what the other depends on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/histories/history.h"

namespace histories {

// The part of the state that is the clients' roles.
inline constexpr std::uint32_t ROLES = 4;

struct influence {
    // A bit for each part of the state. None: of what only its own thread sees at that time.
    std::uint32_t reads = 0;
    std::uint32_t changes = 0; // by the recorded answers

    bool conflicts_with(const influence &other) const
    {
        return (changes & (other.reads | other.changes)) != 0 || (reads & other.changes) != 0;
    }
};

// One for each call. Two calls without a conflict may change places: neither answer changes, and
// the state after both is the same.
std::vector<influence> influences_of(const history &whole);

// For each call those that came before it if packets leave a queue in the order in which they came:
// the sends of packets that left it earlier.
std::vector<std::vector<std::size_t>> sends_before(const history &whole);

// Whether an answer says that the call has done something.
bool has_effect(const sequence::call &made, const sequence::answer &given);

} // namespace histories

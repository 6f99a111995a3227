// SPDX-License-Identifier: MIT
//
// What of the library's state each call of a history depends on, and whether it changed it: the
// search has to try both orders of two calls only where one changes what the other depends on.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/histories/history.h"

namespace histories {

struct influence {
    // A bit for each part of the state. None: of what only its own thread sees at that time.
    std::uint32_t parts = 0;
    bool is_change = false; // by the recorded answer

    bool conflicts_with(const influence &other) const
    {
        return (parts & other.parts) != 0 && (is_change || other.is_change);
    }
};

// One for each call. Two calls without a conflict may change places: neither answer changes, and
// the state after both is the same.
std::vector<influence> influences_of(const history &whole);

// Whether an answer says that the call has done something.
bool has_effect(const sequence::call &made, const sequence::answer &given);

} // namespace histories

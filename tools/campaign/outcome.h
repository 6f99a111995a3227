// SPDX-License-Identifier: MIT
//
// What an experiment proves.
#pragma once

#include <string>

#include "tools/campaign/experiment.h"
#include "tools/campaign/pairs.h"

namespace campaign {

enum class outcome {
    caught,           // the expected message
    caught_elsewhere, // another message than the expected one
    missed,           // the fault fired and the case did not fail
    not_reached,      // the fault never fired
    crash,            // the process died
    hang,             // it did not end in time
    leak,             // caught, but the case left something behind that it could have released
    stray_message,    // it failed with a message that the table does not know
};

const char *name_of(outcome result);

// The outcome of the run that is to show a pair.
outcome judge_pair(const pair &expected, const observation &seen);

// The outcome of a run of which any message in the table of its case is right.
outcome judge_any(const std::string &test, const std::vector<pair> &pairs_of_case,
                  const observation &seen);

// Whether the run left behind what its case could have released: anything that still lives,
// and what the end of a client had to release for it, unless the case leaves that to it.
bool leaves_something(const std::string &test, const observation &seen);

// Whether what a run left is the fault's doing: a handle that the case was never given or a
// release that the fault swallowed.
bool fault_keeps_objects(const experiment &what);

} // namespace campaign

// SPDX-License-Identifier: MIT
//
// Hangs that lie in a case's nature: it waits without limit for what the fault took away.
#pragma once

#include <string>
#include <vector>

#include "tools/campaign/results.h"

namespace campaign {

struct explanation {
    std::string tests;  // glob
    std::string faults; // glob
    std::string reason;
};

// A line is: case glob | fault glob | reason. Throws std::runtime_error on bad input.
std::vector<explanation> read_explanations(const std::string &path);

// The reason for a hang, empty when there is none.
std::string explanation_of(const result &judged, const std::vector<explanation> &known);

} // namespace campaign

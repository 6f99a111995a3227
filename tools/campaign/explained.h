// SPDX-License-Identifier: MIT
//
// Hangs that lie in a case's nature: it waits without limit for what the fault took away.
#pragma once

#include <string>
#include <vector>

#include "tools/campaign/experiment.h"

namespace campaign {

struct explanation {
    std::string tests;  // glob
    std::string faults; // glob
    std::string reason;
};

// A line is: case glob | fault glob | reason. Throws std::runtime_error on bad input.
std::vector<explanation> read_explanations(const std::string &path);

// Why the run may hang; empty when it may not.
std::string explanation_of(const experiment &what, const std::vector<explanation> &known);

} // namespace campaign

// SPDX-License-Identifier: MIT
//
// The experiments of the exhaustive campaign: every call of a case with every fault that
// applies to the operation.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace campaign {

struct plan_limits {
    // Of an operation called more often in a case, this many first calls and as many last
    // ones are taken.
    unsigned calls_at_each_end = 12;
};

// The faults for a case that makes these calls, as the shim writes them, in the order of
// the interface.
std::vector<std::string> faults_for(const std::map<std::string, unsigned> &calls,
                                    const plan_limits &limits);

// Whether some case's calls would bring up this fault.
bool is_plannable(const std::string &fault);

} // namespace campaign

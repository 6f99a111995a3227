// SPDX-License-Identifier: MIT
//
// What the cases look at, measured: for each operation the ways of going wrong that make cases
// fail, and the errors that cases provoke and judge.
#pragma once

#include <iosfwd>
#include <vector>

#include "tools/campaign/results.h"

namespace campaign {

// The error that a call of a faultless run returned.
struct provoked_error {
    std::string test;
    std::string operation;
    unsigned call = 0; // of the operation in the case, from 1
    std::string error; // its name
};

// The calls of a trace that returned an error, from lines such as
//   14 t1 kel_append(packet=0x10003, buffer=0x20004) = EINVAL
std::vector<provoked_error> errors_in_trace(const std::string &test, std::istream &trace);

// Writes both tables as Markdown; `results` are those of an exhaustive campaign.
void print_matrix(std::ostream &out, const std::vector<result> &results,
                  const std::vector<provoked_error> &errors);

} // namespace campaign

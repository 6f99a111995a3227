// SPDX-License-Identifier: MIT
//
// Mutants that the campaign need not notice: what they change is no verdict, or nothing.
#pragma once

#include <string>
#include <vector>

#include "tools/mutation/mutant.h"

namespace mutation {

struct explanation {
    std::string file;
    std::string kind;     // of the mutant
    std::string fragment; // of the line that it changes
    std::string reason;
};

// A line is: file | kind | fragment | reason. Throws std::runtime_error on bad input.
std::vector<explanation> read_explanations(const std::string &path);

// The reason for a survivor, empty when there is none; `text` is the source without it.
std::string explanation_of(const mutant &survivor, const std::string &text,
                           const std::vector<explanation> &known);

} // namespace mutation

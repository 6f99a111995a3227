// SPDX-License-Identifier: MIT
//
// Small changes to any source, as errors of one line are: a comparison, a sign, a number, a
// condition, a result, an order of arguments, a statement that is missing.
#pragma once

#include <string>
#include <vector>

#include "tools/mutation/mutant.h"

namespace mutation {

// All of a source, in the order of their places. Some may not compile.
std::vector<mutant> code_changes_of(const std::string &file, const std::string &text);

} // namespace mutation

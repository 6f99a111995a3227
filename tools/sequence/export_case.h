// SPDX-License-Identifier: MIT
//
// A sequence as a case in tavor's form, for a tavor of one's own (docs/writing-a-case.md).
#pragma once

#include <string>

#include "tools/sequence/sequence.h"

namespace sequence {

// The suite's source file with the case in it. The sequence has the answers that the contract asks
// for; with their shadow, data that nobody has written is not checked. Throws tools::usage_error
// where it has threads: what these do a case says in its own way.
std::string to_case(const call_sequence &expected, const std::string &suite,
                    const std::string &name);

} // namespace sequence

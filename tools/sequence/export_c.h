// SPDX-License-Identifier: MIT
//
// A sequence as a C11 program that needs kelapi and libkel only. It makes the calls, prints what it
// got beside what the contract asks wherever the two differ, and exits with 1 then, else with 0.
#pragma once

#include <string>

#include "tools/sequence/sequence.h"

namespace sequence {

// The sequence has the answers that the contract asks for; with their shadow, data that nobody has
// written is not checked.
std::string to_c(const call_sequence &expected);

} // namespace sequence

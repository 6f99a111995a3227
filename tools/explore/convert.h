// SPDX-License-Identifier: MIT
//
// From compact calls to a sequence as people and the other tools know it.
#pragma once

#include "tools/explore/batch.h"
#include "tools/sequence/sequence.h"

namespace explore {

// The calls without their answers.
sequence::call_sequence to_sequence(const batch &whole, const flat_sequence &made);

} // namespace explore

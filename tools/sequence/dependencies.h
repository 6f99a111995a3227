// SPDX-License-Identifier: MIT
//
// Which calls of a sequence need which others, and on which objects they act.
#pragma once

#include <cstddef>
#include <set>
#include <vector>

#include "tools/sequence/sequence.h"

namespace sequence {

// The variables that a call's arguments name.
std::set<variable> used_by(const call &made);

// The calls before that one on the objects that it is about, and on those that these came from; the
// last one first.
std::vector<std::size_t> related_to(const call_sequence &whole, std::size_t index);

// A selection without the calls that need what a call outside it defines.
std::vector<bool> closed(const call_sequence &whole, std::vector<bool> kept);

} // namespace sequence

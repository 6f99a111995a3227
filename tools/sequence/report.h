// SPDX-License-Identifier: MIT
//
// Findings as people read them.
#pragma once

#include <optional>
#include <string>

#include "tools/sequence/oracle.h"

namespace sequence {

// The first call whose answers differ between two runs of one sequence.
std::optional<finding> first_difference(const call_sequence &first, const call_sequence &second);

// The finding, or that there is none; and what was not compared.
std::string difference_text(const call_sequence &made, const std::optional<finding> &found);

// Likewise, with the profile.
std::string verdict_text(const call_sequence &made, const verdict &judged);

// "expected 0, got 64" or "allowed were: EINVAL, EPERM; got 0".
std::string expectation_text(const finding &found);

} // namespace sequence

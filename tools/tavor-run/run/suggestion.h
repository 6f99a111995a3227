// SPDX-License-Identifier: MIT
//
// What somebody may have meant who named a case that does not exist.
#pragma once

#include <string>
#include <string_view>

#include "tools/common/usage_error.h"

namespace tavor_run {

// The case or suite that is nearest to the name; empty when none is near.
std::string nearest_name(std::string_view name);

// "no such case: kel_pakcet (did you mean kel_packet?)"; `what` says what was looked for.
tools::usage_error no_such(const std::string &what, const std::string &name);

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// The process in which the library under test lives: takes batches, makes their calls, and says
// where an answer is not the expected one.
#pragma once

#include <string>

#include "tools/explore/exchange.h"

namespace explore {

// Goes on at the place that `shared` names. Does not return.
[[noreturn]] void be_tested(exchange &shared, const std::string &library);

} // namespace explore

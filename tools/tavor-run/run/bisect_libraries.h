// SPDX-License-Identifier: MIT
//
// The first of several builds of libkel with which a case is not good.
#pragma once

#include "tools/tavor-run/arguments.h"

namespace tavor_run {

// Prints each try and what it found; returns the program's exit status. Without a case the last of
// the folders is its name.
int bisect_libraries(const run_arguments &given);

} // namespace tavor_run

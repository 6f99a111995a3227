// SPDX-License-Identifier: MIT
//
// Where a case crashes, as gdb tells it.
#pragma once

#include <string>
#include <vector>

#include "tools/tavor-run/run/launcher.h"

namespace tavor_run {

// Runs the command once more, in gdb; the frames of its crash, the innermost first. Empty where
// there is no gdb, where it may not trace, or when nothing crashes.
std::vector<std::string> backtrace_of(const command &what, std::chrono::milliseconds timeout);

} // namespace tavor_run

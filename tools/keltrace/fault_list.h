// SPDX-License-Identifier: MIT
//
// All faults that can be asked for: with KELTRACE_LIST=faults a line each, operation:action, a tab
// and what happens.
#pragma once

namespace keltrace {

// Prints the shim's, and those of the library behind it that has some.
void list_faults();

} // namespace keltrace

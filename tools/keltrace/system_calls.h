// SPDX-License-Identifier: MIT
//
// The system's functions that the shim stands before.
#pragma once

namespace keltrace {

// From here on memory comes from the next allocator in line.
void look_up_allocator();

} // namespace keltrace

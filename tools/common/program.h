// SPDX-License-Identifier: MIT
//
// What is the same in all tools' main().
#pragma once

#include <functional>

namespace tools {

// Does the work and returns its status. An exception, or output that could not be written, is told
// on standard error after the program's name, and `failed` is returned. A program whose work was
// interrupted ends by the signal that did it.
int run_program(const char *name, int failed, const std::function<int()> &work);

} // namespace tools

// SPDX-License-Identifier: MIT
//
// A run: learns the library's choices, lets the lanes work, looks into what they find, and keeps
// account of it.
#pragma once

#include "tools/explore/settings.h"

namespace explore {

// Whether something was found. Throws tools::usage_error for what cannot be.
bool explore_library(const settings &asked);

} // namespace explore

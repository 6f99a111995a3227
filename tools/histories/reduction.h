// SPDX-License-Identifier: MIT
//
// An illegal history without the calls that have no part in it.
#pragma once

#include "tools/histories/checker.h"
#include "tools/histories/history.h"

namespace histories {

// Leaves out calls that changed nothing, as long as no order explains what is left: a call without
// an effect can be taken out of any history without making a legal one illegal.
history without_needless_calls(const history &illegal, checker &by);

} // namespace histories

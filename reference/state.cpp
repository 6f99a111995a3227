// SPDX-License-Identifier: MIT
//
// The one instance of the library's state.

#include "reference/state.h"

namespace kel_reference {

state &library()
{
    // Never destroyed: threads of the caller may outlive main and the static objects.
    static state &instance = *new state;
    return instance;
}

} // namespace kel_reference

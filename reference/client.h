// SPDX-License-Identifier: MIT
//
// Finding the client that a handle names, and refusing the handle where it names none.
// Called with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Why the handle of a client that is not registered is refused: EINVAL, unless chosen
// otherwise for one that once was.
std::uint32_t client_refusal(state &library, kel_client handle);

} // namespace kel_reference

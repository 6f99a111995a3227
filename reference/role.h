// SPDX-License-Identifier: MIT
//
// Changing a client's role, with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

void change_role(state &library, client_object &client, std::uint32_t role);

} // namespace kel_reference

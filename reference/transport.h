// SPDX-License-Identifier: MIT
//
// What transport and daemon ask of each other. Called with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Signals the client until its queue is empty.
void signal_packets(state &library, client_object &client);

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Queues and their signals, called with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Signals the client until its queue is empty.
void signal_packets(state &library, client_object &client);
void end_signal(state &library, client_object &client);

// Queues the packet at the client, its new holder: 0 or EAGAIN.
std::uint32_t send_to(state &library, client_object &receiver, packet_object &sent);

// Puts the packet into the client's queue, at its end where `next` is null.
void insert_before(client_object &client, packet_object &packet, packet_object *next);

} // namespace kel_reference

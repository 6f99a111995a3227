// SPDX-License-Identifier: MIT
//
// Receive queues and their signals, with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// How many packets a send may bring the client's queue to.
std::uint32_t queue_limit(const client_object &client);

// Queues the packet at the client, its new holder: 0 or EAGAIN.
std::uint32_t send_to(state &library, client_object &receiver, packet_object &sent);

// Puts the packet into the client's queue, at its end where `next` is null.
void insert_before(client_object &client, packet_object &packet, packet_object *next);

// Takes the packet out of the queue it waits in.
void dequeue(state &library, packet_object &packet);

// Signals the client until its queue is empty.
void signal_packets(state &library, client_object &client);
void end_signal(state &library, client_object &client);

// Signals the clients whose interval has passed. Returns when the next one's will have.
clock::time_point flush_clients(state &library);

// The client's signal interval, or the time that it counts from, has changed.
void reschedule_flush(const client_object &client);

void cancel_flush(state &library, client_object &client);

} // namespace kel_reference

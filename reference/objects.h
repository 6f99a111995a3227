// SPDX-License-Identifier: MIT
//
// What the families ask of each other. All of it is called with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Packets and buffers (packet.cpp, chain.cpp).

// Frees the packet with its chain and TLVs, out of a queue too where it waits in one.
// Returns 0 or the low-threshold notice.
std::uint32_t release_packet(state &library, packet_object &packet);

// Makes the packet `holder`'s. Its buffers stay charged to those who obtained them.
void change_holder(packet_object &packet, client_object &holder);

// Frees the packets the client holds, and the chains whose first buffer it obtained. Its buffers
// in packets and chains of others stay there and are charged to nobody.
void release_packets_and_buffers(state &library, client_object &client);

// Groups (bufgroup.cpp).

// Ends all of the client's registrations of groups.
void release_bufgroups(state &library, client_object &client);

// Tags, roles and queues (tag.cpp, role.cpp, transport.cpp).

// Null when nobody holds or owns the tag.
tag_object *find_tag(state &library, kel_tag tag);
// Whether the tags that it registers are shared. Its registration decides, not what it has
// become since.
bool shares_tags(const client_object &client);
void add_holder(state &library, client_object &client, kel_tag tag);
void remove_holder(state &library, client_object &client, kel_tag tag);

void change_role(state &library, client_object &client, std::uint32_t role);

// Ends the client's registrations and frees its dynamic tags.
void release_tags(state &library, client_object &client);

// The client that receives the tag's packets; null when nobody does.
client_object *receiver_of(state &library, kel_tag tag);

// Takes the packet out of the queue it waits in.
void dequeue(state &library, packet_object &packet);

// Events (event.cpp).

void arm(state &library, client_object &client, const kel_event &event);
// Makes an armed event a pending one.
void fire(state &library, client_object &client, std::list<kel_event>::iterator event);
// Shows on the client's descriptor whether events are pending.
void show_pending(client_object &client);

// The queue of `receiver` has fewer packets.
void queue_has_room(state &library, client_object &receiver);

// Who receives the tag's packets may have changed.
void receiver_has_changed(state &library, kel_tag tag);

// A client has registered `tag`.
void tag_was_registered(state &library, kel_tag tag);

// The group's usage went from `before` to what it is.
void group_usage_has_changed(state &library, bufgroup_object &group, const usage &before);

// The client is not registered with the group any more: its events on it end.
void group_was_deregistered(state &library, client_object &client, kel_bufgroup group);

// Disarms everything and ends the client's waits.
void release_events(state &library, client_object &client);

} // namespace kel_reference

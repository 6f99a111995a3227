// SPDX-License-Identifier: MIT
//
// Events, and what happens that they report. Called with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

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

void arm(state &library, client_object &client, const kel_event &event);
// Makes an armed event a pending one.
void fire(state &library, client_object &client, std::list<kel_event>::iterator event);
// Shows on the client's descriptor whether events are pending.
void show_pending(client_object &client);

// Disarms everything and ends the client's waits.
void release_events(state &library, client_object &client);

} // namespace kel_reference

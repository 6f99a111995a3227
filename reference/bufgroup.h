// SPDX-License-Identifier: MIT
//
// What the other families need of buffer groups, with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// The group that `handle` names in an allocation by `client`; EINVAL for an unknown one.
// 0 names none: `group` becomes null.
std::uint32_t find_group_for_use(state &library, client_object &client, kel_bufgroup handle,
                                 bufgroup_object *&group);

// Which threshold records decide (KEL_BUFGROUP_BUFFERS, KEL_BUFGROUP_BYTES): both by default,
// where both are set.
std::uint32_t governing_records(const bufgroup_object &group);

// Whether the group's maximum lets so much more be taken. Taking no more is always admitted.
bool group_admits(const bufgroup_object &group, std::int64_t buffers, std::int64_t bytes);

// Whether what the group has in use reached the high threshold / came down to the low one.
bool group_reached_high(const bufgroup_object &group, const usage &before);
bool group_came_down_to_low(const bufgroup_object &group, const usage &before);

// Packets and buffers that name the group keep it alive.
void refer_to_group(bufgroup_object &group);
void drop_group_reference(state &library, bufgroup_object &group);

// Ends all of the client's registrations of groups.
void release_bufgroups(state &library, client_object &client);

// Registers `client` with the group, for both kinds of groups.
void join_group(client_object &client, bufgroup_object &group) noexcept;
bufgroup_object *find_group_by_name(state &library, const char *name);
// A new group of that name without registrations; null when there is no room for one.
bufgroup_object *make_group(state &library, const char *name) noexcept;
// Whether a name may be a group's.
bool is_group_name(const char *name);

} // namespace kel_reference

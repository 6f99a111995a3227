// SPDX-License-Identifier: MIT
//
// Who holds a tag and who receives its packets, with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Null when nobody holds or owns the tag.
tag_object *find_tag(state &library, kel_tag tag);
bool is_held(state &library, kel_tag tag);

// The client that receives the tag's packets; null when nobody does.
client_object *receiver_of(state &library, kel_tag tag);

// Whether the tags that it registers are shared. Its registration decides, not what it has
// become since.
bool shares_tags(const client_object &client);

void add_holder(state &library, client_object &client, kel_tag tag);
void remove_holder(state &library, client_object &client, kel_tag tag);

// Ends the client's registrations and frees its dynamic tags.
void release_tags(state &library, client_object &client);

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Changes of role, on which the receiver of a shared tag depends.

#include "reference/role.h"

#include <cerrno>

#include "reference/client.h"
#include "reference/event.h"
#include "reference/operations.h"
#include "reference/options.h"

namespace kel_reference {

void change_role(state &library, client_object &client, std::uint32_t role)
{
    client.role = role;
    if (role == KEL_ROLE_ACTIVE) client.active_since = ++library.activations;
    for (const kel_tag tag : client.tags) receiver_has_changed(library, tag);
}

uint32_t model::kel_client_ha_role_notify(state &library, kel_client client, uint32_t role)
{
    client_object *changed = library.clients.find(client);
    if (!changed) return client_refusal(library, client);
    if (role > KEL_ROLE_STANDBY) return EINVAL;
    if (role == changed->role) return chosen_options().same_role_result;
    const bool is_fixed = changed->role == KEL_ROLE_ALWAYS || role == KEL_ROLE_ALWAYS;
    if (is_fixed) return chosen_options().role_refusal_error;
    change_role(library, *changed, role);
    return 0;
}

} // namespace kel_reference

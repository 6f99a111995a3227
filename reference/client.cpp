// SPDX-License-Identifier: MIT
//
// Registration of clients, and what the library releases for them.

#include "reference/client.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include "reference/bufgroup.h"
#include "reference/chain.h"
#include "reference/daemon.h"
#include "reference/event.h"
#include "reference/operations.h"
#include "reference/options.h"
#include "reference/packet.h"
#include "reference/tag.h"
#include "reference/transport.h"

namespace kel_reference {

std::uint32_t client_refusal(state &library, kel_client handle)
{
    return library.clients.is_stale(handle) ? chosen_options().stale_client_error : EINVAL;
}

namespace {

void set_up(state &library, client_object &client, const char *name, std::uint32_t role,
            std::uint32_t depth)
{
    client.name = name ? name : "";
    client.role = role;
    client.registered_role = role;
    if (role == KEL_ROLE_ACTIVE) client.active_since = ++library.activations;
    client.asked_depth = depth;
    client.signal_threshold = queue_limit(client) - queue_limit(client) / 4;
    client.signal_interval = std::chrono::milliseconds(chosen_options().signal_interval);
}

void release_holdings(state &library, client_object &client)
{
    release_events(library, client);
    release_tags(library, client);
    release_packets(library, client);
    release_buffers(library, client);
    release_bufgroups(library, client);
    cancel_flush(library, client);
}

bool open_without_lock(state &library, socket_pair &pair)
{
    const unlocked meanwhile(library);
    return pair.open();
}

} // namespace

uint32_t model::kel_nocrash_set(state &)
{
    return 0; // a handle or an argument never ends the process, asked or not
}

uint32_t model::kel_register_client(state &library, kel_client *client, const char *name,
                                    uint32_t role, uint32_t depth)
{
    if (role > KEL_ROLE_STANDBY) return EINVAL;
    if (!client) return chosen_options().null_result_error;
    client_object *created = library.clients.create();
    if (!created) return ENOMEM;
    if (!start_daemon(flush_clients)) {
        library.clients.release(*created);
        return ENOMEM;
    }
    set_up(library, *created, name, role, depth);
    *client = created->handle;
    return 0;
}

uint32_t model::kel_deregister_client(state &library, kel_client client)
{
    client_object *released = library.clients.find(client);
    if (!released) return client_refusal(library, client);
    release_holdings(library, *released);
    // Both end without the lock: the daemon needs it in order to end.
    signal_descriptor closed = std::move(released->descriptor);
    std::unique_ptr<flush_daemon> retired;
    library.clients.release(*released);
    if (library.clients.size() == 0) retired = retire_daemon();
    const unlocked meanwhile(library);
    retired.reset();
    closed = {};
    return 0;
}

// Most clients never ask, and making a descriptor takes longer than all the rest of a
// registration. Other threads need not wait for it.
int32_t model::kel_getfd(state &library, kel_client client)
{
    client_object *asked = library.clients.find(client);
    if (!asked) return -1;
    if (asked->descriptor.is_open()) return asked->descriptor.descriptor();
    socket_pair made;
    if (!open_without_lock(library, made)) return -1;

    asked = library.clients.find(client);
    if (!asked) return -1;
    if (!asked->descriptor.is_open()) asked->descriptor.attach(std::move(made));
    return asked->descriptor.descriptor();
}

} // namespace kel_reference

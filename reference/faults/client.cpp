// SPDX-License-Identifier: MIT
//
// Faults of clients, tags and roles.

#include <cerrno>
#include <utility>

#include "reference/client.h"
#include "reference/event.h"
#include "reference/faults/catalogue.h"
#include "reference/options.h"
#include "reference/role.h"
#include "reference/tag.h"
#include "reference/transport.h"

namespace kel_reference::faults {

namespace {

constexpr kel_tag LAST_STATIC_TAG = KEL_FIRST_DYNAMIC_TAG - 1;

// Registers a tag that the model refused with `refusal`, whoever else holds it.
std::uint32_t register_all_the_same(state &library, kel_client client, kel_tag tag,
                                    std::uint32_t refusal)
{
    client_object *holder = library.clients.find(client);
    if (!refusal || !holder || holder->tags.contains(tag)) return refusal;
    add_holder(library, *holder, tag);
    return 0;
}

// Whether the model would count the client among the sinks of a tag that has so many.
bool is_sink_beside(state &library, kel_client client, kel_tag tag, std::size_t sinks)
{
    const tag_object *entry = find_tag(library, tag);
    return entry && entry->shared && entry->holders.size() == sinks &&
           shares_tags(named<client_object>(library, client));
}

void add_tag_faults(catalogue &faults)
{
    faults.add<kel_register_tag>(
        "accepts_zero", "tag 0 is registered",
        [](auto right, state &library, kel_client client, kel_tag tag) {
            const std::uint32_t error = right(library, client, tag);
            return tag ? error : register_all_the_same(library, client, tag, error);
        });
    faults.add<kel_register_tag>("accepts_twice", "registering one's own tag again succeeds",
                                 [](auto right, state &library, kel_client client, kel_tag tag) {
                                     const bool is_own =
                                         named<client_object>(library, client).tags.contains(tag);
                                     const std::uint32_t error = right(library, client, tag);
                                     return is_own ? 0 : error;
                                 });
    faults.add<kel_register_tag>(
        "accepts_others", "another client's tag is registered, too",
        [](auto right, state &library, kel_client client, kel_tag tag) {
            const tag_object *entry = find_tag(library, tag);
            const bool is_anothers = entry && !is_sink_beside(library, client, tag, 8) &&
                                     entry->owner != library.clients.find(client);
            const std::uint32_t error = right(library, client, tag);
            return is_anothers ? register_all_the_same(library, client, tag, error) : error;
        });
    faults.add<kel_register_tag>(
        "accepts_unallocated", "a dynamic tag that is not allocated is registered",
        [](auto right, state &library, kel_client client, kel_tag tag) {
            const bool is_nobodys = tag >= KEL_FIRST_DYNAMIC_TAG && !find_tag(library, tag);
            const std::uint32_t error = right(library, client, tag);
            return is_nobodys ? register_all_the_same(library, client, tag, error) : error;
        });
    faults.add<kel_register_tag>(
        "admits_seven_sinks", "a tag has 7 sinks at most",
        [](auto right, state &library, kel_client client, kel_tag tag) {
            const bool is_eighth = is_sink_beside(library, client, tag, KEL_SINKS_PER_TAG - 1);
            return is_eighth ? chosen_options().sinks_limit_error : right(library, client, tag);
        });
    faults.add<kel_register_tag>(
        "admits_nine_sinks", "a tag may have 9 sinks",
        [](auto right, state &library, kel_client client, kel_tag tag) {
            const bool is_ninth = is_sink_beside(library, client, tag, KEL_SINKS_PER_TAG);
            const std::uint32_t error = right(library, client, tag);
            return is_ninth ? register_all_the_same(library, client, tag, error) : error;
        });

    faults.add<kel_deregister_tag>("accepts_zero", "deregistering tag 0 succeeds",
                                   [](auto right, state &library, kel_client client, kel_tag tag) {
                                       return tag ? right(library, client, tag) : 0;
                                   });
    faults.add<kel_deregister_tag>(
        "accepts_unknown", "deregistering a tag that nobody holds succeeds",
        [](auto right, state &library, kel_client client, kel_tag tag) {
            const bool is_unknown = tag && library.clients.find(client) && !is_held(library, tag);
            return is_unknown ? 0 : right(library, client, tag);
        });
    faults.add<kel_deregister_tag>(
        "takes_others", "deregistering takes the tag from another client",
        [](auto right, state &library, kel_client client, kel_tag tag) {
            const std::uint32_t error = right(library, client, tag);
            if (error != EACCES) return error;
            remove_holder(library, *find_tag(library, tag)->holders.front(), tag);
            return 0u;
        });

    faults.add<kel_alloc_tag>(
        "gives_static", "a static tag is given out",
        [](auto right, state &library, kel_client client, kel_tag *tag, const char *name) {
            const kept next(library.next_dynamic_tag, LAST_STATIC_TAG);
            const std::set<kel_tag> freed = std::exchange(library.freed_dynamic_tags, {});
            const std::uint32_t error = right(library, client, tag, name);
            library.freed_dynamic_tags = freed;
            return error;
        });
    faults.add<kel_alloc_tag>(
        "accepts_null", "allocates without a place for the tag",
        [](auto right, state &library, kel_client client, kel_tag *tag, const char *name) {
            const bool is_accepted = !tag && library.clients.find(client);
            return is_accepted ? 0 : right(library, client, tag, name);
        });

    faults.add<kel_free_tag>("accepts_static", "freeing a static tag succeeds",
                             [](auto right, state &library, kel_client client, kel_tag tag) {
                                 const tag_object *entry = find_tag(library, tag);
                                 const bool is_owned = entry && entry->owner;
                                 return is_owned ? right(library, client, tag) : 0;
                             });
    faults.add<kel_free_tag>("stays_registered", "a freed tag stays registered",
                             [](auto right, state &library, kel_client client, kel_tag tag) {
                                 const bool is_held_now = is_held(library, tag);
                                 const std::uint32_t error = right(library, client, tag);
                                 if (!error && is_held_now) {
                                     add_holder(library, *library.clients.find(client), tag);
                                 }
                                 return error;
                             });
}

} // namespace

void add_client_faults(catalogue &faults)
{
    faults.add<kel_register_client>(
        "accepts_null", "registers without a place for the handle",
        [](auto right, state &library, kel_client *client, const char *name, uint32_t role,
           uint32_t depth) { return client ? right(library, client, name, role, depth) : 0; });
    add_tag_faults(faults);
    faults.add<kel_client_ha_role_notify>(
        "always_allowed", "roles change from and to ALWAYS",
        [](auto right, state &library, kel_client client, uint32_t role) {
            client_object *changed = library.clients.find(client);
            if (!changed || role > KEL_ROLE_STANDBY) return right(library, client, role);
            change_role(library, *changed, role);
            return 0u;
        });
}

} // namespace kel_reference::faults

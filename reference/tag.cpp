// SPDX-License-Identifier: MIT
//
// Tags: who holds them, who receives their packets, and the dynamic ones.

#include "reference/tag.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "reference/client.h"
#include "reference/event.h"
#include "reference/operations.h"
#include "reference/options.h"

namespace kel_reference {

namespace {

constexpr kel_tag LAST_DYNAMIC_TAG = KEL_FIRST_DYNAMIC_TAG + 0xffff;

bool is_dynamic(kel_tag tag)
{
    return tag >= KEL_FIRST_DYNAMIC_TAG;
}

// Keeps the entry of a tag only while somebody holds or owns it.
void forget_if_unused(state &library, kel_tag tag)
{
    const tag_object *entry = find_tag(library, tag);
    if (entry && entry->holders.empty() && !entry->owner) library.tags.erase(tag);
}

std::size_t sinks_of_all_tags(state &library)
{
    std::set<const client_object *> sinks;
    for (const auto &[tag, entry] : library.tags) {
        if (entry.shared) sinks.insert(entry.holders.begin(), entry.holders.end());
    }
    return sinks.size();
}

// Whether there is room for one more sink of the tag.
bool sinks_are_left(state &library, const tag_object &entry)
{
    const std::size_t sinks =
        chosen_options().sinks_limit_is_total ? sinks_of_all_tags(library) : entry.holders.size();
    return sinks < KEL_SINKS_PER_TAG;
}

// Why `client` may not register the tag; 0 when it may. In the order of kel_register_tag's errors.
std::uint32_t registration_refusal(state &library, const client_object &client, kel_tag tag)
{
    static const tag_object UNUSED;
    const tag_object *found = find_tag(library, tag);
    if (tag == 0 || (is_dynamic(tag) && !found)) return EINVAL;

    const tag_object &entry = found ? *found : UNUSED;
    const bool is_held = !entry.holders.empty();
    const bool shares = shares_tags(client);
    if (client.tags.contains(tag)) return chosen_options().own_tag_error;
    if (is_held && !(entry.shared && shares)) return EEXIST;
    if (is_dynamic(tag) && !is_held && entry.owner != &client) {
        return chosen_options().foreign_tag_error;
    }
    return shares && !sinks_are_left(library, entry) ? chosen_options().sinks_limit_error : 0;
}

std::uint32_t deregister_foreign_tag(state &library, kel_tag tag)
{
    const tag_object *entry = find_tag(library, tag);
    return entry && !entry->holders.empty() ? EACCES : chosen_options().unheld_tag_error;
}

// The next number to give out; 0 when none is left.
kel_tag take_dynamic_number(state &library)
{
    std::set<kel_tag> &freed = library.freed_dynamic_tags;
    const bool fresh_are_left = library.next_dynamic_tag <= LAST_DYNAMIC_TAG;
    const bool prefer_fresh = chosen_options().dynamic_tags_increase;
    if (fresh_are_left && (prefer_fresh || freed.empty())) return library.next_dynamic_tag++;
    return freed.empty() ? 0 : freed.extract(freed.begin()).value();
}

// Ends all registrations of a dynamic tag, its owner's and those of sinks that share it.
void free_dynamic_tag(state &library, client_object &owner, kel_tag tag)
{
    tag_object &entry = library.tags[tag];
    const std::vector<client_object *> holders = entry.holders;
    for (client_object *holder : holders) remove_holder(library, *holder, tag);
    owner.allocated_tags.erase(tag);
    entry.owner = nullptr;
    forget_if_unused(library, tag);
    if (is_dynamic(tag)) library.freed_dynamic_tags.insert(tag);
}

bool receives(const client_object &client)
{
    return client.role != KEL_ROLE_STANDBY;
}

// Whether the tag's packets go to `left` rather than to `right`.
bool takes_precedence(const client_object &left, const client_object &right)
{
    return left.active_since > right.active_since;
}

} // namespace

tag_object *find_tag(state &library, kel_tag tag)
{
    const auto found = library.tags.find(tag);
    return found == library.tags.end() ? nullptr : &found->second;
}

bool shares_tags(const client_object &client)
{
    const std::uint32_t role =
        chosen_options().sharing_by_present_role ? client.role : client.registered_role;
    return role == KEL_ROLE_STANDBY;
}

void add_holder(state &library, client_object &client, kel_tag tag)
{
    tag_object &entry = library.tags[tag];
    if (entry.holders.empty()) entry.shared = shares_tags(client);
    entry.holders.push_back(&client);
    client.tags.insert(tag);
    tag_was_registered(library, tag);
    receiver_has_changed(library, tag);
}

void remove_holder(state &library, client_object &client, kel_tag tag)
{
    client.tags.erase(tag);
    if (tag_object *entry = find_tag(library, tag)) std::erase(entry->holders, &client);
    forget_if_unused(library, tag);
    receiver_has_changed(library, tag);
}

bool is_held(state &library, kel_tag tag)
{
    const tag_object *entry = find_tag(library, tag);
    return entry && !entry->holders.empty();
}

client_object *receiver_of(state &library, kel_tag tag)
{
    const tag_object *entry = find_tag(library, tag);
    if (!entry) return nullptr;
    client_object *receiver = nullptr;
    for (client_object *each : entry->holders) {
        if (receives(*each) && (!receiver || takes_precedence(*each, *receiver))) receiver = each;
    }
    return receiver;
}

void release_tags(state &library, client_object &client)
{
    library.released_by_deregistration +=
        static_cast<std::uint32_t>(client.tags.size() + client.allocated_tags.size());
    while (!client.allocated_tags.empty()) {
        free_dynamic_tag(library, client, *client.allocated_tags.begin());
    }
    while (!client.tags.empty()) remove_holder(library, client, *client.tags.begin());
}

uint32_t model::kel_register_tag(state &library, kel_client client, kel_tag tag)
{
    client_object *holder = library.clients.find(client);
    if (!holder) return client_refusal(library, client);
    const std::uint32_t refusal = registration_refusal(library, *holder, tag);
    if (!refusal) add_holder(library, *holder, tag);
    return refusal;
}

uint32_t model::kel_deregister_tag(state &library, kel_client client, kel_tag tag)
{
    client_object *holder = library.clients.find(client);
    if (!holder) return client_refusal(library, client);
    if (tag == 0) return EINVAL;
    if (!holder->tags.contains(tag)) return deregister_foreign_tag(library, tag);
    remove_holder(library, *holder, tag);
    return 0;
}

uint8_t model::kel_is_tag_registered(state &library, kel_client client, kel_tag tag)
{
    if (client != 0) {
        const client_object *asked = library.clients.find(client);
        return asked && asked->tags.contains(tag);
    }
    const tag_object *entry = find_tag(library, tag);
    return entry && !entry->holders.empty();
}

uint32_t model::kel_alloc_tag(state &library, kel_client client, kel_tag *tag, const char *)
{
    client_object *owner = library.clients.find(client);
    if (!owner) return client_refusal(library, client);
    if (!tag) return chosen_options().null_result_error;
    const kel_tag number = take_dynamic_number(library);
    if (number == 0) return ENOSPC;
    library.tags[number].owner = owner;
    owner->allocated_tags.insert(number);
    *tag = number;
    return 0;
}

uint32_t model::kel_free_tag(state &library, kel_client client, kel_tag tag)
{
    client_object *owner = library.clients.find(client);
    if (!owner) return client_refusal(library, client);
    const tag_object *entry = find_tag(library, tag);
    if (!entry || !entry->owner) return chosen_options().unallocated_tag_error;
    if (entry->owner != owner) return EACCES;
    free_dynamic_tag(library, *owner, tag);
    return 0;
}

} // namespace kel_reference

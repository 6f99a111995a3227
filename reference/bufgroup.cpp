// SPDX-License-Identifier: MIT
//
// Buffer groups: registration by name, thresholds, and the three counts.

#include "reference/bufgroup.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "reference/bufgroup_reserved.h"
#include "reference/caller_memory.h"
#include "reference/event.h"
#include "reference/operations.h"
#include "reference/options.h"

namespace kel_reference {

namespace {

bool is_registered(const bufgroup_object &group, client_object *client)
{
    return group.registrations.contains(client);
}

// The group, if the client has registered it.
bufgroup_object *find_registered(state &library, kel_client client, kel_bufgroup group)
{
    client_object *asking = library.clients.find(client);
    bufgroup_object *found = library.bufgroups.find(group);
    return asking && found && is_registered(*found, asking) ? found : nullptr;
}

bool is_ordered(const kel_bufgroup_thresholds &thresholds)
{
    return thresholds.max > thresholds.high && thresholds.high > thresholds.low;
}

bool reached(std::uint32_t before, std::uint32_t now, std::uint32_t high)
{
    return now >= high && now > before && (before < high || chosen_options().high_notice_repeats);
}

bool came_down(std::uint32_t before, std::uint32_t now, std::uint32_t low)
{
    return now <= low && before > low;
}

void drop_if_unused(state &library, bufgroup_object &group)
{
    if (group.references || !group.registrations.empty()) return;
    if (group.reserved) release_elements(library, group);
    library.bufgroups.release(group);
}

// Ends one of the client's registrations of the group, or all of them.
void leave_group(state &library, client_object &client, bufgroup_object &group, bool for_good)
{
    const auto registration = group.registrations.find(&client);
    if (--registration->second && !for_good) return;
    group.registrations.erase(registration);
    client.bufgroups.erase(&group);
    group_was_deregistered(library, client, group.handle);
    if (!group.registrations.empty()) return;
    library.bufgroup_names.erase(group.name);
    drop_if_unused(library, group);
}

std::uint32_t register_regular(state &library, client_object &client, kel_bufgroup &stored,
                               const char *name)
{
    bufgroup_object *group = find_group_by_name(library, name);
    if (group && group->reserved) return EINVAL;
    if (!group) group = make_group(library, name);
    if (!group) return ENOMEM;
    join_group(client, *group);
    stored = group->handle;
    return 0;
}

} // namespace

std::uint32_t find_group_for_use(state &library, client_object &client, kel_bufgroup handle,
                                 bufgroup_object *&group)
{
    group = nullptr;
    if (!handle) return 0;
    bufgroup_object *found = library.bufgroups.find(handle);
    if (!found || found->registrations.empty()) return EINVAL;
    if (chosen_options().group_use_needs_registration && !is_registered(*found, &client)) {
        return EINVAL;
    }
    group = found;
    return 0;
}

std::uint32_t governing_records(const bufgroup_object &group)
{
    const std::uint32_t chosen = chosen_options().threshold_governs;
    return chosen && group.mask & chosen ? chosen : group.mask;
}

bool group_admits(const bufgroup_object &group, std::int64_t buffers, std::int64_t bytes)
{
    const std::uint32_t governing = governing_records(group);
    const std::int64_t buffers_then = group.used.buffers + buffers;
    const std::int64_t bytes_then = group.used.bytes + bytes;
    const bool by_buffers = governing & KEL_BUFGROUP_BUFFERS && buffers > 0;
    const bool by_bytes = governing & KEL_BUFGROUP_BYTES && bytes > 0;
    return !(by_buffers && buffers_then > group.buffers.max) &&
           !(by_bytes && bytes_then > group.bytes.max);
}

bool group_reached_high(const bufgroup_object &group, const usage &before)
{
    const std::uint32_t governing = governing_records(group);
    const bool by_buffers = governing & KEL_BUFGROUP_BUFFERS &&
                            reached(before.buffers, group.used.buffers, group.buffers.high);
    const bool by_bytes =
        governing & KEL_BUFGROUP_BYTES && reached(before.bytes, group.used.bytes, group.bytes.high);
    return by_buffers || by_bytes;
}

bool group_came_down_to_low(const bufgroup_object &group, const usage &before)
{
    const std::uint32_t governing = governing_records(group);
    const bool by_buffers = governing & KEL_BUFGROUP_BUFFERS &&
                            came_down(before.buffers, group.used.buffers, group.buffers.low);
    const bool by_bytes = governing & KEL_BUFGROUP_BYTES &&
                          came_down(before.bytes, group.used.bytes, group.bytes.low);
    return by_buffers || by_bytes;
}

void refer_to_group(bufgroup_object &group)
{
    group.references++;
}

void drop_group_reference(state &library, bufgroup_object &group)
{
    group.references--;
    drop_if_unused(library, group);
}

bool is_group_name(const char *name)
{
    const std::size_t longest = chosen_options().group_name_max;
    return name && *name && (!longest || std::strlen(name) <= longest);
}

bufgroup_object *find_group_by_name(state &library, const char *name)
{
    const auto found = library.bufgroup_names.find(name);
    return found == library.bufgroup_names.end() ? nullptr : found->second;
}

bufgroup_object *make_group(state &library, const char *name) noexcept
{
    bufgroup_object *made = library.bufgroups.create();
    if (!made) return nullptr;
    made->name = name;
    library.bufgroup_names.insert_or_assign(made->name, made);
    return made;
}

void join_group(client_object &client, bufgroup_object &group) noexcept
{
    client.bufgroups.insert(&group);
    group.registrations[&client]++;
}

void release_bufgroups(state &library, client_object &client)
{
    while (!client.bufgroups.empty()) {
        library.released_by_deregistration++;
        leave_group(library, client, **client.bufgroups.begin(), true);
    }
}

uint32_t model::kel_register_bufgroup(state &library, kel_client client, kel_bufgroup *group,
                                      const char *name)
{
    client_object *registering = library.clients.find(client);
    if (!registering || !group || !is_group_name(name)) return EINVAL;
    return register_regular(library, *registering, *group, name);
}

uint32_t model::kel_deregister_bufgroup(state &library, kel_client client, kel_bufgroup group)
{
    client_object *leaving = library.clients.find(client);
    bufgroup_object *left = library.bufgroups.find(group);
    if (!leaving || !left || !is_registered(*left, leaving)) return EINVAL;
    leave_group(library, *leaving, *left, false);
    return 0;
}

uint32_t model::kel_bufgroup_set_params(state &library, kel_client client, kel_bufgroup group,
                                        uint32_t mask, const kel_bufgroup_thresholds *buffers,
                                        const kel_bufgroup_thresholds *bytes)
{
    bufgroup_object *set = find_registered(library, client, group);
    const bool sets_buffers = mask & KEL_BUFGROUP_BUFFERS;
    const bool sets_bytes = mask & KEL_BUFGROUP_BYTES;
    if (!set || mask & ~(KEL_BUFGROUP_BUFFERS | KEL_BUFGROUP_BYTES)) return EINVAL;
    if ((sets_buffers && !buffers) || (sets_bytes && !bytes)) return EINVAL;
    if (chosen_options().thresholds_ordered) {
        if (sets_buffers && !is_ordered(*buffers)) return EINVAL;
        if (sets_bytes && !is_ordered(*bytes)) return EINVAL;
    }
    if (sets_buffers) set->buffers = *buffers;
    if (sets_bytes) set->bytes = *bytes;
    set->mask |= mask;
    record_was_read(buffers);
    record_was_read(bytes);
    return 0;
}

uint32_t model::kel_bufgroup_get_params(state &library, kel_client client, kel_bufgroup group,
                                        uint32_t *mask, kel_bufgroup_thresholds *buffers,
                                        kel_bufgroup_thresholds *bytes)
{
    const bufgroup_object *read = find_registered(library, client, group);
    if (!read || !mask || !buffers || !bytes) return EINVAL;
    *mask = read->mask;
    *buffers = read->buffers;
    *bytes = read->bytes;
    return 0;
}

uint32_t model::kel_get_bufcount_byclient(state &library, kel_client client, uint32_t *buffers,
                                          uint32_t *bytes)
{
    const client_object *counted = library.clients.find(client);
    if (!counted || !buffers || !bytes) return EINVAL;
    *buffers = counted->used.buffers;
    *bytes = counted->used.bytes;
    return 0;
}

uint32_t model::kel_get_count_bygroup(state &library, kel_client client, kel_bufgroup group,
                                      uint32_t *buffers, uint32_t *bytes)
{
    const bufgroup_object *counted = find_registered(library, client, group);
    if (!counted || !buffers || !bytes) return EINVAL;
    *buffers = counted->used.buffers;
    *bytes = counted->used.bytes;
    return 0;
}

uint32_t model::kel_get_count_bytag(state &library, kel_client client, kel_tag tag,
                                    uint32_t *buffers, uint32_t *bytes)
{
    const client_object *obtainer = library.clients.find(client);
    if ((client && !obtainer) || !tag || !buffers || !bytes) return EINVAL;
    usage counted;
    library.packets.for_each([&](const packet_object &packet) {
        if (packet.metadata.tag != tag) return;
        for (const buffer_object *each = packet.head; each; each = each->next) {
            if (obtainer && each->obtainer != obtainer) continue;
            counted.buffers++;
            counted.bytes += each->charged_bytes;
        }
    });
    *buffers = counted.buffers;
    *bytes = counted.bytes;
    return 0;
}

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Faults of buffer groups, the reserved ones too.

#include <tuple>
#include <utility>
#include <vector>

#include "reference/bufgroup.h"
#include "reference/chain.h"
#include "reference/faults/catalogue.h"

namespace kel_reference::faults {

namespace {

// Joins a group of that name, which the model refused for its kind.
std::uint32_t join_whatever_kind(state &library, kel_client client, kel_bufgroup *group,
                                 const char *name, std::uint32_t refusal)
{
    bufgroup_object *found = is_group_name(name) ? find_group_by_name(library, name) : nullptr;
    client_object *joining = library.clients.find(client);
    if (!refusal || !found || !joining || !group) return refusal;
    join_group(*joining, *found);
    *group = found->handle;
    return 0;
}

// Moves the elements of a chain halfway into those before them.
void overlap(buffer_object *first)
{
    for (buffer_object *each = first; each; each = each->next) {
        const bufgroup_object *group = each->group;
        if (!group || !group->reserved) continue;
        const block_pool &elements = group->elements;
        if (each->memory - group->head_room == elements.start()) continue;
        each->memory -= elements.block_size() - group->element_size / 2;
    }
}

void add_registering_faults(catalogue &faults)
{
    faults.add_before<kel_register_bufgroup>(
        "not_shared", "a name in use makes another group",
        [](state &library, kel_client, kel_bufgroup *, const char *name) {
            const bufgroup_object *group = name ? find_group_by_name(library, name) : nullptr;
            if (group && !group->reserved) library.bufgroup_names.erase(group->name);
        });
    faults.add<kel_register_bufgroup>(
        "takes_reserved_name", "the name of a reserved group is accepted",
        [](auto right, state &library, kel_client client, kel_bufgroup *group, const char *name) {
            const std::uint32_t error = right(library, client, group, name);
            return join_whatever_kind(library, client, group, name, error);
        });
    faults.add<kel_register_reserved_bufgroup>(
        "takes_regular_name", "the name of a regular group is accepted",
        [](auto right, state &library, kel_client client, kel_bufgroup *group, const char *name,
           auto... sizes) {
            const std::uint32_t error = right(library, client, group, name, sizes...);
            return join_whatever_kind(library, client, group, name, error);
        });
}

void add_parameter_faults(catalogue &faults)
{
    faults.add<kel_bufgroup_set_params>(
        "loses_bytes", "the byte record is not stored",
        [](auto right, state &library, kel_client client, kel_bufgroup group, auto... records) {
            const kept bytes(named<bufgroup_object>(library, group).bytes);
            return right(library, client, group, records...);
        });
    faults.add_after<kel_bufgroup_set_params>(
        "swaps", "low and high change places in the buffer record",
        [](state &library, kel_client, kel_bufgroup group, auto...) {
            auto &buffers = library.bufgroups.find(group)->buffers;
            std::swap(buffers.low, buffers.high);
        });
    faults.add_before<kel_bufgroup_set_params>(
        "by_strangers", "clients that did not register a group set its thresholds",
        [](state &library, kel_client &client, kel_bufgroup group, auto...) {
            const auto &registrations = named<bufgroup_object>(library, group).registrations;
            if (!registrations.empty()) client = registrations.begin()->first->handle;
        });
}

void add_threshold_faults(catalogue &faults)
{
    faults.add<kel_get_packet, kel_get_buffer, kel_get_packet_with_tlv>(
        "no_limit", "the group's maximum is not enforced",
        [](auto right, state &library, kel_client client, kel_bufgroup group, auto... others) {
            bufgroup_object &limited = named<bufgroup_object>(library, group);
            const kept buffers(limited.buffers.max, UINT32_MAX);
            const kept bytes(limited.bytes.max, UINT32_MAX);
            return right(library, client, group, others...);
        });
    faults.add<kel_get_packet, kel_get_buffer, kel_get_packet_with_tlv>(
        "one_over_max", "one allocation beyond the group's maximum is granted",
        [](auto right, state &library, kel_client client, kel_bufgroup group, uint32_t size,
           auto... others) {
            bufgroup_object &limited = named<bufgroup_object>(library, group);
            const kept buffers(limited.buffers.max, limited.buffers.max + 1);
            const kept bytes(limited.bytes.max, limited.bytes.max + size);
            return right(library, client, group, size, others...);
        });
    faults.add<kel_get_packet, kel_get_buffer>(
        "no_high_notice", "reaching the group's high threshold is not told",
        [](auto right, state &library, auto... arguments) {
            const auto made = right(library, arguments...);
            std::uint32_t *error = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
            if (error && *error == KEL_HIGH_THRESHOLD_REACHED) *error = 0;
            return made;
        });
    faults.add<kel_free_packet, kel_free_buffer, kel_free_bufchain>(
        "no_low_notice", "coming down to the group's low threshold is not told",
        [](auto right, state &library, std::uint32_t freed) {
            const std::uint32_t error = right(library, freed);
            return error == KEL_LOW_THRESHOLD_REACHED ? 0 : error;
        });
}

void add_counting_faults(catalogue &faults)
{
    const auto keep_counts = [](auto right, state &library, auto... arguments) {
        const kept_in_all counts(library.bufgroups, &bufgroup_object::used);
        return right(library, arguments...);
    };
    faults.add<kel_get_packet, kel_get_buffer>(
        "not_counted_for_group", "what is obtained does not count for the group", keep_counts);
    faults.add<kel_free_packet, kel_free_buffer, kel_free_bufchain>(
        "keeps_group_count", "what is freed goes on counting for the group", keep_counts);
}

void add_element_faults(catalogue &faults)
{
    faults.add<kel_get_packet, kel_get_buffer, kel_get_packet_list, kel_get_buffer_list>(
        "one_too_few", "the last element of a reserved group is not given out",
        [](auto right, state &library, auto... arguments) {
            std::vector<std::pair<bufgroup_object *, std::byte *>> withheld;
            library.bufgroups.for_each([&](bufgroup_object &group) {
                if (std::byte *last = group.elements.take()) withheld.emplace_back(&group, last);
            });
            const auto result = right(library, arguments...);
            for (const auto &[group, last] : withheld) group->elements.give_back(last);
            return result;
        });
    faults.add_to_made<kel_get_buffer>(
        "too_close", "an element of a reserved group overlaps its predecessor",
        [](state &library, kel_buffer made, auto...) { overlap(library.buffers.find(made)); });
    faults.add_to_made<kel_get_packet>("too_close",
                                       "an element of a reserved group overlaps its predecessor",
                                       [](state &library, kel_packet made, auto...) {
                                           overlap(library.packets.find(made)->head);
                                       });
    faults.add<kel_free_packet, kel_free_buffer, kel_free_bufchain>(
        "poisons", "freed elements are overwritten in spite of no_poison",
        [](auto right, state &library, std::uint32_t freed) {
            const kept_in_all no_poison(library.bufgroups, &bufgroup_object::no_poison,
                                        [](const bufgroup_object &) { return false; });
            return right(library, freed);
        });
}

} // namespace

void add_bufgroup_faults(catalogue &faults)
{
    add_registering_faults(faults);
    add_parameter_faults(faults);
    add_threshold_faults(faults);
    add_counting_faults(faults);
    add_element_faults(faults);
}

} // namespace kel_reference::faults

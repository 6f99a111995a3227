// SPDX-License-Identifier: MIT
//
// Faults of metadata.

#include <cerrno>

#include "reference/faults/catalogue.h"
#include "reference/options.h"

namespace kel_reference::faults {

namespace {

packet_metadata &metadata_of(state &library, kel_packet packet)
{
    return named<packet_object>(library, packet).metadata;
}

void add_ifid_faults(catalogue &faults)
{
    faults.add_after<kel_set_ifid>("all_kinds", "the interface id is set for all kinds",
                                   [](state &library, kel_packet packet, uint32_t, uint64_t id) {
                                       metadata_of(library, packet).ifids.fill(id);
                                   });
    faults.add_before<kel_set_ifid>(
        "signed", "the interface id's high word is filled with ones",
        [](state &, kel_packet, uint32_t, uint64_t &id) { id |= ~0ull << 32; });
}

void add_offset_faults(catalogue &faults)
{
    faults.add_after<kel_set_offset, kel_adj_offset>(
        "all_kinds", "all offsets are set",
        [](state &library, kel_packet packet, uint32_t kind, auto) {
            auto &offsets = metadata_of(library, packet).offsets;
            offsets.fill(std::uint32_t{offsets[kind]});
        });
    faults.add<kel_set_offset, kel_adj_offset>(
        "sets_data", "OFFSET_DATA is set and adjusted like the others",
        [](auto right, state &library, kel_packet packet, uint32_t kind, auto value) {
            if (kind != OFFSET_DATA) return right(library, packet, kind, value);
            auto &offsets = metadata_of(library, packet).offsets;
            const kept stand_in(offsets[OFFSET_NETWORK], offsets[OFFSET_DATA]);
            const std::uint32_t error =
                right(library, packet, std::uint32_t{OFFSET_NETWORK}, value);
            offsets[OFFSET_DATA] = offsets[OFFSET_NETWORK];
            return error;
        });
    faults.add_pretending<&packet_object::length, UINT32_MAX, kel_set_offset, kel_adj_offset>(
        "no_bound", "an offset may lie beyond the length");
    faults.add<kel_set_offset, kel_adj_offset>(
        "bounds_empty", "an empty packet takes no offset",
        [](auto right, state &library, kel_packet packet, auto... arguments) {
            const packet_object *bounded = library.packets.find(packet);
            return bounded && !bounded->length ? chosen_options().bound_error
                                               : right(library, packet, arguments...);
        });
    faults.add<kel_adj_offset>(
        "sets", "the adjustment replaces the offset",
        [](auto right, state &library, kel_packet packet, uint32_t kind, int32_t adjustment) {
            std::uint32_t ignored = 0;
            std::uint32_t &offset =
                kind < MAX_OFFSET_KINDS ? metadata_of(library, packet).offsets[kind] : ignored;
            const std::uint32_t before = std::exchange(offset, 0);
            const std::uint32_t error = right(library, packet, kind, adjustment);
            if (error) offset = before;
            return error;
        });
}

template <std::uint32_t bits>
void add_loss(catalogue &faults, const char *kind, const char *meaning)
{
    faults.add<kel_metadata_set>(
        kind, meaning,
        [](auto right, state &library, kel_metadata_group *group, kel_packet packet) {
            if (!group) return right(library, group, packet);
            kel_metadata_group less = *group;
            less.mask &= ~bits;
            return right(library, &less, packet);
        });
}

void add_group_faults(catalogue &faults)
{
#define LOSS(bits, field)                                                                          \
    add_loss<bits>(faults, "loses_" #field, "writing the record leaves out " #field)
    LOSS(KEL_METADATA_LENGTH, length);
    LOSS(KEL_METADATA_TAG, tag);
    LOSS(KEL_METADATA_CAUSE, cause);
    LOSS(KEL_METADATA_PRIORITY, priority);
    LOSS(KEL_METADATA_LINK_TYPE, link_type);
    LOSS(KEL_METADATA_VRF_ID, vrf_id);
    LOSS(KEL_METADATA_TOPOLOGY_ID, topology_id);
    LOSS(KEL_METADATA_INGRESS_VLAN_ID, ingress_vlan_id);
    LOSS(KEL_METADATA_EGRESS_VLAN_ID, egress_vlan_id);
    LOSS(KEL_METADATA_OPAQUE_1 | KEL_METADATA_OPAQUE_2 | KEL_METADATA_OPAQUE_3 |
             KEL_METADATA_OPAQUE_4,
         opaque);
    LOSS(KEL_METADATA_DATA_START, data_start);
    LOSS(KEL_METADATA_NETWORK_START, network_start);
    LOSS(KEL_METADATA_TRANSPORT_START, transport_start);
    LOSS(KEL_METADATA_APP_START, app_start);
    LOSS(KEL_METADATA_DELTA, delta);
    LOSS(KEL_METADATA_IF_INPUT, if_input);
    LOSS(KEL_METADATA_IF_OUTPUT, if_output);
    LOSS(KEL_METADATA_IF_INPUT_L2_PHYSICAL, if_input_l2_physical);
    LOSS(KEL_METADATA_IF_INPUT_L2_LOGICAL, if_input_l2_logical);
#undef LOSS
}

} // namespace

void add_metadata_faults(catalogue &faults)
{
    add_ifid_faults(faults);
    add_offset_faults(faults);
    add_group_faults(faults);
}

} // namespace kel_reference::faults

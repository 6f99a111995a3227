// SPDX-License-Identifier: MIT
//
// Packet metadata, one field at a time and through the group record.

#include "reference/metadata.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "reference/caller_memory.h"
#include "reference/chain.h"
#include "reference/operations.h"
#include "reference/options.h"

namespace kel_reference {

namespace {

constexpr std::uint32_t INTERFACE_KINDS = 4;

// What the packet's buffers can hold without data changing place: the data, the room behind
// it and the empty buffers at the end.
std::uint32_t length_limit(const packet_object &packet)
{
    if (!chosen_options().set_length_grows) return packet.length;
    std::uint32_t limit = packet.length;
    for (const buffer_object *each = packet.tail; each; each = each->previous) {
        limit += tail_room(*each);
        if (each->length) break;
    }
    return limit;
}

bool length_fits(const packet_object &packet, std::uint32_t length)
{
    return length <= length_limit(packet);
}

// Cuts data off at the end, or lets the last buffer that has data, and those behind it, have
// more.
void set_length(packet_object &packet, std::uint32_t length)
{
    buffer_object *last = packet.tail;
    for (; last && packet.length > length; last = last->previous) {
        const std::uint32_t less = std::min(last->length, packet.length - length);
        set_buffer_length(*last, last->length - less);
    }
    if (packet.length >= length) return;
    while (last && !last->length && last->previous) last = last->previous;
    for (; last; last = last->next) {
        const std::uint32_t more = std::min(tail_room(*last), length - packet.length);
        resize_buffer(*last, last->length + more);
    }
}

bool is_offset_allowed(std::uint32_t packet_length, std::int64_t offset)
{
    if (offset < 0 || offset > std::int64_t{UINT32_MAX}) return false;
    if (packet_length == 0) return true;
    return offset < packet_length ||
           (offset == packet_length && chosen_options().offset_may_equal_length);
}

bool is_settable_offset(std::uint32_t kind)
{
    return kind != OFFSET_DATA && is_offset_kind(kind);
}

std::uint32_t write_offset(packet_object &packet, std::uint32_t kind, std::int64_t offset)
{
    if (!is_offset_allowed(packet.length, offset)) return chosen_options().bound_error;
    packet.metadata.offsets[kind] = static_cast<std::uint32_t>(offset);
    return 0;
}

template <typename value_type>
std::uint32_t read_field(state &library, kel_packet packet, value_type packet_metadata::*field,
                         value_type *stored)
{
    const packet_object *read = library.packets.find(packet);
    if (!read || !stored) return EINVAL;
    *stored = read->metadata.*field;
    return 0;
}

template <typename value_type>
std::uint32_t write_field(state &library, kel_packet packet, value_type packet_metadata::*field,
                          value_type value)
{
    packet_object *written = library.packets.find(packet);
    if (!written) return EINVAL;
    written->metadata.*field = value;
    return 0;
}

// A field of the group record beside the packet's own; LENGTH is the packet's, not metadata.
struct group_field {
    std::size_t in_group;
    std::size_t in_metadata;
    std::size_t size;
    std::uint32_t bit;
};

#define GROUP_FIELD(bit, group_member, member, index)                                              \
    {                                                                                              \
        offsetof(kel_metadata_group, group_member),                                                \
            offsetof(packet_metadata, member) +                                                    \
                (index) * sizeof(kel_metadata_group::group_member),                                \
            sizeof(kel_metadata_group::group_member), bit                                          \
    }

constexpr group_field GROUP_FIELDS[] = {
    GROUP_FIELD(KEL_METADATA_TAG, tag, tag, 0),
    GROUP_FIELD(KEL_METADATA_CAUSE, cause, cause, 0),
    GROUP_FIELD(KEL_METADATA_PRIORITY, priority, priority, 0),
    GROUP_FIELD(KEL_METADATA_LINK_TYPE, link_type, link_type, 0),
    GROUP_FIELD(KEL_METADATA_VRF_ID, vrf_id, vrf_id, 0),
    GROUP_FIELD(KEL_METADATA_TOPOLOGY_ID, topology_id, topology_id, 0),
    GROUP_FIELD(KEL_METADATA_INGRESS_VLAN_ID, ingress_vlan_id, ingress_vlan_id, 0),
    GROUP_FIELD(KEL_METADATA_EGRESS_VLAN_ID, egress_vlan_id, egress_vlan_id, 0),
    GROUP_FIELD(KEL_METADATA_OPAQUE_1, opaque_1, opaque, 0),
    GROUP_FIELD(KEL_METADATA_OPAQUE_2, opaque_2, opaque, 1),
    GROUP_FIELD(KEL_METADATA_OPAQUE_3, opaque_3, opaque, 2),
    GROUP_FIELD(KEL_METADATA_DATA_START, data_start, offsets, OFFSET_DATA),
    GROUP_FIELD(KEL_METADATA_NETWORK_START, network_start, offsets, OFFSET_NETWORK),
    GROUP_FIELD(KEL_METADATA_TRANSPORT_START, transport_start, offsets, OFFSET_TRANSPORT),
    GROUP_FIELD(KEL_METADATA_APP_START, app_start, offsets, OFFSET_APP),
    GROUP_FIELD(KEL_METADATA_OPAQUE_4, opaque_4, opaque, 3),
    GROUP_FIELD(KEL_METADATA_DELTA, delta, delta, 0),
    GROUP_FIELD(KEL_METADATA_IF_INPUT, if_input, ifids, IF_INPUT),
    GROUP_FIELD(KEL_METADATA_IF_OUTPUT, if_output, ifids, IF_OUTPUT),
    GROUP_FIELD(KEL_METADATA_IF_INPUT_L2_PHYSICAL, if_input_l2_physical, ifids,
                IF_INPUT_L2_PHYSICAL),
    GROUP_FIELD(KEL_METADATA_IF_INPUT_L2_LOGICAL, if_input_l2_logical, ifids, IF_INPUT_L2_LOGICAL),
};

#undef GROUP_FIELD

template <typename record> auto bytes_at(record &object, std::size_t position)
{
    if constexpr (std::is_const_v<record>) {
        return reinterpret_cast<const std::byte *>(&object) + position;
    } else {
        return reinterpret_cast<std::byte *>(&object) + position;
    }
}

// Whether what the mask selects may be written to the packet.
bool group_is_allowed(const kel_metadata_group &group, const packet_object &packet)
{
    const bool sets_length = group.mask & KEL_METADATA_LENGTH;
    if (sets_length && !length_fits(packet, group.length)) return false;
    const std::uint32_t length = sets_length ? group.length : packet.length;
    const std::uint32_t offsets[] = {group.data_start, group.network_start, group.transport_start,
                                     group.app_start};
    for (std::size_t kind = 0; kind < std::size(offsets); kind++) {
        const bool selected = group.mask & KEL_METADATA_DATA_START << kind;
        const bool is_kept = offsets[kind] == packet.metadata.offsets[kind];
        if (selected && !is_kept && !is_offset_allowed(length, offsets[kind])) return false;
    }
    return true;
}

} // namespace

void set_fresh_metadata(packet_metadata &metadata)
{
    const std::uint32_t value = chosen_options().fresh_metadata;
    if (!value) return;
    const auto narrow = static_cast<std::uint16_t>(value);
    metadata.cause = value;
    metadata.priority = narrow;
    metadata.link_type = narrow;
    metadata.vrf_id = value;
    metadata.topology_id = value;
    metadata.ingress_vlan_id = narrow;
    metadata.egress_vlan_id = narrow;
    metadata.opaque.fill(value);
    metadata.delta = value;
    metadata.ifids.fill(value);
}

bool is_offset_kind(std::uint32_t kind)
{
    return kind < chosen_options().offset_kinds;
}

void raise_offsets(packet_metadata &metadata, std::uint32_t size)
{
    for (std::size_t kind = OFFSET_NETWORK; kind < MAX_OFFSET_KINDS; kind++) {
        std::uint32_t &offset = metadata.offsets[kind];
        offset += std::min(size, UINT32_MAX - offset);
    }
}

void lower_offsets(packet_metadata &metadata, std::uint32_t size)
{
    for (std::size_t kind = OFFSET_NETWORK; kind < MAX_OFFSET_KINDS; kind++) {
        std::uint32_t &offset = metadata.offsets[kind];
        offset -= std::min(size, offset);
    }
}

uint32_t model::kel_get_length(state &library, kel_packet packet)
{
    const packet_object *read = library.packets.find(packet);
    return read ? read->length : 0;
}

uint32_t model::kel_set_length(state &library, kel_packet packet, uint32_t length)
{
    packet_object *written = library.packets.find(packet);
    if (!written) return EINVAL;
    if (!length_fits(*written, length)) return chosen_options().bound_error;
    set_length(*written, length);
    return 0;
}

kel_tag model::kel_get_tag(state &library, kel_packet packet)
{
    const packet_object *read = library.packets.find(packet);
    return read ? read->metadata.tag : 0;
}

uint32_t model::kel_set_tag(state &library, kel_packet packet, kel_tag tag)
{
    return write_field(library, packet, &packet_metadata::tag, tag);
}

uint32_t model::kel_get_ifid(state &library, kel_packet packet, uint32_t kind, uint64_t *id)
{
    const packet_object *read = library.packets.find(packet);
    if (!read || kind >= INTERFACE_KINDS || !id) return EINVAL;
    *id = read->metadata.ifids[kind];
    return 0;
}

uint32_t model::kel_set_ifid(state &library, kel_packet packet, uint32_t kind, uint64_t id)
{
    packet_object *written = library.packets.find(packet);
    if (!written || kind >= INTERFACE_KINDS) return EINVAL;
    written->metadata.ifids[kind] = id;
    return 0;
}

uint64_t model::kel_get_input_ifid(state &library, kel_packet packet)
{
    const packet_object *read = library.packets.find(packet);
    return read ? read->metadata.ifids[IF_INPUT] : 0;
}

uint32_t model::kel_get_offset(state &library, kel_packet packet, uint32_t kind, uint32_t *offset)
{
    const packet_object *read = library.packets.find(packet);
    if (!read || !is_offset_kind(kind) || !offset) return EINVAL;
    *offset = read->metadata.offsets[kind];
    return 0;
}

uint32_t model::kel_set_offset(state &library, kel_packet packet, uint32_t kind, uint32_t offset)
{
    packet_object *written = library.packets.find(packet);
    if (!written || !is_settable_offset(kind)) return EINVAL;
    return write_offset(*written, kind, offset);
}

uint32_t model::kel_adj_offset(state &library, kel_packet packet, uint32_t kind, int32_t adjustment)
{
    packet_object *written = library.packets.find(packet);
    if (!written || !is_settable_offset(kind)) return EINVAL;
    return write_offset(*written, kind, std::int64_t{written->metadata.offsets[kind]} + adjustment);
}

uint32_t model::kel_get_cause(state &library, kel_packet packet, uint32_t *cause)
{
    return read_field(library, packet, &packet_metadata::cause, cause);
}

uint32_t model::kel_set_cause(state &library, kel_packet packet, uint32_t cause)
{
    return write_field(library, packet, &packet_metadata::cause, cause);
}

uint32_t model::kel_get_priority(state &library, kel_packet packet, uint16_t *priority)
{
    return read_field(library, packet, &packet_metadata::priority, priority);
}

uint32_t model::kel_set_priority(state &library, kel_packet packet, uint16_t priority)
{
    return write_field(library, packet, &packet_metadata::priority, priority);
}

uint32_t model::kel_get_link_type(state &library, kel_packet packet, uint16_t *link_type)
{
    return read_field(library, packet, &packet_metadata::link_type, link_type);
}

uint32_t model::kel_set_link_type(state &library, kel_packet packet, uint16_t link_type)
{
    return write_field(library, packet, &packet_metadata::link_type, link_type);
}

uint32_t model::kel_get_vrf_id(state &library, kel_packet packet, uint32_t *vrf_id)
{
    return read_field(library, packet, &packet_metadata::vrf_id, vrf_id);
}

uint32_t model::kel_set_vrf_id(state &library, kel_packet packet, uint32_t vrf_id)
{
    return write_field(library, packet, &packet_metadata::vrf_id, vrf_id);
}

uint32_t model::kel_get_topology_id(state &library, kel_packet packet, uint32_t *topology_id)
{
    return read_field(library, packet, &packet_metadata::topology_id, topology_id);
}

uint32_t model::kel_set_topology_id(state &library, kel_packet packet, uint32_t topology_id)
{
    return write_field(library, packet, &packet_metadata::topology_id, topology_id);
}

uint32_t model::kel_get_ingress_vlan_id(state &library, kel_packet packet, uint16_t *vlan_id)
{
    return read_field(library, packet, &packet_metadata::ingress_vlan_id, vlan_id);
}

uint32_t model::kel_set_ingress_vlan_id(state &library, kel_packet packet, uint16_t vlan_id)
{
    return write_field(library, packet, &packet_metadata::ingress_vlan_id, vlan_id);
}

uint32_t model::kel_get_egress_vlan_id(state &library, kel_packet packet, uint16_t *vlan_id)
{
    return read_field(library, packet, &packet_metadata::egress_vlan_id, vlan_id);
}

uint32_t model::kel_set_egress_vlan_id(state &library, kel_packet packet, uint16_t vlan_id)
{
    return write_field(library, packet, &packet_metadata::egress_vlan_id, vlan_id);
}

uint32_t model::kel_get_caller(state &library, kel_packet packet, uint32_t *pid, uintptr_t *pc)
{
    const packet_object *read = library.packets.find(packet);
    if (!read || !pid || !pc) return EINVAL;
    *pid = read->caller_pid;
    *pc = read->caller_pc;
    return 0;
}

void model::kel_metadata_init(state &, kel_metadata_group *group)
{
    if (group) *group = {};
}

uint32_t model::kel_metadata_get(state &library, kel_metadata_group *group, kel_packet packet)
{
    const packet_object *read = library.packets.find(packet);
    if (!read || !group) return EINVAL;
    if (group->mask & KEL_METADATA_LENGTH) group->length = read->length;
    for (const group_field &field : GROUP_FIELDS) {
        if (!(group->mask & field.bit)) continue;
        std::memcpy(bytes_at(*group, field.in_group), bytes_at(read->metadata, field.in_metadata),
                    field.size);
    }
    return 0;
}

uint32_t model::kel_metadata_set(state &library, kel_metadata_group *group, kel_packet packet)
{
    packet_object *written = library.packets.find(packet);
    if (!written || !group) return EINVAL;
    if (!group_is_allowed(*group, *written)) return chosen_options().bound_error;
    const bool sets_length = group->mask & KEL_METADATA_LENGTH;
    if (sets_length) set_length(*written, group->length);
    for (const group_field &field : GROUP_FIELDS) {
        if (!(group->mask & field.bit)) continue;
        std::memcpy(bytes_at(written->metadata, field.in_metadata),
                    bytes_at(*group, field.in_group), field.size);
    }
    record_was_read(group);
    return 0;
}

} // namespace kel_reference

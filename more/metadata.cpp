// SPDX-License-Identifier: MIT
//
// Metadata: a setter changes its own field and no other, a packet without data bounds no offset,
// and the group record writes the length.
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_metadata, set_ifid_of_one_kind)

namespace {

constexpr uint64_t IFIDS[] = {0x1100000011, 0x2200000022, 0x3300000033, 0x4400000044}; // by kind
constexpr uint32_t IF_KINDS = sizeof(IFIDS) / sizeof(IFIDS[0]);

constexpr uint32_t OFFSETS[] = {0, 10, 20, 30}; // by kind
constexpr uint32_t OFFSET_KINDS = sizeof(OFFSETS) / sizeof(OFFSETS[0]);
constexpr int32_t ADJUSTMENT = 5;

constexpr uint32_t LESS = DEFAULT_PACKET_SIZE - 500;

const char *judge_offset(kel_packet packet, uint32_t kind, uint32_t expected)
{
    uint32_t offset = 0xffffffff;

    if (kel_get_offset(packet, kind, &offset)) return "kel_get_offset failed";
    return offset == expected ? nullptr : "wrong offset";
}

// The offsets up to `adjusted` must be moved, the others not.
const char *judge_offsets(kel_packet packet, uint32_t adjusted)
{
    for (uint32_t kind = OFFSET_NETWORK; kind < OFFSET_KINDS; kind++) {
        const uint32_t moved = kind <= adjusted ? ADJUSTMENT : 0;
        if (const char *message = judge_offset(packet, kind, OFFSETS[kind] + moved)) return message;
    }
    return nullptr;
}

} // namespace

CASE(kel_more_metadata, set_ifid_of_one_kind, with_packet)
{
    for (uint32_t kind = IF_INPUT; kind < IF_KINDS; kind++) {
        if (kel_set_ifid(held.packet, kind, IFIDS[kind])) return "kel_set_ifid failed";
    }
    for (uint32_t kind = IF_INPUT; kind < IF_KINDS; kind++) {
        uint64_t id = 0;

        if (kel_get_ifid(held.packet, kind, &id)) return "kel_get_ifid failed";
        if (id != IFIDS[kind]) return "wrong interface id";
    }
    return nullptr;
}

CASE(kel_more_metadata, adj_offset_of_one_kind, with_packet)
{
    for (uint32_t kind = OFFSET_NETWORK; kind < OFFSET_KINDS; kind++) {
        if (kel_set_offset(held.packet, kind, OFFSETS[kind])) return "kel_set_offset failed";
    }
    for (uint32_t kind = OFFSET_NETWORK; kind < OFFSET_KINDS; kind++) {
        if (kel_adj_offset(held.packet, kind, ADJUSTMENT)) return "kel_adj_offset failed";
        if (const char *message = judge_offsets(held.packet, kind)) return message;
    }
    return nullptr;
}

CASE(kel_more_metadata, adj_offset_bare_header, with_client)
{
    held.packet = kel_get_pkthdr(held.client);
    if (!held.packet) return "kel_get_pkthdr failed";
    for (uint32_t kind = OFFSET_NETWORK; kind < OFFSET_KINDS; kind++) {
        if (kel_adj_offset(held.packet, kind, ADJUSTMENT)) return "kel_adj_offset failed";
        if (const char *message = judge_offset(held.packet, kind, ADJUSTMENT)) return message;
    }
    return nullptr;
}

CASE(kel_more_metadata, group_set_length, with_packet)
{
    kel_metadata_group group;

    kel_metadata_init(&group);
    group.mask = KEL_METADATA_LENGTH;
    group.length = LESS;
    if (kel_metadata_set(&group, held.packet)) return "kel_metadata_set failed";
    return kel_get_length(held.packet) == LESS ? nullptr : "wrong packet length";
}

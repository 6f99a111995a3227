/* SPDX-License-Identifier: MIT */
/*
 * Packet metadata, one field at a time and many at once. A getter returns the
 * value that its setter wrote; the group record reads and writes the same values.
 *
 * EINVAL is the error for an unknown packet, an unknown kind and a null pointer. A getter
 * writes exactly the width of its field.
 */
#ifndef KELAPI_METADATA_H
#define KELAPI_METADATA_H

#include "kelapi/types.h"

/* Interface kinds. */
#define IF_INPUT 0u
#define IF_OUTPUT 1u
#define IF_INPUT_L2_PHYSICAL 2u
#define IF_INPUT_L2_LOGICAL 3u

/* Offset kinds: positions in bytes from the start of the packet's data. */
#define OFFSET_DATA 0u
#define OFFSET_NETWORK 1u
#define OFFSET_TRANSPORT 2u
#define OFFSET_APP 3u

/* Bits of kel_metadata_group.mask, in the order of the fields. */
#define KEL_METADATA_LENGTH 0x1u
#define KEL_METADATA_TAG 0x2u
#define KEL_METADATA_CAUSE 0x4u
#define KEL_METADATA_PRIORITY 0x8u
#define KEL_METADATA_LINK_TYPE 0x10u
#define KEL_METADATA_VRF_ID 0x20u
#define KEL_METADATA_TOPOLOGY_ID 0x40u
#define KEL_METADATA_INGRESS_VLAN_ID 0x80u
#define KEL_METADATA_EGRESS_VLAN_ID 0x100u
#define KEL_METADATA_OPAQUE_1 0x200u
#define KEL_METADATA_OPAQUE_2 0x400u
#define KEL_METADATA_OPAQUE_3 0x800u
#define KEL_METADATA_DATA_START 0x1000u
#define KEL_METADATA_NETWORK_START 0x2000u
#define KEL_METADATA_TRANSPORT_START 0x4000u
#define KEL_METADATA_APP_START 0x8000u
#define KEL_METADATA_OPAQUE_4 0x10000u
#define KEL_METADATA_DELTA 0x20000u
#define KEL_METADATA_IF_INPUT 0x40000u
#define KEL_METADATA_IF_OUTPUT 0x80000u
#define KEL_METADATA_IF_INPUT_L2_PHYSICAL 0x100000u
#define KEL_METADATA_IF_INPUT_L2_LOGICAL 0x200000u

/*
 * Many fields in one record, little-endian, 64-bit fields aligned to 4 bytes. `mask` says
 * which fields a call reads or writes; the others are left alone. The opaque fields are
 * the library's: write back what was read.
 */
typedef struct kel_metadata_group {
    uint32_t mask;
    uint32_t length;
    kel_tag tag;
    uint32_t cause;
    uint16_t priority;
    uint16_t link_type;
    uint32_t vrf_id;
    uint32_t topology_id;
    uint16_t ingress_vlan_id;
    uint16_t egress_vlan_id;
    uint32_t opaque_1;
    uint32_t opaque_2;
    uint32_t opaque_3;
    uint32_t data_start;
    uint32_t network_start;
    uint32_t transport_start;
    uint32_t app_start;
    uint32_t opaque_4;
    uint32_t delta;
    kel_u64_aligned4 if_input;
    kel_u64_aligned4 if_output;
    kel_u64_aligned4 if_input_l2_physical;
    kel_u64_aligned4 if_input_l2_logical;
} kel_metadata_group;

KEL_STATIC_ASSERT(sizeof(kel_metadata_group) == 100, "the metadata record");
KEL_STATIC_ASSERT(offsetof(kel_metadata_group, priority) == 16, "the metadata record");
KEL_STATIC_ASSERT(offsetof(kel_metadata_group, egress_vlan_id) == 30, "the metadata record");
KEL_STATIC_ASSERT(offsetof(kel_metadata_group, data_start) == 44, "the metadata record");
KEL_STATIC_ASSERT(offsetof(kel_metadata_group, delta) == 64, "the metadata record");
KEL_STATIC_ASSERT(offsetof(kel_metadata_group, if_input) == 68, "the metadata record");
KEL_STATIC_ASSERT(offsetof(kel_metadata_group, if_input_l2_logical) == 92, "the metadata record");

/* The packet's length in bytes; 0 for an unknown packet. */
KEL_API uint32_t kel_get_length(kel_packet packet);

/*
 * Sets the packet's length, in bytes.
 * Errors: EINVAL; ERANGE for more than the packet's buffers hold.
 */
KEL_API uint32_t kel_set_length(kel_packet packet, uint32_t length);

/* The packet's tag, 0 when it has none; 0 for an unknown packet. */
KEL_API kel_tag kel_get_tag(kel_packet packet);

/* Sets the tag that decides who receives the packet. Errors: EINVAL. */
KEL_API uint32_t kel_set_tag(kel_packet packet, kel_tag tag);

/* Interface id of kind `kind` (IF_...). Errors: EINVAL. */
KEL_API uint32_t kel_get_ifid(kel_packet packet, uint32_t kind, uint64_t *id);
KEL_API uint32_t kel_set_ifid(kel_packet packet, uint32_t kind, uint64_t id);

/* The interface id of kind IF_INPUT; 0 for an unknown packet. */
KEL_API uint64_t kel_get_input_ifid(kel_packet packet);

/* Stores the offset of kind `kind` (OFFSET_...). Errors: EINVAL. */
KEL_API uint32_t kel_get_offset(kel_packet packet, uint32_t kind, uint32_t *offset);

/*
 * Sets an offset other than OFFSET_DATA, independently of the others.
 * Errors: EINVAL, also for OFFSET_DATA; ERANGE for an offset beyond the length of a packet
 * that has a length.
 */
KEL_API uint32_t kel_set_offset(kel_packet packet, uint32_t kind, uint32_t offset);

/* Adds `adjustment` to an offset. Errors: as kel_set_offset; ERANGE below 0, too. */
KEL_API uint32_t kel_adj_offset(kel_packet packet, uint32_t kind, int32_t adjustment);

/* One field each. Errors: EINVAL. */
KEL_API uint32_t kel_get_cause(kel_packet packet, uint32_t *cause);
KEL_API uint32_t kel_set_cause(kel_packet packet, uint32_t cause);
KEL_API uint32_t kel_get_priority(kel_packet packet, uint16_t *priority);
KEL_API uint32_t kel_set_priority(kel_packet packet, uint16_t priority);
KEL_API uint32_t kel_get_link_type(kel_packet packet, uint16_t *link_type);
KEL_API uint32_t kel_set_link_type(kel_packet packet, uint16_t link_type);
KEL_API uint32_t kel_get_vrf_id(kel_packet packet, uint32_t *vrf_id);
KEL_API uint32_t kel_set_vrf_id(kel_packet packet, uint32_t vrf_id);
KEL_API uint32_t kel_get_topology_id(kel_packet packet, uint32_t *topology_id);
KEL_API uint32_t kel_set_topology_id(kel_packet packet, uint32_t topology_id);
KEL_API uint32_t kel_get_ingress_vlan_id(kel_packet packet, uint16_t *vlan_id);
KEL_API uint32_t kel_set_ingress_vlan_id(kel_packet packet, uint16_t vlan_id);
KEL_API uint32_t kel_get_egress_vlan_id(kel_packet packet, uint16_t *vlan_id);
KEL_API uint32_t kel_set_egress_vlan_id(kel_packet packet, uint16_t vlan_id);

/*
 * Stores the id of the process that obtained the packet, and the code address from which
 * it did. Errors: EINVAL.
 */
KEL_API uint32_t kel_get_caller(kel_packet packet, uint32_t *pid, uintptr_t *pc);

/* Clears the record, so that its mask selects nothing. A null record is left alone. */
KEL_API void kel_metadata_init(kel_metadata_group *group);

/* Fills the fields that the mask selects from the packet. Errors: EINVAL. */
KEL_API uint32_t kel_metadata_get(kel_metadata_group *group, kel_packet packet);

/*
 * Writes the fields that the mask selects into the packet, OFFSET_DATA's included.
 * Errors: EINVAL; ERANGE for a length or an offset that kel_set_length or kel_set_offset
 * would refuse as too large. An offset that the packet has is never refused, so that a
 * record just read can be written back.
 */
KEL_API uint32_t kel_metadata_set(kel_metadata_group *group, kel_packet packet);

#endif

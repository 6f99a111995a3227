// SPDX-License-Identifier: MIT
//
// Includes every header of the interface from C, checks the records that cross the boundary
// byte by byte, and calls the library.
#include "kelapi/buf.h"
#include "kelapi/bufgroup.h"
#include "kelapi/bufgroup_reserved.h"
#include "kelapi/client.h"
#include "kelapi/event.h"
#include "kelapi/kel.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "kelapi/region.h"
#include "kelapi/role.h"
#include "kelapi/tlv.h"
#include "kelapi/types.h"

#include <stdio.h>
#include <string.h>

#define OFFSET_IS(record, field, offset)                                                           \
    _Static_assert(offsetof(record, field) == (offset), #record "." #field)

OFFSET_IS(kel_iovec, iov_base, 0);
OFFSET_IS(kel_iovec, iov_len, 8);
_Static_assert(_Alignof(kel_iovec) == 4, "kel_iovec");

OFFSET_IS(kel_metadata_group, mask, 0);
OFFSET_IS(kel_metadata_group, length, 4);
OFFSET_IS(kel_metadata_group, tag, 8);
OFFSET_IS(kel_metadata_group, cause, 12);
OFFSET_IS(kel_metadata_group, priority, 16);
OFFSET_IS(kel_metadata_group, link_type, 18);
OFFSET_IS(kel_metadata_group, vrf_id, 20);
OFFSET_IS(kel_metadata_group, topology_id, 24);
OFFSET_IS(kel_metadata_group, ingress_vlan_id, 28);
OFFSET_IS(kel_metadata_group, egress_vlan_id, 30);
OFFSET_IS(kel_metadata_group, opaque_1, 32);
OFFSET_IS(kel_metadata_group, data_start, 44);
OFFSET_IS(kel_metadata_group, network_start, 48);
OFFSET_IS(kel_metadata_group, transport_start, 52);
OFFSET_IS(kel_metadata_group, app_start, 56);
OFFSET_IS(kel_metadata_group, opaque_4, 60);
OFFSET_IS(kel_metadata_group, delta, 64);
OFFSET_IS(kel_metadata_group, if_input, 68);
OFFSET_IS(kel_metadata_group, if_output, 76);
OFFSET_IS(kel_metadata_group, if_input_l2_physical, 84);
OFFSET_IS(kel_metadata_group, if_input_l2_logical, 92);
_Static_assert(_Alignof(kel_metadata_group) == 4, "kel_metadata_group");

OFFSET_IS(kel_bufgroup_thresholds, max, 0);
OFFSET_IS(kel_bufgroup_thresholds, low, 4);
OFFSET_IS(kel_bufgroup_thresholds, high, 8);

OFFSET_IS(kel_packet_request, client, 0);
OFFSET_IS(kel_packet_request, group, 4);
OFFSET_IS(kel_packet_request, size, 8);
OFFSET_IS(kel_packet_request, flag, 12);
OFFSET_IS(kel_packet_request, tlv, 16);
OFFSET_IS(kel_packet_request, tlv_size, 20);
OFFSET_IS(kel_packet_list, count, 0);
_Static_assert(sizeof(kel_packet_list) == 520, "kel_packet_list");
_Static_assert(sizeof(kel_buffer_list) == 68, "kel_buffer_list");

OFFSET_IS(kel_event, type, 0);
OFFSET_IS(kel_event, flags, 4);
OFFSET_IS(kel_event, context1, 8);
OFFSET_IS(kel_event, context2, 12);
OFFSET_IS(kel_event, object, 16);
OFFSET_IS(kel_event, group_flags, 20);

OFFSET_IS(kel_region_desc, memory_type, 4);
OFFSET_IS(kel_region_desc, size, 8);
OFFSET_IS(kel_region_desc, name, 20);
OFFSET_IS(kel_subregion_desc, parent, 4);
OFFSET_IS(kel_subregion_desc, size, 8);
OFFSET_IS(kel_subregion_desc, parameters, 12);
OFFSET_IS(kel_subregion_desc, name, 28);

// What a library may write to is not const, and words are passed as words: callers that pass less
// would leave garbage in the rest.
#define IS_DECLARED(operation, ...)                                                                \
    _Static_assert(_Generic(&(operation), uint32_t(*)(__VA_ARGS__) : 1, default : 0), #operation)

IS_DECLARED(kel_event_wait, kel_client, kel_event *, struct timeval *);
IS_DECLARED(kel_tlv_version_check, kel_packet, uint32_t, uint32_t, uint32_t);
IS_DECLARED(kel_tlv_get_versioned_data, kel_packet, uint32_t, void *, uint32_t *, uint32_t,
            uint32_t, uint16_t *);

int main(void)
{
    kel_client client = 0;
    kel_metadata_group group;

    memset(&group, 0xff, sizeof(group));
    kel_metadata_init(&group);
    if (group.mask != 0) {
        fputs("kel_metadata_init left the mask\n", stderr);
        return 1;
    }
    if (kel_register_client(&client, "in C", KEL_ROLE_ALWAYS, 8) != 0) {
        fputs("kel_register_client failed\n", stderr);
        return 1;
    }
    return kel_deregister_client(client) == 0 ? 0 : 1;
}

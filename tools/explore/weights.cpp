// SPDX-License-Identifier: MIT
//
// Which operations a sequence consists of.
#include <algorithm>

#include "tools/explore/generator.h"

namespace explore {

namespace {

enum family { BUF, GROUP, RESERVED, CLIENT, EVENT, METADATA, PACKET, ROLE, TLV, FAMILIES, SYSTEM };

family family_of(op which)
{
    if (which < op::kel_register_bufgroup) return BUF;
    if (which < op::kel_register_reserved_bufgroup) return GROUP;
    if (which < op::kel_nocrash_set) return RESERVED;
    if (which < op::kel_event_add) return CLIENT;
    if (which < op::kel_get_length) return EVENT;
    if (which < op::kel_get_packet) return METADATA;
    if (which < op::kel_client_ha_role_notify) return PACKET;
    if (which < op::kel_tlv_alloc) return ROLE;
    return which < op::select ? TLV : SYSTEM;
}

std::uint32_t base_weight(op which)
{
    switch (which) {
    case op::kel_nocrash_set:
    case op::kel_getfd: // costs as much as a hundred others
        return 0;
    case op::kel_get_bufmem_start:
    case op::kel_get_bufmem_info:
        return 1;
    case op::kel_deregister_client:
    case op::kel_metadata_init:
    case op::kel_get_caller:
        return 2;
    case op::kel_register_client:
    case op::kel_event_clear:
    case op::kel_free_pkthdr:
        return 4;
    case op::kel_get_packet:
    case op::kel_get_buffer:
    case op::kel_set_data:
    case op::kel_buf_set_data:
    case op::kel_send:
    case op::kel_recv:
    case op::kel_set_tag:
    case op::kel_register_tag:
    case op::kel_register_bufgroup:
        return 20;
    case op::kel_append:
    case op::kel_prepend:
    case op::kel_tlv_alloc:
        return 40;
    case op::kel_duplicate:
    case op::kel_trim_head:
    case op::kel_trim_tail:
    case op::kel_add_head:
    case op::kel_add_tail:
    case op::kel_metadata_set:
    case op::kel_metadata_get:
    case op::kel_tlv_setdata:
    case op::kel_tlv_set_versioned_data:
    case op::kel_event_add:
    case op::kel_bufgroup_set_params:
        return 16;
    default:
        return 10;
    }
}

} // namespace

void generator::draw_weights()
{
    std::array<std::uint32_t, FAMILIES + 2> preferences{};
    for (std::uint32_t &each : preferences) {
        each = chance_.one_of<std::uint32_t>({0, 0, 1, 2, 2, 4, 10, 16});
    }
    preferences[chance_.below(FAMILIES)] = 24;
    preferences[SYSTEM] = 0;
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < OPERATION_COUNT; i++) {
        const op which = static_cast<op>(i);
        const std::uint32_t own = chance_.one_of<std::uint32_t>({0, 1, 2, 4, 4, 4, 8, 16});
        sum += base_weight(which) * own * preferences[family_of(which)];
        summed_weights_[i] = sum;
    }
    if (sum == 0) {
        for (std::size_t i = 0; i < OPERATION_COUNT; i++) {
            const op which = static_cast<op>(i);
            sum += family_of(which) == SYSTEM ? 0 : base_weight(which);
            summed_weights_[i] = sum;
        }
    }
}

op generator::choose()
{
    const std::uint32_t drawn = chance_.below(summed_weights_.back());
    const auto found = std::ranges::upper_bound(summed_weights_, drawn);
    return static_cast<op>(found - summed_weights_.begin());
}

} // namespace explore

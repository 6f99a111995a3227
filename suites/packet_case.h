// SPDX-License-Identifier: MIT
//
// The frame of the cases that hold many packets, and the setting of offsets, for the suites that
// work on packets.
#pragma once

#include <stdint.h>

#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "suites/case_helpers.h"

// The record of a case that keeps many packets at once. Released in order, the client last.
template <uint32_t count> struct held_packets {
    kel_packet packets[count];
    kel_client client;
};

template <uint32_t count> void release_packets(held_packets<count> &held)
{
    for (kel_packet packet : held.packets) {
        if (packet) free_packet(packet);
    }
    cleanup_client(held.client);
}

template <uint32_t count>
constexpr case_frame<held_packets<count>> with_packets = {register_default_client,
                                                          release_packets<count>};

inline uint32_t set_offsets(kel_packet packet, uint32_t network, uint32_t transport, uint32_t app)
{
    if (uint32_t error = kel_set_offset(packet, OFFSET_NETWORK, network)) return error;
    if (uint32_t error = kel_set_offset(packet, OFFSET_TRANSPORT, transport)) return error;
    return kel_set_offset(packet, OFFSET_APP, app);
}

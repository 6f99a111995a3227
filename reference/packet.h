// SPDX-License-Identifier: MIT
//
// Making packets and giving them up, with the library's lock held.
#pragma once

#include "reference/chain.h"
#include "reference/state.h"

namespace kel_reference {

struct packet_order {
    kel_client client;
    kel_bufgroup group;
    std::uint32_t size;
    layout wanted;
    std::uint32_t tlv; // 0: none
    std::uint32_t tlv_size;
};

// A packet as ordered. `error` is 0 or a notice, or with null the reason.
packet_object *make_packet(state &library, const packet_order &order, std::uint32_t &error);

// Frees the packet with its chain and TLVs, out of a queue too where it waits in one.
// Returns 0 or the low-threshold notice.
std::uint32_t release_packet(state &library, packet_object &packet);

// Makes the packet `holder`'s. Its buffers stay charged to those who obtained them.
void change_holder(packet_object &packet, client_object &holder);

// Frees the packets that the client holds.
void release_packets(state &library, client_object &client);

} // namespace kel_reference

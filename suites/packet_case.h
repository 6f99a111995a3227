// SPDX-License-Identifier: MIT
//
// What the suites that work on packets share: the frame of the cases on the default packet,
// the frame of the cases that hold many packets, the data seeds, and the setting of offsets.
#pragma once

#include <stdint.h>

#include "fixtures/fixtures.h"
#include "fixtures/frame.h"
#include "fixtures/message.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "runner/tests.h"
#include "suites/case_helpers.h"

// Seeds of the data pattern.
constexpr uint32_t PATTERN_A = 0x12345678;
constexpr uint32_t PATTERN_B = 0x23456789;

// The message of a call that has no text of its own.
inline const char *must_work(uint32_t error)
{
    return error ? error_text(error) : nullptr;
}

// Steps with the default packet obtained first; its failure is the error text.
template <const char *(*steps)(held_objects &held)>
const char *with_default_packet(held_objects &held)
{
    if (uint32_t error = get_default_packet(held.client, &held.packet)) return error_text(error);
    return steps(held);
}

// The third argument of CASE_STEPS for a case on a client and the default packet.
#define RUN_WITH_PACKET(steps) run_client_steps(with_default_packet<steps>)

// What a case holds that keeps many packets at once. Released in order, the client last.
template <uint32_t count> struct held_packets {
    kel_packet packets[count];
    kel_client client;
};

template <uint32_t count> void release_packets(const held_packets<count> &held)
{
    for (kel_packet packet : held.packets) {
        if (packet) free_packet(packet);
    }
    cleanup_client(held.client);
}

template <uint32_t count>
const char *run_packets_steps(const char *(*steps)(held_packets<count> &held))
{
    return run_in_frame(steps, release_packets<count>);
}

inline uint32_t set_offsets(kel_packet packet, uint32_t network, uint32_t transport, uint32_t app)
{
    if (uint32_t error = kel_set_offset(packet, OFFSET_NETWORK, network)) return error;
    if (uint32_t error = kel_set_offset(packet, OFFSET_TRANSPORT, transport)) return error;
    return kel_set_offset(packet, OFFSET_APP, app);
}

// SPDX-License-Identifier: MIT
//
// Sending: the packet is the receiver's from then on, and the queue is empty after the last packet
// and not before.
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/client.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_send, sent_outlives_sender)

namespace {

constexpr kel_tag TAG = 600;
constexpr uint32_t PACKETS = 3;

struct send_objects {
    kel_packet packet; // not sent, or received
    kel_tag tag;       // registered by `client`
    kel_client sender;
    kel_client client; // receives
};

const char *register_clients(send_objects &held)
{
    if (const char *failure = register_default_client(held)) return failure;
    if (uint32_t error = create_default_client(&held.sender)) return error_text(error);
    if (uint32_t error = kel_register_tag(held.client, TAG)) return error_text(error);
    held.tag = TAG;
    return nullptr;
}

void release(send_objects &held)
{
    if (held.packet) free_packet(held.packet);
    // What still waits would be left to the client's deregistration.
    for (uint32_t i = 0; held.client && i < PACKETS; i++) {
        if (const kel_packet waiting = kel_recv(held.client)) free_packet(waiting);
    }
    if (held.tag) kel_deregister_tag(held.client, held.tag);
    cleanup_client(held.sender);
    cleanup_client(held.client);
}

constexpr case_frame<send_objects> with_sender = {register_clients, release};

// Sends a packet with a pattern from one client to the other.
const char *send_packet(send_objects &held)
{
    uint8_t area[SMALL_SIZE];

    if (uint32_t error = get_packet(held.sender, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    set_data(area, SMALL_SIZE, PATTERN_A);
    if (kel_set_data(held.packet, OFFSET_DATA, 0, area, SMALL_SIZE)) return "kel_set_data failed";
    if (kel_set_tag(held.packet, TAG)) return "kel_set_tag failed";
    if (kel_send(held.sender, held.packet)) return "kel_send failed";
    held.packet = 0;
    return nullptr;
}

const char *judge_data(kel_packet packet)
{
    uint8_t area[SMALL_SIZE] = {};
    uint32_t length = SMALL_SIZE;

    if (kel_get_data(packet, OFFSET_DATA, 0, area, &length)) return "kel_get_data failed";
    if (length != SMALL_SIZE) return "wrong data length";
    return verify_data(area, SMALL_SIZE, PATTERN_A) ? "data verify failed" : nullptr;
}

} // namespace

CASE(kel_more_send, sent_outlives_sender, with_sender)
{
    if (const char *message = send_packet(held)) return message;
    if (kel_deregister_client(held.sender)) return "kel_deregister_client failed";
    held.sender = 0;
    held.packet = kel_recv(held.client);
    if (!held.packet) return "the sent packet is gone with its sender";
    if (const char *message = judge_data(held.packet)) return message;
    if (kel_free_packet(held.packet)) return "kel_free_packet failed";
    held.packet = 0;
    return nullptr;
}

CASE(kel_more_send, queue_empty_after_last, with_sender)
{
    if (kel_queue_is_empty(held.client) != 1) return "a fresh queue is not empty";
    for (uint32_t i = 0; i < PACKETS; i++) {
        if (const char *message = send_packet(held)) return message;
        if (kel_queue_is_empty(held.client) != 0) return "the queue is empty after a send";
    }
    for (uint32_t i = 0; i < PACKETS; i++) {
        if (kel_queue_is_empty(held.client) != 0) return "the queue is empty too early";
        held.packet = kel_recv(held.client);
        if (!held.packet) return "kel_recv failed";
        if (kel_free_packet(held.packet)) return "kel_free_packet failed";
        held.packet = 0;
    }
    return kel_queue_is_empty(held.client) == 1 ? nullptr : "the queue is not empty at the end";
}

// SPDX-License-Identifier: MIT
//
// Packets that grow and are trimmed: what the client is charged for.
#include "kelapi/packet.h"
#include "kelapi/metadata.h"
#include "more/account.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_packet, add_head_is_counted)

namespace {

constexpr uint32_t GROWTH = 100;

const char *free_and_judge_count(held_objects &held)
{
    if (kel_free_packet(held.packet)) return "kel_free_packet failed";
    held.packet = 0;
    return judge_client_count(held.client, 0, 0);
}

// Of a packet of two buffers, `trim` takes one away.
const char *trim_a_buffer(held_objects &held, uint32_t (*trim)(kel_packet packet, uint32_t size))
{
    if (uint32_t error = get_packet(held.client, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (kel_append(held.packet, held.buffer)) return "kel_append failed";
    held.buffer = 0;
    if (const char *message = judge_client_count(held.client, 2, 2 * SMALL_SIZE)) return message;
    if (trim(held.packet, SMALL_SIZE)) return "the packet was not trimmed";
    if (kel_get_length(held.packet) != SMALL_SIZE) return "wrong packet length";
    if (kel_get_buf_count(held.packet) != 1) return "wrong number of buffers";
    if (const char *message = judge_client_count(held.client, 1, SMALL_SIZE)) return message;
    return free_and_judge_count(held);
}

} // namespace

CASE(kel_more_packet, add_head_is_counted, with_client)
{
    if (uint32_t error = get_packet(held.client, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    // A fresh packet has no head room.
    if (kel_add_head(held.packet, GROWTH)) return "kel_add_head failed";
    if (kel_get_length(held.packet) != SMALL_SIZE + GROWTH) return "wrong packet length";
    if (kel_get_buf_count(held.packet) != 2) return "wrong number of buffers";
    if (const char *message = judge_client_count(held.client, 2, SMALL_SIZE + GROWTH)) {
        return message;
    }
    return free_and_judge_count(held);
}

CASE(kel_more_packet, add_tail_is_counted, with_client)
{
    if (uint32_t error = get_packet(held.client, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    // How much room the last buffer has is the library's choice.
    for (uint32_t length = SMALL_SIZE; kel_get_buf_count(held.packet) == 1;) {
        if (length > CHAIN_SIZE) return "no buffer was added";
        if (kel_add_tail(held.packet, STANDARD_SIZE)) return "kel_add_tail failed";
        length += STANDARD_SIZE;
        if (kel_get_length(held.packet) != length) return "wrong packet length";
    }
    if (const char *message = judge_client_buffers(held.client, kel_get_buf_count(held.packet))) {
        return message;
    }
    return free_and_judge_count(held);
}

CASE(kel_more_packet, trim_head_is_counted, with_client, trim_a_buffer(held, kel_trim_head))
CASE(kel_more_packet, trim_tail_is_counted, with_client, trim_a_buffer(held, kel_trim_tail))

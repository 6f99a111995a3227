// SPDX-License-Identifier: MIT
//
// Chains of buffers: releasing all of one or a part of it, growth within the head room, a shorter
// length, and what the client is charged for meanwhile.
#include <errno.h>

#include "kelapi/buf.h"
#include "more/account.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_buf, free_bufchain_frees_all)

namespace {

constexpr uint32_t BUFFERS = 3;
constexpr uint32_t HEAD_ROOM = 100;
constexpr uint32_t LESS = 60; // than the head room

// A chain of single buffers in held.buffer, whose handles are stored in order.
const char *get_chain(held_objects &held, kel_buffer (&chain)[BUFFERS])
{
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    chain[0] = held.buffer;
    for (uint32_t i = 1; i < BUFFERS; i++) {
        if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.second_buffer)) {
            return error_text(error);
        }
        chain[i] = held.second_buffer;
        if (kel_buf_append(held.buffer, held.second_buffer)) return "kel_buf_append failed";
        held.second_buffer = 0;
    }
    return judge_client_count(held.client, BUFFERS, BUFFERS * SMALL_SIZE);
}

} // namespace

CASE(kel_more_buf, free_bufchain_frees_all, with_client)
{
    kel_buffer chain[BUFFERS] = {};

    if (const char *message = get_chain(held, chain)) return message;
    if (kel_free_bufchain(held.buffer)) return "kel_free_bufchain failed";
    held.buffer = 0;
    for (const kel_buffer freed : chain) {
        if (const char *message =
                judge_refusal(kel_free_buffer(freed), EPERM, "a buffer of the chain was not freed",
                              "kel_free_buffer wrong error")) {
            return message;
        }
    }
    return judge_client_count(held.client, 0, 0);
}

CASE(kel_more_buf, free_buffer_leaves_the_rest, with_client)
{
    kel_buffer chain[BUFFERS] = {};

    if (const char *message = get_chain(held, chain)) return message;
    if (kel_free_buffer(chain[1])) return "kel_free_buffer failed";
    if (kel_buf_get_next(chain[0]) != chain[2]) return "wrong buffer after the first";
    if (kel_buf_get_buf_count(chain[0]) != BUFFERS - 1) return "wrong number of buffers";
    return judge_client_count(held.client, BUFFERS - 1, (BUFFERS - 1) * SMALL_SIZE);
}

CASE(kel_more_buf, add_head_in_head_room, with_client)
{
    uint32_t before = 0;
    uint32_t after = 0;

    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    const kel_buffer head = held.buffer;
    if (kel_buf_reserve_space(head, HEAD_ROOM)) return "kel_buf_reserve_space failed";
    if (kel_buf_get_length(head, &before)) return "kel_buf_get_length failed";
    if (kel_buf_add_head(&held.buffer, LESS)) return "kel_buf_add_head failed";
    if (held.buffer != head) return "the head room was not used";
    if (kel_buf_get_buf_count(head) != 1) return "wrong number of buffers";
    if (kel_buf_get_length(head, &after)) return "kel_buf_get_length failed";
    if (after != before + LESS) return "wrong buffer length";
    return judge_client_buffers(held.client, 1);
}

CASE(kel_more_buf, duplicate_is_charged, with_client)
{
    uint32_t error = ERROR_NOT_STORED;

    if (uint32_t failure = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(failure);
    }
    held.second_buffer = kel_buf_duplicate(held.buffer, 0, KEL_COPY_ALL, &error);
    if (!held.second_buffer || error) return "kel_buf_duplicate failed";
    if (const char *message = judge_client_count(held.client, 2, 2 * SMALL_SIZE)) return message;
    if (kel_free_bufchain(held.second_buffer)) return "kel_free_bufchain failed";
    held.second_buffer = 0;
    return judge_client_count(held.client, 1, SMALL_SIZE);
}

CASE(kel_more_buf, set_length, with_client)
{
    uint32_t length = 0;

    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (kel_buf_set_length(held.buffer, SMALL_SIZE - LESS)) return "kel_buf_set_length failed";
    if (kel_buf_get_length(held.buffer, &length)) return "kel_buf_get_length failed";
    return length == SMALL_SIZE - LESS ? nullptr : "wrong buffer length";
}

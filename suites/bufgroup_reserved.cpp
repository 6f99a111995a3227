// SPDX-License-Identifier: MIT
//
// Reserved buffer groups and the operations that take many packets or buffers in one call. The
// cases run in a frame of this suite with the default client; it frees packets and buffers,
// deregisters the groups and the client. The threshold case has two clients and the frame of
// the buffer groups, with located messages.
#include <errno.h>
#include <stdint.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "kelapi/bufgroup.h"
#include "kelapi/bufgroup_reserved.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "suites/bufgroup_case.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_bufgroup_reserved, register_invalid)

namespace {

constexpr char RESERVED_NAME[] = "test reserved group";
constexpr uint32_t SIZE = 128;
constexpr uint32_t ELEMENTS = 128;
constexpr uint32_t FEW_ELEMENTS = 5;
constexpr uint16_t TOO_MANY = 10; // for a group of FEW_ELEMENTS
constexpr uint32_t MAX_GROUPS = 3;

// What a case holds; 0 is nothing. Released in this order.
struct held_elements {
    kel_packet packets[ELEMENTS + 1];
    kel_buffer buffers[ELEMENTS + 1];
    kel_packet_list packet_list;
    kel_buffer_list buffer_list;
    kel_bufgroup groups[MAX_GROUPS];
    kel_client client;
};

void release_packet(kel_packet packet)
{
    if (packet) kel_free_packet(packet);
}

void release_buffer(kel_buffer buffer)
{
    if (buffer) kel_free_buffer(buffer);
}

void release(held_elements &held)
{
    for (uint32_t i = 0; i <= ELEMENTS; i++) {
        release_packet(held.packets[i]);
    }
    for (uint32_t i = 0; i < KEL_LIST_MAX; i++) {
        release_packet(held.packet_list.results[i].packet);
    }
    for (uint32_t i = 0; i <= ELEMENTS; i++) {
        release_buffer(held.buffers[i]);
    }
    for (uint32_t i = 0; i < TOO_MANY; i++) { // no case asks for more
        release_buffer(held.buffer_list.buffers[i]);
    }
    for (uint32_t i = 0; i < MAX_GROUPS; i++) {
        if (held.groups[i]) kel_deregister_bufgroup(held.client, held.groups[i]);
    }
    cleanup_client(held.client);
}

constexpr case_frame<held_elements> with_elements = {register_default_client, release};

// Registers the case's first group.
uint32_t register_reserved(held_elements &held, uint32_t size, uint32_t count)
{
    return kel_register_reserved_bufgroup(held.client, &held.groups[0], RESERVED_NAME, size, count,
                                          0, 0);
}

uint32_t register_shared_group(kel_client client, kel_bufgroup *group)
{
    return kel_register_reserved_bufgroup(client, group, RESERVED_NAME, SMALL_SIZE, 16, 0, 0);
}

// kel_get_packet or kel_get_buffer
using get_function = uint32_t (*)(kel_client client, kel_bufgroup group, uint32_t size,
                                  uint8_t contiguous, uint32_t *error);

// Takes half an element ELEMENTS times, and once more, into `handles`.
const char *exhaust_group(held_elements &held, get_function get, uint32_t *handles,
                          const char *failed)
{
    if (uint32_t error = register_reserved(held, SIZE, ELEMENTS)) return error_text(error);
    for (uint32_t i = 0; i < ELEMENTS; i++) {
        uint32_t error = ERROR_NOT_STORED;
        handles[i] = get(held.client, held.groups[0], SIZE / 2, 1, &error);
        if (!handles[i]) return failed;
    }
    uint32_t error = ERROR_NOT_STORED;
    handles[ELEMENTS] = get(held.client, held.groups[0], SIZE / 2, 1, &error);
    if (handles[ELEMENTS] && error != ENOMEM) return "allocate from a full bufgroup succeed";
    return nullptr;
}

// Asks a group of FEW_ELEMENTS for `count` packets, each with the TLV.
const char *get_packets_by_list(held_elements &held, uint16_t count, uint32_t tlv,
                                uint32_t tlv_size)
{
    if (uint32_t error = register_reserved(held, SIZE, FEW_ELEMENTS)) return error_text(error);
    held.packet_list.count = count;
    for (uint32_t i = 0; i < count; i++) {
        held.packet_list.requests[i] = {.client = held.client,
                                        .group = held.groups[0],
                                        .size = SIZE,
                                        .flag = 0,
                                        .padding = {},
                                        .tlv = tlv,
                                        .tlv_size = tlv_size};
    }
    return kel_get_packet_list(&held.packet_list) ? "invalid argument" : nullptr;
}

// Asks a group of FEW_ELEMENTS for `count` buffers.
const char *get_buffers_by_list(held_elements &held, uint16_t count)
{
    if (uint32_t error = register_reserved(held, SIZE, FEW_ELEMENTS)) return error_text(error);
    if (kel_get_buffer_list(held.client, held.groups[0], SIZE, 0, count, &held.buffer_list)) {
        return "invalid argument";
    }
    return nullptr;
}

// Where a buffer's data is.
struct data_place {
    void *data;
    uint32_t length;
};

// Gets a buffer of `size` bytes from the group into `buffer`.
uint32_t get_element(const held_elements &held, uint32_t size, kel_buffer *buffer)
{
    uint32_t error = ERROR_NOT_STORED;

    *buffer = kel_get_buffer(held.client, held.groups[0], size, 1, &error);
    return error;
}

bool are_apart(const void *a, const void *b, uint32_t size)
{
    const uintptr_t first = reinterpret_cast<uintptr_t>(a);
    const uintptr_t second = reinterpret_cast<uintptr_t>(b);

    return (first < second ? second - first : first - second) >= size;
}

const char *check_element_size(held_elements &held, uint32_t size, uint32_t head_room)
{
    data_place first = {};
    data_place second = {};

    if (uint32_t error = kel_register_reserved_bufgroup(held.client, &held.groups[0], RESERVED_NAME,
                                                        size, FEW_ELEMENTS, head_room, 0)) {
        return error_text(error);
    }
    if (uint32_t error = get_element(held, size, &held.buffers[0])) return error_text(error);
    if (uint32_t error = get_element(held, size, &held.buffers[1])) return error_text(error);
    if (uint32_t error = kel_buf_get_dptr(held.buffers[0], 0, &first.data, &first.length)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_get_dptr(held.buffers[1], 0, &second.data, &second.length)) {
        return error_text(error);
    }
    if (!first.data || !second.data || !are_apart(first.data, second.data, size) ||
        second.length != size) {
        return "incorrect element size";
    }
    return nullptr;
}

} // namespace

// The last call that was not refused decides the message.
CASE(kel_bufgroup_reserved, register_invalid, with_elements)
{
    const char *message = nullptr;

    if (kel_register_reserved_bufgroup(0, nullptr, RESERVED_NAME, SIZE, ELEMENTS, 0, 0) != EINVAL) {
        message = "invalid client register succeed";
    }
    if (kel_register_reserved_bufgroup(held.client, &held.groups[0], RESERVED_NAME, SIZE, 0, 0,
                                       0) != EINVAL) {
        message = "count = 0 register succeed";
    }
    if (kel_register_reserved_bufgroup(held.client, &held.groups[1], RESERVED_NAME, 0, ELEMENTS, 0,
                                       0) != EINVAL) {
        message = "count = 0 register succeed"; // sic
    }
    if (kel_register_reserved_bufgroup(held.client, &held.groups[2], "", SIZE, ELEMENTS, 0, 0) !=
        EINVAL) {
        message = "null name register succeed";
    }
    return message;
}

CASE(kel_bufgroup_reserved, register_nomem, with_elements)
{
    if (register_reserved(held, 9999, 99999) != ENOMEM) {
        return "reserved large amount of mem succeed";
    }
    return nullptr;
}

CASE(kel_bufgroup_reserved, register_normal, with_elements)
{
    if (uint32_t error = register_reserved(held, SIZE, ELEMENTS)) return error_text(error);
    return nullptr;
}

CASE(kel_bufgroup_reserved, get_toobig_contig, with_elements)
{
    uint32_t error = ERROR_NOT_STORED;

    if (uint32_t failed = register_reserved(held, SIZE, ELEMENTS)) return error_text(failed);
    held.packets[0] = kel_get_packet(held.client, held.groups[0], 2 * SIZE, 1, &error);
    if (held.packets[0] && error != ENOMEM) return "allocate size > buffer size succeed";
    return nullptr;
}

CASE(kel_bufgroup_reserved, get_packets, with_elements,
     exhaust_group(held, kel_get_packet, held.packets, "packet allocation failed"))
CASE(kel_bufgroup_reserved, get_invalid_packet_list, with_elements,
     get_packets_by_list(held, TOO_MANY, 0, 0))
CASE(kel_bufgroup_reserved, get_invalid_tlv_packet_list, with_elements,
     get_packets_by_list(held, FEW_ELEMENTS, 1, 1024))

CASE(kel_bufgroup_reserved, get_packet_list, with_elements)
{
    if (const char *message = get_packets_by_list(held, FEW_ELEMENTS, 0, 0)) return message;
    if (held.packet_list.allocated != FEW_ELEMENTS) {
        return "Failed to allocate all packets in the list";
    }
    return nullptr;
}

CASE(kel_bufgroup_reserved, get_invalid_buffer_list, with_elements,
     get_buffers_by_list(held, TOO_MANY))

CASE(kel_bufgroup_reserved, get_buffer_list, with_elements)
{
    if (const char *message = get_buffers_by_list(held, FEW_ELEMENTS)) return message;
    if (held.buffer_list.allocated != FEW_ELEMENTS) {
        return "Failed to allocate all buffers in the list";
    }
    return nullptr;
}

CASE(kel_bufgroup_reserved, get_buffers, with_elements,
     exhaust_group(held, kel_get_buffer, held.buffers, "buffer allocation failed"))

CASE(kel_bufgroup_reserved, get_noncont, with_elements)
{
    if (uint32_t error = register_reserved(held, SIZE, ELEMENTS)) return error_text(error);
    for (uint32_t i = 0; i < ELEMENTS / 2; i++) {
        uint32_t error = ERROR_NOT_STORED;
        held.packets[i] = kel_get_packet(held.client, held.groups[0], 2 * SIZE, 0, &error);
        if (!held.packets[i]) return "packet allocation failed";
        if (kel_get_length(held.packets[i]) != 2 * SIZE) return "packet length mismatch";
    }
    return nullptr;
}

CASE(kel_bufgroup_reserved, threshold_test, with_groups,
     threshold_steps(held, register_shared_group))

CASE(kel_bufgroup_reserved, reg_multiple, with_elements)
{
    if (uint32_t error = register_reserved(held, SIZE, ELEMENTS)) return error_text(error);
    if (uint32_t error = kel_register_reserved_bufgroup(
            held.client, &held.groups[1], "test reserved group2", SIZE, ELEMENTS, 0, 0)) {
        return error_text(error);
    }
    if (uint32_t error = kel_register_bufgroup(held.client, &held.groups[2], "test group3")) {
        return error_text(error);
    }
    return nullptr;
}

CASE(kel_bufgroup_reserved, no_poison, with_elements)
{
    uint8_t pattern[SIZE];
    data_place place = {};
    uint32_t error = ERROR_NOT_STORED;

    error = kel_register_reserved_bufgroup(held.client, &held.groups[0], RESERVED_NAME, SIZE,
                                           ELEMENTS, 0, 1);
    if (error) return error_text(error);
    error = ERROR_NOT_STORED;
    held.packets[0] = kel_get_packet(held.client, held.groups[0], SIZE, 1, &error);
    if (error) return error_text(error);
    set_data(pattern, SIZE, PATTERN_A);
    error = kel_set_data(held.packets[0], OFFSET_DATA, 0, pattern, SIZE);
    if (error) return error_text(error);
    memset(pattern, 0, SIZE);
    error = kel_buf_get_dptr(kel_get_buf_head(held.packets[0]), 0, &place.data, &place.length);
    if (error) return error_text(error);
    error = kel_free_packet(held.packets[0]);
    if (error) return error_text(error);
    held.packets[0] = 0;
    if (!place.data || verify_data(place.data, SIZE, PATTERN_A)) {
        return "packet data is poisoned after free'd";
    }
    return nullptr;
}

CASE(kel_bufgroup_reserved, elemsize_check, with_elements, check_element_size(held, 1700, 32))
CASE(kel_bufgroup_reserved, elemsize_check2, with_elements, check_element_size(held, 508, 0))

CASE(kel_bufgroup_reserved, not_regular, with_elements)
{
    if (uint32_t error = register_reserved(held, SIZE, ELEMENTS)) return error_text(error);
    if (kel_register_bufgroup(held.client, &held.groups[1], RESERVED_NAME) != EINVAL) {
        return "Regular bufgrp with same name as Reserved bufgrp";
    }
    return nullptr;
}

CASE(kel_bufgroup_reserved, not_reserved, with_elements)
{
    if (uint32_t error = kel_register_bufgroup(held.client, &held.groups[1], RESERVED_NAME)) {
        return error_text(error);
    }
    if (register_reserved(held, SIZE, ELEMENTS) != EINVAL) {
        return "Reserved bufgrp with same name as Regular bufgrp";
    }
    return nullptr;
}

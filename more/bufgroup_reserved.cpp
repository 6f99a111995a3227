// SPDX-License-Identifier: MIT
//
// Reserved buffer groups: elements that are taken as packets have memory of their own, and without
// poison a freed buffer's memory is left as it was; lists are written whole, whatever they held
// before.
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "kelapi/bufgroup_reserved.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_bufgroup_reserved, packets_apart)

namespace {

constexpr uint32_t ELEMENT_SIZE = 256;
constexpr uint32_t ELEMENTS = 4;

struct element_objects {
    kel_packet packets[ELEMENTS];
    kel_buffer buffer;
    kel_buffer_list buffer_list;
    kel_packet_list packet_list;
    kel_bufgroup group;
    kel_client client;
};

const char *register_group(element_objects &held)
{
    constexpr uint32_t NO_HEAD_ROOM = 0;
    constexpr uint32_t NO_POISON = 1;

    if (const char *failure = register_default_client(held)) return failure;
    return must_work(kel_register_reserved_bufgroup(held.client, &held.group, "more elements",
                                                    ELEMENT_SIZE, ELEMENTS, NO_HEAD_ROOM,
                                                    NO_POISON));
}

void release(element_objects &held)
{
    for (const kel_packet packet : held.packets) {
        if (packet) free_packet(packet);
    }
    if (held.buffer) free_buffer(held.buffer);
    for (uint32_t i = 0; i < ELEMENTS; i++) {
        if (held.buffer_list.buffers[i]) free_buffer(held.buffer_list.buffers[i]);
        if (held.packet_list.results[i].packet) free_packet(held.packet_list.results[i].packet);
    }
    if (held.group) kel_deregister_bufgroup(held.client, held.group);
    cleanup_client(held.client);
}

constexpr case_frame<element_objects> with_elements = {register_group, release};

// Data written to a buffer must be found at its address after `release_buffer` has freed it.
const char *data_is_kept(element_objects &held, uint32_t (*release_buffer)(kel_buffer buffer))
{
    uint8_t pattern[ELEMENT_SIZE];
    uint32_t error = ERROR_NOT_STORED;
    void *data = nullptr;
    uint32_t length = 0;

    held.buffer = kel_get_buffer(held.client, held.group, ELEMENT_SIZE, 1, &error);
    if (!held.buffer || error) return "kel_get_buffer failed";
    set_data(pattern, ELEMENT_SIZE, PATTERN_A);
    if (kel_buf_set_data(held.buffer, 0, pattern, ELEMENT_SIZE)) return "kel_buf_set_data failed";
    memset(pattern, 0, sizeof(pattern));
    if (kel_buf_get_dptr(held.buffer, 0, &data, &length)) return "kel_buf_get_dptr failed";
    if (!data || length != ELEMENT_SIZE) return "wrong data length";
    if (release_buffer(held.buffer)) return "the buffer was not freed";
    held.buffer = 0;
    return verify_data(data, ELEMENT_SIZE, PATTERN_A) ? "the data of a freed buffer has changed"
                                                      : nullptr;
}

} // namespace

CASE(kel_more_bufgroup_reserved, packets_apart, with_elements)
{
    uint8_t area[ELEMENT_SIZE];

    for (uint32_t i = 0; i < ELEMENTS; i++) {
        uint32_t error = ERROR_NOT_STORED;

        held.packets[i] = kel_get_packet(held.client, held.group, ELEMENT_SIZE, 1, &error);
        if (!held.packets[i] || error) return "kel_get_packet failed";
        set_data(area, ELEMENT_SIZE, i + 1);
        if (kel_set_data(held.packets[i], OFFSET_DATA, 0, area, ELEMENT_SIZE)) {
            return "kel_set_data failed";
        }
    }
    for (uint32_t i = 0; i < ELEMENTS; i++) {
        uint32_t length = ELEMENT_SIZE;

        memset(area, 0, sizeof(area));
        if (kel_get_data(held.packets[i], OFFSET_DATA, 0, area, &length)) {
            return "kel_get_data failed";
        }
        if (length != ELEMENT_SIZE) return "wrong data length";
        if (verify_data(area, ELEMENT_SIZE, i + 1)) return "one packet's data is in another";
    }
    return nullptr;
}

CASE(kel_more_bufgroup_reserved, buffer_kept, with_elements, data_is_kept(held, kel_free_buffer))
CASE(kel_more_bufgroup_reserved, chain_kept, with_elements, data_is_kept(held, kel_free_bufchain))

CASE(kel_more_bufgroup_reserved, buffer_list, with_elements)
{
    kel_buffer_list list;

    memset(&list, 0xff, sizeof(list));
    if (kel_get_buffer_list(held.client, held.group, ELEMENT_SIZE, 1, ELEMENTS, &list)) {
        return "kel_get_buffer_list failed";
    }
    held.buffer_list = list;
    if (list.allocated != ELEMENTS) return "wrong number of buffers";
    for (uint32_t i = ELEMENTS; i < KEL_LIST_MAX; i++) {
        if (list.buffers[i]) return "a buffer where none was given";
    }
    return nullptr;
}

// The last request cannot be met.
CASE(kel_more_bufgroup_reserved, packet_list, with_elements)
{
    constexpr uint16_t REQUESTS = ELEMENTS;
    kel_packet_list list;

    memset(&list, 0xff, sizeof(list));
    list.count = REQUESTS;
    for (uint32_t i = 0; i < REQUESTS; i++) {
        list.requests[i] = {.client = i + 1 < REQUESTS ? held.client : 0,
                            .group = held.group,
                            .size = ELEMENT_SIZE,
                            .flag = 0,
                            .padding = {},
                            .tlv = 0,
                            .tlv_size = 0};
    }
    if (kel_get_packet_list(&list)) return "kel_get_packet_list failed";
    held.packet_list = list;
    if (list.allocated != REQUESTS - 1) return "wrong number of packets";
    return list.results[REQUESTS - 1].packet ? "a packet where none was given" : nullptr;
}

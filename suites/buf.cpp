// SPDX-License-Identifier: MIT
//
// Buffers, first half: the buffer memory, tags and packet headers, obtaining buffers, physical
// addresses, joining, data pointers, lengths and head room. Two cases free what they obtained in a
// way of their own.
#include <errno.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "kelapi/bufgroup_reserved.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "suites/buf_case.h"

TEST_FILE(kel_buf, get_tag_null_buf)

namespace {

constexpr uint32_t MAX_CHAIN_BUFFERS = 12;
constexpr uint16_t LIST_COUNT = 10;

// Frees the header by kel_free_pkthdr, even where there is none.
void release_pkthdr(held_objects &held)
{
    if (held.client) kel_free_pkthdr(held.packet);
    cleanup_client(held.client);
}

void release_single_buffer(held_objects &held)
{
    if (held.buffer) kel_free_buffer(held.buffer);
    cleanup_client(held.client);
}

constexpr case_frame<held_objects> with_pkthdr = {register_default_client, release_pkthdr};
constexpr case_frame<held_objects> with_single_buffer = {register_default_client,
                                                         release_single_buffer};

const char *judge_free_pkthdr(uint32_t result)
{
    return judge_refusal(result, EINVAL, "kel_free_pkthdr was successful",
                         "kel_free_pkthdr wrong error");
}

// Any error passes. A handle that is returned nevertheless is not freed.
const char *judge_unknown_client(kel_client client)
{
    uint32_t error = ERROR_NOT_STORED;

    if (kel_get_buffer(client, 0, STANDARD_SIZE, 1, &error) == 0) return nullptr;
    if (error == EINVAL) return "kel_get_buffer was successful"; // sic
    return "kel_get_buffer wrong error";
}

const char *judge_unknown_client_null_error(held_objects &held, kel_client client)
{
    held.buffer = kel_get_buffer(client, 0, STANDARD_SIZE, 1, nullptr);
    return held.buffer ? "kel_get_buffer was successful" : nullptr;
}

const char *judge_too_big(held_objects &held, uint32_t size, uint8_t contiguous)
{
    uint32_t error = EINVAL;

    held.buffer = kel_get_buffer(held.client, 0, size, contiguous, &error);
    if (held.buffer) return "kel_get_buffer was successful";
    return error == ENOMEM ? nullptr : "kel_get_buffer wrong error code";
}

const char *judge_append(uint32_t result)
{
    return judge_refusal(result, EINVAL, "kel_buf_append was successful",
                         "kel_buf_append wrong error");
}

const char *judge_dptr_failure(uint32_t result)
{
    return result ? nullptr : "buf_get_dptr was successful";
}

const char *judge_bad_offset(held_objects &held, int32_t offset)
{
    void *data = nullptr;
    uint32_t length = 0;

    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_refusal(kel_buf_get_dptr(held.buffer, offset, &data, &length), EINVAL,
                         "buf_get_ptr was successful", "buf_get_ptr wrong error");
}

// The data from `offset` on must be 1436 bytes long and begin at that distance from the start.
const char *check_dptr_offset(const held_objects &held, int32_t offset)
{
    void *start = nullptr;
    void *data = nullptr;
    uint32_t length = 0;

    if (uint32_t error = kel_buf_get_dptr(held.buffer, 0, &start, &length)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_get_dptr(held.buffer, offset, &data, &length)) {
        return error_text(error);
    }
    if (length != 1436) return "buf_get_ptr wrong length";
    const intptr_t distance = reinterpret_cast<intptr_t>(data) - reinterpret_cast<intptr_t>(start);
    return distance == offset ? nullptr : "buf_get_ptr wrong pointer";
}

const char *judge_get_length(uint32_t result)
{
    return judge_refusal(result, EINVAL, "buf_get_length was successful",
                         "buf_get_length wrong error");
}

const char *judge_reserve(uint32_t result, uint32_t expected)
{
    return judge_refusal(result, expected, "buf_reserve_space was successful",
                         "buf_reserve_space wrong error");
}

const char *judge_reserve_too_much(held_objects &held, uint32_t size)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_reserve(kel_buf_reserve_space(held.buffer, size), ENOSPC);
}

// Gets a buffer and reserves `size` bytes of it as head room.
uint32_t get_reserved_buffer(held_objects &held, uint32_t size)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) return error;
    return kel_buf_reserve_space(held.buffer, size);
}

const char *judge_set_length(uint32_t result, uint32_t expected)
{
    return judge_refusal(result, expected, "buf_set_length was successful",
                         "buf_set_length wrong error");
}

// A fresh buffer must take the length.
const char *check_set_length(held_objects &held, uint32_t length)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_set_length(held.buffer, length)) return error_text(error);
    return nullptr;
}

} // namespace

CASE(kel_buf, get_tag_null_buf, with_client)
{
    CHECK_LOCATED(kel_get_tag(0) == 0, "get tag failed");
    return api_msg;
}

CASE(kel_buf, get_bufmem_start, with_nothing)
{
    uint64_t start = 0;
    uint32_t length = 0;

    CHECK_LOCATED(kel_get_bufmem_start(nullptr, nullptr) == EINVAL, "invalid arg test");
    CHECK_LOCATED(kel_get_bufmem_start(&start, &length) == 0, "get_bufmem_start failed");
    CHECK_LOCATED(length != 0, "length == 0");
    CHECK_LOCATED(start != 0, "bufmem_start == 0");
    return api_msg;
}

CASE(kel_buf, get_bufmem_info, with_nothing)
{
    uint64_t paddr = 0;
    uint64_t vaddr = 0;
    uint64_t kvaddr = 0;
    uint32_t length = 0;

    CHECK_LOCATED(kel_get_bufmem_info(&paddr, &vaddr, &kvaddr, &length) == 0,
                  "get_bufmem_info failed");
    CHECK_LOCATED(length != 0, "length == 0");
    CHECK_LOCATED(paddr != 0, "bpa_paddr == 0");
    CHECK_LOCATED(vaddr != 0, "bpa_vaddr == 0");
    CHECK_LOCATED(kvaddr != 0, "bpa_kvaddr == 0");
    return api_msg;
}

CASE(kel_buf, set_get_tag, with_pkthdr)
{
    held.packet = kel_get_pkthdr(held.client);
    CHECK_LOCATED(held.packet != 0, "kel_get_pkthdr failed");
    CHECK_LOCATED(kel_set_tag(held.packet, 7) == 0, "set_tag failed");
    CHECK_LOCATED(kel_get_tag(held.packet) == 7, "kel_pkt_get_tag failed");
    return api_msg;
}

CASE(kel_buf, get_pkthdr_null_client, with_nothing)
{
    held.packet = kel_get_pkthdr(0);
    return held.packet ? "kel_get_pkthdr was successful" : nullptr;
}

CASE(kel_buf, get_pkthdr_bad_client, with_nothing)
{
    held.packet = kel_get_pkthdr(BAD_CLIENT);
    return held.packet ? "kel_get_pkthdr was successful" : nullptr;
}

CASE(kel_buf, free_pkthdr_null_pkt, with_nothing, judge_free_pkthdr(kel_free_pkthdr(0)))
CASE(kel_buf, free_pkthdr_bad_pkt, with_nothing, judge_free_pkthdr(kel_free_pkthdr(KEL_BAD_HANDLE)))
CASE(kel_buf, get_buf_null_client, with_nothing, judge_unknown_client(0))
CASE(kel_buf, get_buf_null_client_error, with_nothing, judge_unknown_client_null_error(held, 0))
CASE(kel_buf, get_buf_bad_client, with_nothing, judge_unknown_client(BAD_CLIENT))
CASE(kel_buf, get_buf_bad_client_null_error, with_nothing,
     judge_unknown_client_null_error(held, BAD_CLIENT))

CASE(kel_buf, get_buf_list_null_list, with_client)
{
    if (kel_get_buffer_list(held.client, 0, STANDARD_SIZE, 1, LIST_COUNT, nullptr) != EINVAL) {
        return "kel_get_buffer_list was successful";
    }
    return nullptr;
}

CASE(kel_buf, get_buf_list_null_client, with_nothing)
{
    kel_buffer_list list = {};

    const uint32_t result = kel_get_buffer_list(0, 0, STANDARD_SIZE, 1, LIST_COUNT, &list);
    for (uint32_t i = 0; i < LIST_COUNT; i++) {
        if (list.buffers[i]) free_buffer(list.buffers[i]);
    }
    return result == EINVAL ? nullptr : "kel_get_buffer_list was successful";
}

CASE(kel_buf, get_cont_buf_toobig, with_client, judge_too_big(held, CHAIN_SIZE, 1))
CASE(kel_buf, get_buf_too_big_not_cont, with_client, judge_too_big(held, 99999999, 0))

CASE(kel_buf, get_buf_not_contiguous, with_client)
{
    uint32_t error = ERROR_NOT_STORED;

    held.buffer = kel_get_buffer(held.client, 0, CHAIN_SIZE, 0, &error);
    return held.buffer ? nullptr : "kel_get_buffer failed";
}

CASE(kel_buf, get_buf_paddr, with_single_buffer)
{
    uint32_t error = ERROR_NOT_STORED;
    uint64_t paddr = 0;
    uint32_t length = 0;

    held.buffer = kel_get_buffer(held.client, 0, JUMBO_SIZE, 1, &error);
    CHECK_LOCATED(held.buffer != 0, "kel_get_buffer failed");
    CHECK_LOCATED(kel_buf_get_paddr(0, nullptr, &length) == EINVAL, "kel_buf_get_paddr succeed");
    CHECK_LOCATED(kel_buf_get_paddr(held.buffer, &paddr, &length) == 0, "kel_buf_get_paddr failed");
    CHECK_LOCATED(length == JUMBO_SIZE, "buf_len mismatch");
    CHECK_LOCATED(paddr != 0, "buf_paddr == NULL");
    return api_msg;
}

CASE(kel_buf, get_buf_iov_not_cont, with_client)
{
    kel_iovec entries[MAX_CHAIN_BUFFERS] = {};
    uint32_t error = ERROR_NOT_STORED;
    uint32_t filled = MAX_CHAIN_BUFFERS;
    uint32_t sum = 0;

    held.buffer = kel_get_buffer(held.client, 0, CHAIN_SIZE, 0, &error);
    CHECK_LOCATED(held.buffer != 0, "kel_get_buffer failed");
    CHECK_LOCATED(kel_buf_get_paddr_iov(0, nullptr, nullptr) == EINVAL, "get_paddr_iov succeed");
    const uint32_t count = kel_buf_get_buf_count(held.buffer);
    CHECK_LOCATED(kel_buf_get_paddr_iov(held.buffer, entries, &filled) == 0,
                  "get_paddr_iov failed");
    // More entries than the array has cannot be read, even when both numbers agree.
    CHECK_LOCATED(filled == count && filled <= MAX_CHAIN_BUFFERS, "iov_count != buf_count");
    for (uint32_t i = 0; i < filled; i++) {
        sum += entries[i].iov_len;
        CHECK_LOCATED(entries[i].iov_base != 0, "iov_base == NULL");
    }
    CHECK_LOCATED(sum == CHAIN_SIZE, "iov length mismatch");
    return api_msg;
}

CASE(kel_buf, get_buf_jumbo, with_client)
{
    uint32_t error = ERROR_NOT_STORED;

    held.buffer = kel_get_buffer(held.client, 0, JUMBO_SIZE, 0, &error);
    return held.buffer ? nullptr : "kel_get_buffer jumbo packet failed";
}

CASE(kel_buf, append_null_buf, with_client)
{
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_append(kel_buf_append(0, held.buffer));
}

CASE(kel_buf, append_invalid_buf, with_client)
{
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_append(kel_buf_append(BAD_BUFFER, held.buffer));
}

CASE(kel_buf, append_null_newbuf, with_client)
{
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_append(kel_buf_append(held.buffer, 0));
}

CASE(kel_buf, append_invalid_newbuf, with_client)
{
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_append(kel_buf_append(held.buffer, BAD_BUFFER));
}

CASE(kel_buf, append, with_client)
{
    uint8_t area[STANDARD_SIZE];
    uint32_t length = 2 * SMALL_SIZE;

    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.second_buffer)) {
        return error_text(error);
    }
    if (uint32_t error = fill_buffer(held.buffer, SMALL_SIZE, PATTERN_A)) {
        return error_text(error);
    }
    if (uint32_t error = fill_buffer(held.second_buffer, SMALL_SIZE, PATTERN_B)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_append(held.buffer, held.second_buffer)) {
        return error_text(error);
    }
    held.second_buffer = 0;
    memset(area, 0, sizeof(area));
    if (uint32_t error = kel_buf_get_data(held.buffer, 0, area, &length)) {
        return error_text(error);
    }
    if (verify_data(area, SMALL_SIZE, PATTERN_A)) return "kel_buf_append verify first failed";
    if (verify_data(area + SMALL_SIZE, SMALL_SIZE, PATTERN_B)) {
        return "kel_buf_append verify second failed";
    }
    return nullptr;
}

CASE(kel_buf, append_self, with_client)
{
    if (uint32_t error = get_filled_buffer(held.client, SMALL_SIZE, PATTERN_A, &held.buffer)) {
        return error_text(error);
    }
    return judge_append(kel_buf_append(held.buffer, held.buffer));
}

CASE(kel_buf, dptr_null_buf, with_client)
{
    void *data = nullptr;
    uint32_t length = 0;

    return judge_dptr_failure(kel_buf_get_dptr(0, 0, &data, &length));
}

CASE(kel_buf, dptr_invalid_buf, with_client)
{
    void *data = nullptr;
    uint32_t length = 0;

    return judge_dptr_failure(kel_buf_get_dptr(BAD_BUFFER, 0, &data, &length));
}

CASE(kel_buf, dptr_null_dptr, with_client)
{
    uint32_t length = 0;

    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_dptr_failure(kel_buf_get_dptr(held.buffer, 0, nullptr, &length));
}

CASE(kel_buf, dptr_null_dlen, with_client)
{
    void *data = nullptr;

    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_dptr_failure(kel_buf_get_dptr(held.buffer, 0, &data, nullptr));
}

CASE(kel_buf, get_dptr, with_client)
{
    void *data = nullptr;
    uint32_t length = 0;

    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_A, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_get_dptr(held.buffer, 0, &data, &length)) {
        return error_text(error);
    }
    if (length != STANDARD_SIZE) return "buf_get_ptr wrong length";
    if (!data || verify_data(data, STANDARD_SIZE, PATTERN_A)) {
        return "buf_get_ptr verify data failed";
    }
    return nullptr;
}

CASE(kel_buf, get_dptr_bigoff, with_client, judge_bad_offset(held, 1501))
CASE(kel_buf, get_dptr_big_negoff, with_client, judge_bad_offset(held, -64))

CASE(kel_buf, get_dptr_offset, with_client)
{
    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_A, &held.buffer)) {
        return error_text(error);
    }
    return check_dptr_offset(held, 64);
}

CASE(kel_buf, get_dptr_neg_offset, with_client)
{
    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_A, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_reserve_space(held.buffer, 128)) return error_text(error);
    return check_dptr_offset(held, -64);
}

CASE(kel_buf, get_length_null_buf, with_client)
{
    uint32_t length = 0;

    return judge_get_length(kel_buf_get_length(0, &length));
}

CASE(kel_buf, get_length_invalid_buf, with_client)
{
    uint32_t length = 0;

    return judge_get_length(kel_buf_get_length(BAD_BUFFER, &length));
}

CASE(kel_buf, get_length_null_len, with_client)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_get_length(kel_buf_get_length(held.buffer, nullptr));
}

CASE(kel_buf, get_length, with_client)
{
    uint32_t length = STANDARD_SIZE - 1;

    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_get_length(held.buffer, &length)) return error_text(error);
    return length == STANDARD_SIZE ? nullptr : "buf_get_length wrong length";
}

CASE(kel_buf, reserve_null_buf, with_client, judge_reserve(kel_buf_reserve_space(0, 512), EINVAL))
CASE(kel_buf, reserve_invalid_buf, with_client,
     judge_reserve(kel_buf_reserve_space(BAD_BUFFER, 512), EINVAL))
CASE(kel_buf, reserve_toobig, with_client, judge_reserve_too_much(held, 1501))
CASE(kel_buf, reserve_nospaceleft, with_client, judge_reserve_too_much(held, 1500))

CASE(kel_buf, reserve_multi_times, with_client)
{
    if (uint32_t error = get_reserved_buffer(held, 1)) return error_text(error);
    return judge_reserve(kel_buf_reserve_space(held.buffer, 1), EINVAL);
}

CASE(kel_buf, reserve, with_client)
{
    if (uint32_t error = get_reserved_buffer(held, 1499)) return error_text(error);
    return nullptr;
}

CASE(kel_buf, set_length_null_buf, with_client,
     judge_set_length(kel_buf_set_length(0, 1500), EINVAL))
CASE(kel_buf, set_length_invalid_buf, with_client,
     judge_set_length(kel_buf_set_length(BAD_BUFFER, 1500), EINVAL))

CASE(kel_buf, set_length_toobig, with_client)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_set_length(kel_buf_set_length(held.buffer, 1501), ENOSPC);
}

CASE(kel_buf, set_length_zero, with_client, check_set_length(held, 0))
CASE(kel_buf, set_length, with_client, check_set_length(held, 1499))

CASE(kel_buf, set_length_off_toobig, with_client)
{
    if (uint32_t error = get_reserved_buffer(held, 512)) return error_text(error);
    return judge_set_length(kel_buf_set_length(held.buffer, 989), ENOSPC);
}

CASE(kel_buf, set_length_off, with_client)
{
    if (uint32_t error = get_reserved_buffer(held, 512)) return error_text(error);
    if (uint32_t error = kel_buf_set_length(held.buffer, 988)) return error_text(error);
    return nullptr;
}

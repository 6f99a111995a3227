// SPDX-License-Identifier: MIT
//
// Packets as chains of buffers: obtaining and freeing, append and prepend, coalesce, head
// room, growing and trimming at both ends; then the two cases of kel_pkt.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "suites/packet_case.h"

TEST_FILE(kel_packet, get_null_client)

namespace {

// More than any memory holds.
constexpr uint32_t TOO_BIG = 1000000000;

struct refusal_texts {
    const char *was_successful;
    const char *wrong_error;
};

const char *judge(uint32_t result, uint32_t expected, const refusal_texts &texts)
{
    return judge_refusal(result, expected, texts.was_successful, texts.wrong_error);
}

const char *get_bare_header(held_objects &held, const char *failed)
{
    held.packet = kel_get_pkthdr(held.client);
    return held.packet ? nullptr : failed;
}

struct offset_texts {
    const char *network;
    const char *transport;
    const char *app;
};

const char *check_offset(kel_packet packet, uint32_t kind, uint32_t expected, const char *wrong)
{
    uint32_t offset = ~expected;

    if (uint32_t error = kel_get_offset(packet, kind, &offset)) return error_text(error);
    return offset == expected ? nullptr : wrong;
}

const char *check_offsets(kel_packet packet, uint32_t network, uint32_t transport, uint32_t app,
                          const offset_texts &wrong)
{
    if (const char *failure = check_offset(packet, OFFSET_NETWORK, network, wrong.network)) {
        return failure;
    }
    if (const char *failure = check_offset(packet, OFFSET_TRANSPORT, transport, wrong.transport)) {
        return failure;
    }
    return check_offset(packet, OFFSET_APP, app, wrong.app);
}

// Writes at most STANDARD_SIZE bytes. Their copy is wiped after the call: a library that keeps the
// address instead of copying is caught, although the source stays for a comparison.
uint32_t write_packet(kel_packet packet, uint32_t offset, const uint8_t *source, uint32_t length)
{
    static uint8_t passed[STANDARD_SIZE];

    memcpy(passed, source, length);
    const uint32_t error = kel_set_data(packet, OFFSET_DATA, offset, passed, length);
    memset(passed, 0, length);
    return error;
}

uint32_t write_buffer(kel_buffer buffer, const uint8_t *source, uint32_t length)
{
    static uint8_t passed[STANDARD_SIZE];

    memcpy(passed, source, length);
    const uint32_t error = kel_buf_set_data(buffer, 0, passed, length);
    memset(passed, 0, length);
    return error;
}

// The check of the data shows whether all bytes were read.
uint32_t read_packet(kel_packet packet, uint8_t *destination, uint32_t length)
{
    return kel_get_data(packet, OFFSET_DATA, 0, destination, &length);
}

const char *read_counted(kel_packet packet, uint8_t *destination, uint32_t expected,
                         const char *wrong_length)
{
    uint32_t length = expected;

    if (uint32_t error = kel_get_data(packet, OFFSET_DATA, 0, destination, &length)) {
        return error_text(error);
    }
    return length == expected ? nullptr : wrong_length;
}

} // namespace

// Obtaining and freeing.

namespace {

constexpr refusal_texts FREE_TEXTS = {"kel_free_packet was successful",
                                      "kel_free_packet wrong error"};

const char *get_from_bad_client(held_objects &held, kel_client client)
{
    uint32_t error = 0;

    held.packet = kel_get_packet(client, 0, STANDARD_SIZE, 1, &error);
    return held.packet ? "kel_get_packet was successful" : nullptr;
}

} // namespace

CASE(kel_packet, get_null_client, with_nothing, get_from_bad_client(held, 0))
CASE(kel_packet, get_bad_client, with_nothing, get_from_bad_client(held, BAD_CLIENT))
CASE(kel_packet, free_null_pkt, with_nothing, judge(kel_free_packet(0), EINVAL, FREE_TEXTS))
CASE(kel_packet, free_bad_pkt, with_nothing,
     judge(kel_free_packet(KEL_BAD_HANDLE), EINVAL, FREE_TEXTS))

// Append and prepend.

namespace {

constexpr refusal_texts APPEND_TEXTS = {"kel_append was successful", "kel_append wrong error"};
constexpr refusal_texts PREPEND_TEXTS = {"kel_prepend was successful", "kel_prepend wrong error"};

using join_operation = uint32_t (*)(kel_packet packet, kel_buffer buffer);

const char *join_bad_packet(held_objects &held, join_operation join, kel_packet packet,
                            const refusal_texts &texts)
{
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge(join(packet, held.buffer), EINVAL, texts);
}

const char *join_bad_buffer(held_objects &held, join_operation join, kel_buffer buffer,
                            const refusal_texts &texts)
{
    if (uint32_t error = get_packet(held.client, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    return judge(join(held.packet, buffer), EINVAL, texts);
}

const char *hand_over_buffer(held_objects &held, join_operation join)
{
    if (uint32_t error = join(held.packet, held.buffer)) return error_text(error);
    held.buffer = 0;
    return nullptr;
}

// A packet that holds pattern A and a buffer that holds pattern B, written from one area.
const char *get_packet_and_buffer(held_objects &held)
{
    uint8_t source[SMALL_SIZE];

    if (uint32_t error = get_packet(held.client, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    set_data(source, SMALL_SIZE, PATTERN_A);
    if (uint32_t error = kel_set_data(held.packet, OFFSET_DATA, 0, source, SMALL_SIZE)) {
        return error_text(error);
    }
    set_data(source, SMALL_SIZE, PATTERN_B);
    return must_work(kel_buf_set_data(held.buffer, 0, source, SMALL_SIZE));
}

struct joined_texts {
    const char *length;
    const char *first;
    const char *second;
};

const char *verify_joined(kel_packet packet, uint32_t first, uint32_t second,
                          const joined_texts &texts)
{
    uint8_t area[STANDARD_SIZE] = {};

    if (kel_get_length(packet) != 2 * SMALL_SIZE) return texts.length;
    if (uint32_t error = read_packet(packet, area, 2 * SMALL_SIZE)) return error_text(error);
    if (verify_data(area, SMALL_SIZE, first)) return texts.first;
    if (verify_data(area + SMALL_SIZE, SMALL_SIZE, second)) return texts.second;
    return nullptr;
}

struct header_texts {
    const char *no_header;
    const char *length;
    const char *verify;
};

const char *join_to_header(held_objects &held, join_operation join, uint32_t seed,
                           const header_texts &texts)
{
    uint8_t area[STANDARD_SIZE];

    if (const char *failure = get_bare_header(held, texts.no_header)) return failure;
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    set_data(area, SMALL_SIZE, seed);
    if (uint32_t error = write_buffer(held.buffer, area, SMALL_SIZE)) return error_text(error);
    if (const char *failure = hand_over_buffer(held, join)) return failure;
    if (kel_get_length(held.packet) != SMALL_SIZE) return texts.length;
    memset(area, 0, sizeof(area));
    if (uint32_t error = read_packet(held.packet, area, SMALL_SIZE)) return error_text(error);
    return verify_data(area, SMALL_SIZE, seed) ? texts.verify : nullptr;
}

} // namespace

CASE(kel_packet, append_null_pkt, with_client, join_bad_packet(held, kel_append, 0, APPEND_TEXTS))
CASE(kel_packet, append_invalid_pkt, with_client,
     join_bad_packet(held, kel_append, KEL_BAD_HANDLE, APPEND_TEXTS))
CASE(kel_packet, append_null_buf, with_client, join_bad_buffer(held, kel_append, 0, APPEND_TEXTS))
CASE(kel_packet, append_invalid_buf, with_client,
     join_bad_buffer(held, kel_append, BAD_BUFFER, APPEND_TEXTS))
CASE(kel_packet, prepend_null_pkt, with_client,
     join_bad_packet(held, kel_prepend, 0, PREPEND_TEXTS))
CASE(kel_packet, prepend_invalid_pkt, with_client,
     join_bad_packet(held, kel_prepend, KEL_BAD_HANDLE, PREPEND_TEXTS))
CASE(kel_packet, prepend_null_buf, with_client,
     join_bad_buffer(held, kel_prepend, 0, PREPEND_TEXTS))
CASE(kel_packet, prepend_invalid_buf, with_client,
     join_bad_buffer(held, kel_prepend, BAD_BUFFER, PREPEND_TEXTS))

CASE(kel_packet, append, with_client)
{
    if (const char *failure = get_packet_and_buffer(held)) return failure;
    if (const char *failure = hand_over_buffer(held, kel_append)) return failure;
    return verify_joined(held.packet, PATTERN_A, PATTERN_B,
                         {"kel_append wrong packet length", "kel_append verify first failed",
                          "kel_append verify second failed"});
}

CASE(kel_packet, pkthdr_append, with_client)
{
    return join_to_header(
        held, kel_append, PATTERN_A,
        {"could not kel_get_pkthdr", "kel_append wrong packet length", "kel_append verify failed"});
}

CASE(kel_packet, prepend, with_client)
{
    if (const char *failure = get_packet_and_buffer(held)) return failure;
    if (const char *failure = hand_over_buffer(held, kel_prepend)) return failure;
    return verify_joined(held.packet, PATTERN_B, PATTERN_A,
                         {"kel_prepend wrong packet length", "kel_prepend verify first failed",
                          "kel_prepend verify second failed"});
}

CASE(kel_packet, pkthdr_prepend, with_client)
{
    return join_to_header(held, kel_prepend, PATTERN_B,
                          {"can't kel_get_pkthdr", // sic
                           "kel_prepend wrong packet length", "kel_prepend verify failed"});
}

// Buffer count.

namespace {

const char *count_bad_packet(kel_packet packet)
{
    return kel_get_buf_count(packet) == 0xffffffff ? nullptr : "kel_get_buf_count wrong error";
}

} // namespace

CASE(kel_packet, bufcnt_null_pkt, with_client, count_bad_packet(0))
CASE(kel_packet, bufcnt_invalid_pkt, with_client, count_bad_packet(KEL_BAD_HANDLE))

CASE(kel_packet, bufcnt_pkthdr, with_client)
{
    if (const char *failure = get_bare_header(held, "kel_get_pkthdr failed")) return failure;
    return kel_get_buf_count(held.packet) == 0 ? nullptr : "kel_get_buf_count failed";
}

CASE(kel_packet, bufcnt_packet, with_client)
{
    if (uint32_t error = get_packet(held.client, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    return kel_get_buf_count(held.packet) == 1 ? nullptr : "kel_get_buf_count wrong count";
}

CASE(kel_packet, bufcnt_chain, with_client)
{
    if (uint32_t error = get_packet(held.client, SMALL_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = get_buffer(held.client, SMALL_SIZE, &held.second_buffer)) {
        return error_text(error);
    }
    if (const char *failure = hand_over_buffer(held, kel_append)) return failure;
    if (kel_get_buf_count(held.packet) != 2) return "kel_get_buf_count wrong count 2";
    if (uint32_t error = kel_append(held.packet, held.second_buffer)) return error_text(error);
    held.second_buffer = 0;
    return kel_get_buf_count(held.packet) == 3 ? nullptr : "kel_get_buf_count wrong count 3";
}

// Coalesce.

namespace {

constexpr refusal_texts COALESCE_TEXTS = {"kel_coalesce was successful",
                                          "kel_coalesce wrong error"};

} // namespace

CASE(kel_packet, coalesce_null_pkt, with_client, judge(kel_coalesce(0), EINVAL, COALESCE_TEXTS))
CASE(kel_packet, coalesce_invalid_pkt, with_client,
     judge(kel_coalesce(KEL_BAD_HANDLE), EINVAL, COALESCE_TEXTS))

CASE(kel_packet, coalesce_no_buf, with_client)
{
    if (const char *failure = get_bare_header(held, "kel_get_pkthdr failed")) return failure;
    return kel_coalesce(held.packet) ? "kel_coalesce failed" : nullptr;
}

CASE(kel_packet, coalesce_one_buf, with_client)
{
    if (uint32_t error = get_default_packet(held.client, &held.packet)) return error_text(error);
    return kel_coalesce(held.packet) ? "kel_coalesce failed" : nullptr;
}

CASE(kel_packet, coalesce, with_client)
{
    if (const char *failure = get_packet_and_buffer(held)) return failure;
    if (const char *failure = hand_over_buffer(held, kel_append)) return failure;
    if (kel_get_buf_count(held.packet) != 2) return "pre coalesce wrong buf count";
    kel_coalesce(held.packet); // judged by what it leaves
    if (kel_get_buf_count(held.packet) != 1) return "post coalesce wrong buf count";
    return verify_joined(held.packet, PATTERN_A, PATTERN_B,
                         {"kel_coalesce wrong packet length", "coalesce verify first failed",
                          "coalesce verify second failed"});
}

// Reserve space, and what all operations that take a byte count have in common.

namespace {

constexpr uint32_t MODEST = 64;

using sized_operation = uint32_t (*)(kel_packet packet, uint32_t size);

constexpr refusal_texts RESERVE_TEXTS = {"reserve_space was successful",
                                         "reserve_space wrong error"};

const char *size_bad_packet(sized_operation operation, kel_packet packet,
                            const refusal_texts &texts)
{
    return judge(operation(packet, MODEST), EINVAL, texts);
}

const char *size_bare_header(held_objects &held, sized_operation operation,
                             const refusal_texts &texts)
{
    if (const char *failure = get_bare_header(held, "kel_get_pkthdr failed")) return failure;
    return judge(operation(held.packet, MODEST), EINVAL, texts);
}

const char *size_refused(held_objects &held, sized_operation operation, uint32_t size,
                         uint32_t expected, const refusal_texts &texts)
{
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    return judge(operation(held.packet, size), expected, texts);
}

// Where a buffer's data starts, and how long it is.
struct data_extent {
    void *start;
    uint32_t length;
};

uint32_t get_extent(kel_buffer buffer, data_extent *extent)
{
    return kel_buf_get_dptr(buffer, 0, &extent->start, &extent->length);
}

// For addresses of different buffers the result has no meaning, but does no harm.
uintptr_t start_grown(const data_extent &before, const data_extent &after)
{
    return reinterpret_cast<uintptr_t>(after.start) - reinterpret_cast<uintptr_t>(before.start);
}

} // namespace

CASE(kel_packet, reserve_null_pkt, with_client,
     size_bad_packet(kel_reserve_space, 0, RESERVE_TEXTS))
CASE(kel_packet, reserve_invalid_pkt, with_client,
     size_bad_packet(kel_reserve_space, KEL_BAD_HANDLE, RESERVE_TEXTS))
CASE(kel_packet, reserve_null_bufhead, with_client,
     size_bare_header(held, kel_reserve_space, RESERVE_TEXTS))
CASE(kel_packet, reserve_toobig, with_client,
     size_refused(held, kel_reserve_space, 1501, ENOSPC, RESERVE_TEXTS))
CASE(kel_packet, reserve_all, with_client,
     size_refused(held, kel_reserve_space, 1500, ENOSPC, RESERVE_TEXTS))

CASE(kel_packet, reserve_nospaceleft, with_client)
{
    return size_refused(held, kel_reserve_space, 1501, ENOSPC, RESERVE_TEXTS); // as reserve_toobig
}

CASE(kel_packet, reserve_multi_times, with_client)
{
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (uint32_t error = kel_reserve_space(held.packet, 1)) return error_text(error);
    return judge(kel_reserve_space(held.packet, 1), EINVAL, RESERVE_TEXTS);
}

CASE(kel_packet, reserve, with_client)
{
    data_extent before = {};
    data_extent after = {};

    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    const kel_buffer head = kel_get_buf_head(held.packet);
    const uint32_t length = kel_get_length(held.packet);
    if (uint32_t error = get_extent(head, &before)) return error_text(error);
    if (uint32_t error = set_offsets(held.packet, 32, 64, 96)) return error_text(error);
    if (uint32_t error = kel_reserve_space(held.packet, 1499)) return error_text(error);
    if (uint32_t error = get_extent(head, &after)) return error_text(error);

    if (start_grown(before, after) != 1499) return "reserve_space wrong data start";
    if (after.length != before.length - 1499) return "reserve_space wrong data length";
    if (kel_get_length(held.packet) != length - 1499) return "reserve_space wrong pkt length";
    return check_offsets(held.packet, 32, 64, 96,
                         {"reserve_space moves OFFSET_NETWORK",
                          "reserve_space moves OFFSET_TRANSPORT",
                          "reserve_space moves OFFSET_APP"});
}

// Head space.

namespace {

const char *head_space_refused(kel_packet packet)
{
    uint32_t space = 0;

    return judge(kel_head_space(packet, &space), EINVAL,
                 {"head_space was successful", "head_space wrong error"});
}

const char *head_space_is(kel_packet packet, uint32_t preset, uint32_t expected)
{
    uint32_t space = preset;

    if (kel_head_space(packet, &space)) return "head_space failed";
    return space == expected ? nullptr : "head_space wrong value";
}

} // namespace

CASE(kel_packet, headspace_null_pkt, with_client, head_space_refused(0))
CASE(kel_packet, headspace_invalid_pkt, with_client, head_space_refused(KEL_BAD_HANDLE))

CASE(kel_packet, headspace_null_bufhead, with_client)
{
    if (const char *failure = get_bare_header(held, "kel_get_pkthdr failed")) return failure;
    return head_space_refused(held.packet);
}

CASE(kel_packet, headspace_zero, with_client)
{
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    return head_space_is(held.packet, 1500, 0);
}

CASE(kel_packet, headspace, with_client)
{
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (uint32_t error = kel_reserve_space(held.packet, 64)) return error_text(error);
    return head_space_is(held.packet, 0, 64);
}

// Add at the head.

namespace {

constexpr refusal_texts ADD_HEAD_TEXTS = {"add_head was successful", "add_head wrong error"};
constexpr offset_texts ADD_HEAD_OFFSETS = {"add_head wrong OFFSET_NETWORK",
                                           "add_head wrong OFFSET_TRANSPORT",
                                           "add_head wrong OFFSET_APP"};

const char *get_areas(held_objects &held, uint32_t size)
{
    held.area = static_cast<uint8_t *>(calloc(size, 1));
    if (!held.area) return "can't get buffer memory";
    held.second_area = static_cast<uint8_t *>(calloc(size, 1));
    if (!held.second_area) return "can't get new_buffer";
    return nullptr;
}

// Two areas, of which the first holds pattern A, and a packet.
const char *get_areas_and_packet(held_objects &held, uint32_t size)
{
    if (const char *failure = get_areas(held, size)) return failure;
    set_data(held.area, static_cast<int32_t>(size), PATTERN_A);
    return must_work(get_packet(held.client, STANDARD_SIZE, &held.packet));
}

// Writes `body` over the packet's data after the head room, then grows the packet.
uint32_t reserve_write_and_add(kel_packet packet, uint32_t reserved, const uint8_t *body,
                               uint32_t added)
{
    if (reserved) {
        if (uint32_t error = kel_reserve_space(packet, reserved)) return error;
    }
    if (uint32_t error = write_packet(packet, 0, body, STANDARD_SIZE - reserved)) return error;
    return kel_add_head(packet, added);
}

// Grows the packet beyond its head room, fills the new front and reads all of it back.
const char *add_new_head(held_objects &held, uint32_t reserved, uint32_t added, int32_t verified)
{
    const uint32_t whole = STANDARD_SIZE - reserved + added;

    if (const char *failure = get_areas_and_packet(held, whole)) return failure;
    const kel_buffer head = kel_get_buf_head(held.packet);
    const uint32_t length = kel_get_length(held.packet);
    if (uint32_t error = set_offsets(held.packet, 32, 64, 96)) return error_text(error);
    if (uint32_t error = reserve_write_and_add(held.packet, reserved, held.area + added, added)) {
        return error_text(error);
    }
    if (kel_get_buf_head(held.packet) == head) return "add_head returns same bufchain";
    if (kel_get_length(held.packet) != length - reserved + added) {
        return "add_head wrong pkt length";
    }
    if (uint32_t error = write_packet(held.packet, 0, held.area, added)) return error_text(error);
    if (uint32_t error = read_packet(held.packet, held.second_area, whole)) {
        return error_text(error);
    }
    if (verify_data(held.second_area, verified, PATTERN_A)) return "verify data failed";
    return check_offsets(held.packet, 32 + added, 64 + added, 96 + added, ADD_HEAD_OFFSETS);
}

} // namespace

CASE(kel_packet, addhead_null_pkt, with_client, size_bad_packet(kel_add_head, 0, ADD_HEAD_TEXTS))
CASE(kel_packet, addhead_invalid_pkt, with_client,
     size_bad_packet(kel_add_head, KEL_BAD_HANDLE, ADD_HEAD_TEXTS))
CASE(kel_packet, addhead_null_bufhead, with_client,
     size_bare_header(held, kel_add_head, ADD_HEAD_TEXTS))

CASE(kel_packet, addhead, with_client)
{
    data_extent before = {};
    data_extent after = {};

    if (const char *failure = get_areas_and_packet(held, STANDARD_SIZE)) return failure;
    const kel_buffer head = kel_get_buf_head(held.packet);
    const uint32_t length = kel_get_length(held.packet);
    if (uint32_t error = get_extent(head, &before)) return error_text(error);
    if (uint32_t error = set_offsets(held.packet, 32, 64, 96)) return error_text(error);
    if (uint32_t error = reserve_write_and_add(held.packet, 64, held.area + 64, 63)) {
        return error_text(error);
    }
    if (kel_get_buf_head(held.packet) != head) return "add_head extends bufchain";
    if (uint32_t error = get_extent(head, &after)) return error_text(error);
    if (start_grown(before, after) != 1) return "add_head wrong data start";
    if (after.length != before.length - 1) return "add_head wrong data length";
    if (kel_get_length(held.packet) != length - 1) return "add_head wrong pkt length";
    if (uint32_t error = write_packet(held.packet, 0, held.area + 1, 63)) return error_text(error);
    if (uint32_t error = read_packet(held.packet, held.second_area, 1499)) {
        return error_text(error);
    }
    if (memcmp(held.second_area, held.area + 1, 1499) != 0) return "verify data failed";
    return check_offsets(held.packet, 95, 127, 159, ADD_HEAD_OFFSETS);
}

CASE(kel_packet, addhead_extend, with_client, add_new_head(held, 64, 65, 1500))
CASE(kel_packet, addhead_offset, with_client, add_new_head(held, 64, 96, 1532))
CASE(kel_packet, addhead_zero, with_client, add_new_head(held, 0, 64, 1564))
CASE(kel_packet, addhead_toobig, with_client,
     size_refused(held, kel_add_head, TOO_BIG, ENOMEM, ADD_HEAD_TEXTS))

// Add at the tail.

namespace {

constexpr refusal_texts ADD_TAIL_TEXTS = {"add_tail was successful", "add_tail wrong error"};
constexpr offset_texts ADD_TAIL_OFFSETS = {"add_tail wrong OFFSET_NETWORK",
                                           "add_tail wrong OFFSET_TRANSPORT",
                                           "add_tail wrong OFFSET_APP"};

// Appends a further piece to a packet that has grown to 1564 bytes.
const char *append_to_grown(held_objects &held)
{
    if (uint32_t error = get_buffer(held.client, 64, &held.buffer)) return error_text(error);
    if (uint32_t error = write_buffer(held.buffer, held.area + 1564, 64)) return error_text(error);
    // The handle is kept on purpose: the release frees the packet and then this buffer again. The
    // library must survive that.
    if (uint32_t error = kel_append(held.packet, held.buffer)) return error_text(error);
    if (uint32_t error = read_packet(held.packet, held.second_area, 1628)) {
        return error_text(error);
    }
    return verify_data(held.second_area, 1628, PATTERN_A) ? "append verify failed" : nullptr;
}

} // namespace

CASE(kel_packet, addtail_null_pkt, with_client, size_bad_packet(kel_add_tail, 0, ADD_TAIL_TEXTS))
CASE(kel_packet, addtail_invalid_pkt, with_client,
     size_bad_packet(kel_add_tail, KEL_BAD_HANDLE, ADD_TAIL_TEXTS))
CASE(kel_packet, addtail_null_bufhead, with_client,
     size_bare_header(held, kel_add_tail, ADD_TAIL_TEXTS))
CASE(kel_packet, addtail_toobig, with_client,
     size_refused(held, kel_add_tail, TOO_BIG, ENOMEM, ADD_TAIL_TEXTS))

CASE(kel_packet, addtail, with_client)
{
    if (const char *failure = get_areas_and_packet(held, 1628)) return failure;
    const uint32_t length = kel_get_length(held.packet);
    if (uint32_t error = write_packet(held.packet, 0, held.area, 1500)) return error_text(error);
    if (uint32_t error = set_offsets(held.packet, 32, 64, 96)) return error_text(error);
    if (uint32_t error = kel_add_tail(held.packet, 64)) return error_text(error);
    if (kel_get_length(held.packet) != length + 64) return "add_tail wrong pkt length";
    if (uint32_t error = write_packet(held.packet, 1500, held.area + 1500, 64)) {
        return error_text(error);
    }
    if (uint32_t error = read_packet(held.packet, held.second_area, 1564)) {
        return error_text(error);
    }
    if (verify_data(held.second_area, 1564, PATTERN_A)) return "verify data failed";
    if (const char *failure = check_offsets(held.packet, 32, 64, 96, ADD_TAIL_OFFSETS)) {
        return failure;
    }
    return append_to_grown(held);
}

// Trim.

namespace {

constexpr refusal_texts TRIM_HEAD_TEXTS = {"trim_head was successful", "trim_head wrong error"};
constexpr offset_texts TRIM_HEAD_OFFSETS = {"trim_head wrong OFFSET_NETWORK",
                                            "trim_head wrong OFFSET_TRANSPORT",
                                            "trim_head wrong OFFSET_APP"};
constexpr refusal_texts TRIM_TAIL_TEXTS = {"trim_tail was successful", "trim_tail wrong error"};
constexpr offset_texts TRIM_TAIL_OFFSETS = {"trim_tail wrong OFFSET_NETWORK",
                                            "trim_tail wrong OFFSET_TRANSPORT",
                                            "trim_tail wrong OFFSET_APP"};

const char *trim_all(held_objects &held, sized_operation trim, const char *not_zero,
                     const char *not_consumed, const offset_texts &wrong)
{
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (uint32_t error = set_offsets(held.packet, 64, 128, 192)) return error_text(error);
    if (uint32_t error = trim(held.packet, STANDARD_SIZE)) return error_text(error);
    if (kel_get_length(held.packet) != 0) return not_zero;
    if (kel_get_buf_head(held.packet) != 0) return not_consumed;
    return check_offsets(held.packet, 0, 0, 0, wrong);
}

// An area and a packet that hold pattern A, with offsets set, from whose one end `size` bytes
// are then trimmed.
const char *trim_pattern(held_objects &held, sized_operation trim, uint32_t size)
{
    held.area = static_cast<uint8_t *>(calloc(STANDARD_SIZE, 1));
    if (!held.area) return "can't get buffer memory";
    set_data(held.area, STANDARD_SIZE, PATTERN_A);
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (uint32_t error = write_packet(held.packet, 0, held.area, STANDARD_SIZE)) {
        return error_text(error);
    }
    if (uint32_t error = set_offsets(held.packet, 64, 128, 192)) return error_text(error);
    return must_work(trim(held.packet, size));
}

const char *trim_nothing(held_objects &held, sized_operation trim, const char *verify_failed,
                         const offset_texts &wrong)
{
    if (const char *failure = trim_pattern(held, trim, 0)) return failure;
    held.area[0] = 0;
    if (uint32_t error = read_packet(held.packet, held.area, STANDARD_SIZE)) {
        return error_text(error);
    }
    if (verify_data(held.area, STANDARD_SIZE, PATTERN_A)) return verify_failed;
    return check_offsets(held.packet, 64, 128, 192, wrong);
}

// Joins a buffer of 64 bytes that holds `source`.
const char *join_piece(held_objects &held, join_operation join, const uint8_t *source)
{
    if (uint32_t error = get_buffer(held.client, 64, &held.buffer)) return error_text(error);
    if (uint32_t error = write_buffer(held.buffer, source, 64)) return error_text(error);
    return hand_over_buffer(held, join);
}

} // namespace

CASE(kel_packet, trimhead_null_pkt, with_client, size_bad_packet(kel_trim_head, 0, TRIM_HEAD_TEXTS))
CASE(kel_packet, trimhead_invalid_pkt, with_client,
     size_bad_packet(kel_trim_head, KEL_BAD_HANDLE, TRIM_HEAD_TEXTS))
CASE(kel_packet, trimhead_null_bufhead, with_client,
     size_bare_header(held, kel_trim_head, TRIM_HEAD_TEXTS))
CASE(kel_packet, trimhead_toobig, with_client,
     size_refused(held, kel_trim_head, 1501, ERANGE, TRIM_HEAD_TEXTS))
CASE(kel_packet, trimhead_all, with_client,
     trim_all(held, kel_trim_head, "trim_head length not zero", "trim_head didn't consume chain",
              TRIM_HEAD_OFFSETS))
CASE(kel_packet, trimhead_zero, with_client,
     trim_nothing(held, kel_trim_head, "trim_head verify failed", TRIM_HEAD_OFFSETS))

CASE(kel_packet, trim_head, with_client)
{
    constexpr uint32_t SAME_AS_PATTERN_A = 0x01234578;
    constexpr offset_texts WRONG = {TRIM_HEAD_OFFSETS.network, TRIM_HEAD_OFFSETS.transport,
                                    TRIM_TAIL_OFFSETS.app}; // sic

    if (const char *failure = trim_pattern(held, kel_trim_head, 128)) return failure;
    set_data(held.area, STANDARD_SIZE, SAME_AS_PATTERN_A);
    memset(held.area + 128, 0, 1372);
    if (const char *failure =
            read_counted(held.packet, held.area + 128, 1372, "trim_head wrong length")) {
        return failure;
    }
    if (verify_data(held.area, STANDARD_SIZE, PATTERN_A)) return "trim_head verify failed";
    if (const char *failure = check_offsets(held.packet, 0, 0, 64, WRONG)) return failure;
    if (const char *failure = join_piece(held, kel_prepend, held.area + 64)) return failure;
    memset(held.area + 64, 0, 1436);
    if (const char *failure =
            read_counted(held.packet, held.area + 64, 1436, "prepend wrong length")) {
        return failure;
    }
    return verify_data(held.area, STANDARD_SIZE, PATTERN_A) ? "prepend verify failed" : nullptr;
}

CASE(kel_packet, trimtail_null_pkt, with_client, size_bad_packet(kel_trim_tail, 0, TRIM_TAIL_TEXTS))
CASE(kel_packet, trimtail_invalid_pkt, with_client,
     size_bad_packet(kel_trim_tail, KEL_BAD_HANDLE, TRIM_TAIL_TEXTS))
CASE(kel_packet, trimtail_null_bufhead, with_client,
     size_bare_header(held, kel_trim_tail, TRIM_TAIL_TEXTS))
CASE(kel_packet, trimtail_toobig, with_client,
     size_refused(held, kel_trim_tail, 1501, ERANGE, TRIM_TAIL_TEXTS))
CASE(kel_packet, trimtail_all, with_client,
     trim_all(held, kel_trim_tail, "trim_tail length not zero", "trim_tail didn't consume chain",
              TRIM_TAIL_OFFSETS))
CASE(kel_packet, trimtail_zero, with_client,
     trim_nothing(held, kel_trim_tail, "trim_tail verify failed", TRIM_TAIL_OFFSETS))

CASE(kel_packet, trim_tail, with_client)
{
    if (const char *failure = trim_pattern(held, kel_trim_tail, 128)) return failure;
    held.area[0] = 0;
    if (const char *failure =
            read_counted(held.packet, held.area, 1372, "trim_tail wrong length")) {
        return failure;
    }
    if (verify_data(held.area, STANDARD_SIZE, PATTERN_A)) return "trim_tail verify failed";
    if (const char *failure = check_offsets(held.packet, 64, 128, 192, TRIM_TAIL_OFFSETS)) {
        return failure;
    }
    if (const char *failure = join_piece(held, kel_append, held.area + 1372)) return failure;
    memset(held.area + 1372, 0, 64);
    if (const char *failure = read_counted(held.packet, held.area, 1436, "append wrong length")) {
        return failure;
    }
    return verify_data(held.area, 1436, PATTERN_A) ? "append verify failed" : nullptr;
}

// The suite kel_pkt.

CASE(kel_pkt, set_tag_null_pkt, with_client)
{
    CHECK_LOCATED(kel_set_tag(0, 1) != 0, "kel_buf_set_tag failed"); // sic
    return api_msg;
}

CASE(kel_pkt, stress_alloc, with_packets<2000>)
{
    for (kel_packet &packet : held.packets) {
        uint32_t error = ERROR_NOT_STORED;

        packet = kel_get_packet(held.client, 0, 512, 1, &error);
        CHECK_LOCATED(error == 0, "kel_get_packet failed");
        CHECK_LOCATED(packet != 0, "pkt offset is 0");
    }
    return api_msg;
}

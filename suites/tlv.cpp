// SPDX-License-Identifier: MIT
//
// TLVs: allocating and freeing, data in and out, the walk over a packet's list, versions.
//
// The frame with_tlv gives the default packet TLV 1. The frame with_header has a bare packet
// header, which it frees by kel_free_pkthdr.
#include <errno.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/tlv.h"
#include "suites/packet_case.h"

TEST_FILE(kel_tlv, alloc_null_pkt)

namespace {

constexpr kel_packet BAD = KEL_BAD_HANDLE;
constexpr uint32_t INVALID_TLV_SIZE = 1024;
constexpr uint16_t VERSION = 10;

constexpr uint32_t BUFFER_SIZE = 1024;

// Of TLVs 1, 2 and 3.
constexpr uint32_t SEEDS[] = {PATTERN_A, 0x01020304, 0xfeedface};

const char *alloc_tlv(kel_packet packet, uint32_t id)
{
    return must_work(kel_tlv_alloc(packet, id, TLV_SIZE));
}

const char *get_packet_and_tlv(held_objects &held)
{
    if (const char *failure = get_client_and_packet(held)) return failure;
    return alloc_tlv(held.packet, 1);
}

const char *get_header(held_objects &held)
{
    if (const char *failure = register_default_client(held)) return failure;
    held.packet = kel_get_pkthdr(held.client);
    return held.packet ? nullptr : "get_pkthdr failed";
}

void release_header(held_objects &held)
{
    if (held.packet) kel_free_pkthdr(held.packet);
    cleanup_client(held.client);
}

constexpr case_frame<held_objects> with_tlv = {get_packet_and_tlv, release_objects};
constexpr case_frame<held_objects> with_header = {get_header, release_header};
// The header is freed as a packet: kel_free_packet must take it, too.
constexpr case_frame<held_objects> with_header_as_packet = {get_header, release_objects};

} // namespace

// Allocating and freeing.

namespace {

const char *alloc_bad_packet(kel_packet packet)
{
    return judge_refusal(kel_tlv_alloc(packet, 1, TLV_SIZE), EINVAL, "tlv_alloc was successful",
                         "tlv_alloc wrong error");
}

const char *alloc_works(kel_packet packet)
{
    return kel_tlv_alloc(packet, 1, TLV_SIZE) ? "tlv_alloc failed" : nullptr;
}

const char *free_bad_packet(kel_packet packet)
{
    return judge_refusal(kel_tlv_free(packet, 1), EINVAL, "tlv_free was successful",
                         "tlv_free wrong error");
}

const char *free_works(kel_packet packet)
{
    return kel_tlv_free(packet, 1) ? "tlv_free failed" : nullptr;
}

} // namespace

CASE(kel_tlv, alloc_null_pkt, with_client, alloc_bad_packet(0))
CASE(kel_tlv, alloc_bad_pkt, with_client, alloc_bad_packet(BAD))

CASE(kel_tlv, alloc_bad_tlv, with_packet)
{
    if (kel_tlv_alloc(held.packet, 1, INVALID_TLV_SIZE) == 0) {
        return "tlv_alloc was successful, should not happen for INVALID_TLV_SIZE";
    }
    return nullptr;
}

CASE(kel_tlv, alloc, with_packet, alloc_works(held.packet))
CASE(kel_tlv, alloc_dup, with_tlv,
     judge_refusal(kel_tlv_alloc(held.packet, 1, TLV_SIZE), EEXIST, "tlv_alloc successful",
                   "tlv_alloc wrong error"))
CASE(kel_tlv, hdr_alloc, with_header, alloc_works(held.packet))
CASE(kel_tlv, free_null_pkt, with_client, free_bad_packet(0))
CASE(kel_tlv, free_bad_pkt, with_client, free_bad_packet(BAD))
CASE(kel_tlv, free, with_tlv, free_works(held.packet))

CASE(kel_tlv, hdr_free, with_header)
{
    if (const char *failure = alloc_tlv(held.packet, 1)) return failure;
    return free_works(held.packet);
}

// Reading data.

namespace {

const char *get_invalid(kel_packet packet, void *destination, uint32_t *length)
{
    return judge_refusal(kel_tlv_getdata(packet, 1, destination, length), EINVAL,
                         "tlv_getdata was successful", "tlv_getdata wrong error");
}

const char *get_bad_packet(kel_packet packet)
{
    uint8_t buffer[BUFFER_SIZE];
    uint32_t length = BUFFER_SIZE;

    return get_invalid(packet, buffer, &length);
}

const char *read_tlv(kel_packet packet, uint32_t id, uint32_t capacity)
{
    uint8_t buffer[BUFFER_SIZE];

    return must_work(kel_tlv_getdata(packet, id, buffer, &capacity));
}

const char *getdata_works(kel_packet packet)
{
    uint8_t buffer[BUFFER_SIZE];
    uint32_t length = BUFFER_SIZE;

    if (uint32_t error = kel_tlv_getdata(packet, 1, buffer, &length)) return error_text(error);
    return length == TLV_SIZE ? nullptr : "getdata wrong length";
}

} // namespace

CASE(kel_tlv, get_null_pkt, with_client, get_bad_packet(0))
CASE(kel_tlv, get_bad_pkt, with_client, get_bad_packet(BAD))
CASE(kel_tlv, get_null_ptr_len, with_tlv, get_invalid(held.packet, nullptr, nullptr))

CASE(kel_tlv, get_null_ptr, with_tlv)
{
    uint32_t length = BUFFER_SIZE;

    return get_invalid(held.packet, nullptr, &length);
}

CASE(kel_tlv, get_null_len, with_tlv)
{
    uint8_t buffer[BUFFER_SIZE];

    return get_invalid(held.packet, buffer, nullptr);
}

CASE(kel_tlv, getdata, with_tlv, getdata_works(held.packet))

CASE(kel_tlv, hdr_getdata, with_header)
{
    if (const char *failure = alloc_tlv(held.packet, 1)) return failure;
    return getdata_works(held.packet);
}

CASE(kel_tlv, get_nospace, with_tlv)
{
    uint8_t buffer[BUFFER_SIZE];
    uint32_t length = TLV_SIZE - 1;

    return judge_refusal(kel_tlv_getdata(held.packet, 1, buffer, &length), ENOSPC,
                         "getdata successful", "getdata wrong error");
}

CASE(kel_tlv, get_no_alloc, with_tlv)
{
    uint8_t buffer[BUFFER_SIZE];
    uint32_t length = BUFFER_SIZE;

    return judge_refusal(kel_tlv_getdata(held.packet, 2, buffer, &length), ENOENT,
                         "tlv_getdata successful", "tlv_getdata wrong error");
}

// Writing data.

namespace {

const char *set_invalid(kel_packet packet, const void *source, uint32_t length)
{
    return judge_refusal(kel_tlv_setdata(packet, 1, source, length), EINVAL,
                         "tlv_setdata was successful", "tlv_setdata wrong error");
}

const char *set_bad_packet(kel_packet packet)
{
    uint8_t buffer[BUFFER_SIZE] = {};

    return set_invalid(packet, buffer, BUFFER_SIZE);
}

bool matches(const uint8_t (&buffer)[BUFFER_SIZE], uint32_t length, uint32_t seed)
{
    return length <= BUFFER_SIZE && verify_data(buffer, static_cast<int32_t>(length), seed) == 0;
}

const char *write_tlv(kel_packet packet, uint32_t id, uint8_t (&buffer)[BUFFER_SIZE])
{
    set_data(buffer, TLV_SIZE, SEEDS[id - 1]);
    return must_work(kel_tlv_setdata(packet, id, buffer, TLV_SIZE));
}

// The buffer that is written from is cleared and read into: a library that keeps its address
// instead of copying is caught. A read that fails does not end the case: the data decide where they
// differ.
const char *setdata_works(kel_packet packet)
{
    uint8_t buffer[BUFFER_SIZE];
    uint32_t length = TLV_SIZE;

    if (const char *failure = write_tlv(packet, 1, buffer)) return failure;
    memset(buffer, 0, BUFFER_SIZE);
    const char *message = must_work(kel_tlv_getdata(packet, 1, buffer, &length));
    return matches(buffer, length, SEEDS[0]) ? message : "data verify failed";
}

} // namespace

CASE(kel_tlv, set_null_pkt, with_client, set_bad_packet(0))
CASE(kel_tlv, set_bad_pkt, with_client, set_bad_packet(BAD))
CASE(kel_tlv, set_null_ptr_zero_len, with_tlv, set_invalid(held.packet, nullptr, 0))
CASE(kel_tlv, set_null_ptr, with_tlv, set_invalid(held.packet, nullptr, 1024))

CASE(kel_tlv, set_zero_len, with_tlv)
{
    uint8_t buffer[BUFFER_SIZE] = {};

    return must_work(kel_tlv_setdata(held.packet, 1, buffer, 0));
}

CASE(kel_tlv, setdata, with_tlv, setdata_works(held.packet))

CASE(kel_tlv, hdr_setdata, with_header_as_packet)
{
    if (const char *failure = alloc_tlv(held.packet, 1)) return failure;
    return setdata_works(held.packet);
}

CASE(kel_tlv, set_nospace, with_tlv)
{
    uint8_t buffer[BUFFER_SIZE] = {};

    return judge_refusal(kel_tlv_setdata(held.packet, 1, buffer, TLV_SIZE + 1), ENOSPC,
                         "setdata successful", "setdata wrong error");
}

CASE(kel_tlv, set_no_alloc, with_tlv)
{
    uint8_t buffer[BUFFER_SIZE] = {};

    return judge_refusal(kel_tlv_setdata(held.packet, 2, buffer, TLV_SIZE), ENOENT,
                         "tlv_setdata successful", "tlv_setdata wrong error");
}

CASE(kel_tlv, alloc_two, with_tlv)
{
    if (const char *failure = alloc_tlv(held.packet, 2)) return failure;
    if (const char *failure = read_tlv(held.packet, 1, BUFFER_SIZE)) return failure;
    return read_tlv(held.packet, 2, BUFFER_SIZE);
}

CASE(kel_tlv, with_tlv, with_client)
{
    uint32_t error = ERROR_NOT_STORED;

    held.packet =
        kel_get_packet_with_tlv(held.client, 0, DEFAULT_PACKET_SIZE, 0, 1, TLV_SIZE, &error);
    if (error) return error_text(error);
    return read_tlv(held.packet, 1, TLV_SIZE);
}

// Freed as a packet, like hdr_setdata.
CASE(kel_tlv, hdr_with_tlv, with_client)
{
    held.packet = kel_get_pkthdr_with_tlv(held.client, 1, TLV_SIZE);
    if (!held.packet) return "get_pkthdr failed";
    return read_tlv(held.packet, 1, TLV_SIZE);
}

// The list.

namespace {

// No TLV's id, so that a call that stores nothing is noticed.
constexpr uint32_t ID_NOT_STORED = 0xffffffff;

const char *head_invalid(kel_packet packet, uint32_t *id)
{
    return judge_refusal(kel_tlv_get_head(packet, id), EINVAL, "tlv_get_head was successful",
                         "tlv_get_head wrong error");
}

const char *head_bad_packet(kel_packet packet)
{
    uint32_t id = 0;

    return head_invalid(packet, &id);
}

// Allocates TLVs 2 and 3 after TLV 1.
const char *alloc_further(kel_packet packet)
{
    if (const char *failure = alloc_tlv(packet, 2)) return failure;
    return alloc_tlv(packet, 3);
}

} // namespace

CASE(kel_tlv, head_null_pkt, with_client, head_bad_packet(0))
CASE(kel_tlv, head_bad_pkt, with_client, head_bad_packet(BAD))
CASE(kel_tlv, head_null_ptr, with_packet, head_invalid(held.packet, nullptr))

CASE(kel_tlv, head_no_tlv, with_packet)
{
    uint32_t id = ID_NOT_STORED;

    if (kel_tlv_get_head(held.packet, &id) || id != 0) return "tlv_get_head wrong tlv_id";
    return nullptr;
}

CASE(kel_tlv, head, with_tlv)
{
    uint32_t id = 0;

    if (const char *failure = alloc_tlv(held.packet, 2)) return failure;
    kel_tlv_get_head(held.packet, &id); // judged by the id
    return id == 1 ? nullptr : "tlv_get_head wrong tlv_id";
}

CASE(kel_tlv, null_null_pkt, with_client)
{
    uint32_t id = 0;

    return judge_refusal(kel_tlv_get_next(0, &id), EINVAL,
                         "tlv_get_head was successful", // sic
                         "tlv_get_head wrong error");   // sic
}

CASE(kel_tlv, next_bad_pkt, with_client)
{
    uint32_t id = 0;

    return judge_refusal(kel_tlv_get_next(BAD, &id), EINVAL, "tlv_get_next was successful",
                         "tlv_get_next wrong error");
}

CASE(kel_tlv, next_null_ptr, with_packet,
     judge_refusal(kel_tlv_get_next(held.packet, nullptr), EINVAL, "tlv_get_next was successful",
                   "tlv_get_next wrong error"))

CASE(kel_tlv, next_no_tlv, with_packet)
{
    uint32_t id = 0;

    return kel_tlv_get_next(held.packet, &id) == ENOENT ? nullptr : "tlv_get_next wrong error";
}

CASE(kel_tlv, next, with_tlv)
{
    uint32_t id = 0;

    if (const char *failure = alloc_further(held.packet)) return failure;
    if (uint32_t error = kel_tlv_get_head(held.packet, &id)) return error_text(error);
    if (id != 1) return "tlv_get_head wrong tlv_id1";
    if (uint32_t error = kel_tlv_get_next(held.packet, &id)) return error_text(error);
    if (id != 2) return "tlv_get_next wrong tlv_id2";
    if (uint32_t error = kel_tlv_get_next(held.packet, &id)) return error_text(error);
    if (id != 3) return "tlv_get_next wrong tlv_id3";
    if (kel_tlv_get_next(held.packet, &id) || id != 0) return "tlv_get_next wrong last tlv_id";
    return nullptr;
}

// Freeing one of three.

namespace {

const char *const VERIFY_TEXTS[] = {"data verify1 failed", "data verify2 failed",
                                    "data verify3 failed"};

// Gives three TLVs their data by way of the buffer and frees one of them.
const char *free_one_of_three(kel_packet packet, uint32_t freed, uint8_t (&buffer)[BUFFER_SIZE])
{
    if (const char *failure = alloc_further(packet)) return failure;
    for (uint32_t id = 1; id <= 3; id++) {
        if (const char *failure = read_tlv(packet, id, BUFFER_SIZE)) return failure;
    }
    for (uint32_t id = 1; id <= 3; id++) {
        if (const char *failure = write_tlv(packet, id, buffer)) return failure;
    }
    return must_work(kel_tlv_free(packet, freed));
}

// The failing call's error text, or null with the verdict on the data in `mismatch`.
const char *verify_tlv(kel_packet packet, uint32_t id, uint8_t (&buffer)[BUFFER_SIZE],
                       const char **mismatch)
{
    uint32_t length = BUFFER_SIZE;

    memset(buffer, 0, BUFFER_SIZE);
    if (uint32_t error = kel_tlv_getdata(packet, id, buffer, &length)) return error_text(error);
    *mismatch = matches(buffer, length, SEEDS[id - 1]) ? nullptr : VERIFY_TEXTS[id - 1];
    return nullptr;
}

// `tolerated` is the TLV whose wrong data are recorded only; 0 for none.
const char *others_survive(kel_packet packet, uint32_t freed, uint32_t tolerated)
{
    const char *message = nullptr;
    uint8_t buffer[BUFFER_SIZE];

    if (const char *failure = free_one_of_three(packet, freed, buffer)) return failure;
    for (uint32_t id = 1; id <= 3; id++) {
        const char *mismatch = nullptr;

        if (id == freed) continue;
        if (const char *failure = verify_tlv(packet, id, buffer, &mismatch)) return failure;
        if (mismatch && id != tolerated) return mismatch;
        if (mismatch) message = mismatch;
    }
    return read_tlv(packet, freed, BUFFER_SIZE) ? message : "free failed";
}

} // namespace

CASE(kel_tlv, free_first, with_tlv, others_survive(held.packet, 1, 2))
CASE(kel_tlv, free_middle, with_tlv, others_survive(held.packet, 2, 0))
CASE(kel_tlv, free_last, with_tlv, others_survive(held.packet, 3, 0))

CASE(kel_tlv, alloc_free_alloc, with_tlv)
{
    uint8_t buffer[BUFFER_SIZE] = {};
    uint32_t length = BUFFER_SIZE;

    if (const char *failure = read_tlv(held.packet, 1, BUFFER_SIZE)) return failure;
    if (uint32_t error = kel_tlv_free(held.packet, 1)) return error_text(error);
    if (kel_tlv_getdata(held.packet, 1, buffer, &length) == 0) {
        return "tlv_getdata 1 was successful";
    }
    if (const char *failure = alloc_tlv(held.packet, 2)) return failure;
    // The refused read must have left the length as it was. A longer one is not handed over.
    if (length > BUFFER_SIZE) length = BUFFER_SIZE;
    return kel_tlv_getdata(held.packet, 2, buffer, &length) ? "tlv_getdata 2 failed" : nullptr;
}

// Versions.

CASE(kel_tlv, version_set, with_tlv)
{
    if (kel_tlv_version_set(0, 0, 0) != EINVAL) return "EINVAL expected";
    if (kel_tlv_version_set(held.packet, 0, 0) != EINVAL) return "ENOENT expected"; // sic
    if (kel_tlv_version_set(held.packet, 0, VERSION) == ENOENT) return nullptr;     // on purpose
    return must_work(kel_tlv_version_set(held.packet, 1, VERSION));
}

CASE(kel_tlv, version_get, with_tlv)
{
    uint16_t version = 0;

    if (uint32_t error = kel_tlv_version_set(held.packet, 1, VERSION)) return error_text(error);
    if (kel_tlv_version_get(0, 0, nullptr) != EINVAL) return "EINVAL expected";
    if (kel_tlv_version_get(held.packet, 0, nullptr) != EINVAL) return "EINVAL expected";
    if (kel_tlv_version_get(held.packet, 0, &version) != ENOENT) return "ENOENT expected";
    return must_work(kel_tlv_version_get(held.packet, 1, &version));
}

CASE(kel_tlv, version_check, with_tlv)
{
    const kel_packet packet = held.packet;

    if (uint32_t error = kel_tlv_version_set(packet, 1, VERSION)) return error_text(error);
    if (kel_tlv_version_check(0, 0, 0, 0) != EINVAL) return "EINVAL expected";
    if (kel_tlv_version_check(packet, 0, 0, 0) != EINVAL) return "EINVAL expected";
    if (kel_tlv_version_check(packet, 0, 1, 0) != EINVAL) return "EINVAL expected";
    if (kel_tlv_version_check(packet, 0, 1, 1) != ENOENT) return "ENOENT expected";
    if (kel_tlv_version_check(packet, 1, 1, 9) != ERANGE) return "ERANGE expected";
    if (kel_tlv_version_check(packet, 1, 11, 20) != ERANGE) return "ERANGE expected";
    return must_work(kel_tlv_version_check(packet, 1, 10, 10));
}

namespace {

// A buffer of exactly TLV 1's size, and the length word that goes with it through a case.
struct tlv_buffer {
    uint8_t bytes[TLV_SIZE];
    uint32_t length;
};

uint32_t get_plain(kel_packet packet, tlv_buffer *data)
{
    return kel_tlv_getdata(packet, 1, data->bytes, &data->length);
}

// A length word that the library has put beyond the buffer is never handed back to it: the
// call counts as refused, with the error that the library has for too much data.
uint32_t set_plain(kel_packet packet, const tlv_buffer &data)
{
    if (data.length > TLV_SIZE) return ENOSPC;
    return kel_tlv_setdata(packet, 1, data.bytes, data.length);
}

uint32_t set_versioned(kel_packet packet, const tlv_buffer &data)
{
    if (data.length > TLV_SIZE) return ENOSPC;
    return kel_tlv_set_versioned_data(packet, 1, data.bytes, data.length, VERSION);
}

uint32_t get_versioned(kel_packet packet, tlv_buffer *data, uint32_t lowest, uint32_t highest,
                       uint16_t *version)
{
    if (data->length > TLV_SIZE) return ENOSPC;
    return kel_tlv_get_versioned_data(packet, 1, data->bytes, &data->length, lowest, highest,
                                      version);
}

const char *null_addresses(kel_packet packet, tlv_buffer *data)
{
    if (kel_tlv_getdata(packet, 1, nullptr, nullptr) != EINVAL) return "EINVAL expected (1)";
    if (kel_tlv_getdata(packet, 1, data->bytes, nullptr) != EINVAL) return "EINVAL expected (2)";
    if (kel_tlv_getdata(packet, 1, nullptr, &data->length) != EINVAL) return "EINVAL expected (3)";
    data->length = TLV_SIZE; // whatever the refused read has put there
    return nullptr;
}

const char *version_bounds(kel_packet packet, tlv_buffer *data)
{
    uint16_t version = 0;

    if (uint32_t error = get_versioned(packet, data, 10, 0, &version)) return error_text(error);
    if (version != VERSION) return "version mismatch (1)";
    version = 0;
    if (uint32_t error = get_versioned(packet, data, 0, 10, &version)) return error_text(error);
    if (version != VERSION) return "version mismatch (2)";
    if (get_versioned(packet, data, 11, 10, &version) != EINVAL) return "EINVAL expected (4)";
    data->length = TLV_SIZE;
    if (uint32_t error = get_versioned(packet, data, 9, 11, nullptr)) return error_text(error);
    if (get_versioned(packet, data, 11, 0, nullptr) != ERANGE) return "ERANGE expected";
    return nullptr;
}

} // namespace

CASE(kel_tlv, data_version_check, with_tlv)
{
    tlv_buffer data = {};

    if (uint32_t error = kel_tlv_setdata(held.packet, 1, data.bytes, TLV_SIZE)) {
        return error_text(error);
    }
    data.length = TLV_SIZE;
    if (uint32_t error = get_plain(held.packet, &data)) return error_text(error);
    if (uint32_t error = set_versioned(held.packet, data)) return error_text(error);
    if (const char *failure = null_addresses(held.packet, &data)) return failure;
    if (uint32_t error = get_plain(held.packet, &data)) return error_text(error);
    if (uint32_t error = set_plain(held.packet, data)) return error_text(error);
    return version_bounds(held.packet, &data);
}

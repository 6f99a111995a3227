// SPDX-License-Identifier: MIT
//
// Large and scattered packets, duplicates of packets, and the largest TLV a packet can be
// obtained with.
//
// The checks of a duplicate record their message and go on: the last one that fails decides.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/bufgroup.h"
#include "kelapi/tlv.h"
#include "suites/packet_case.h"

TEST_FILE(kel_packet, get_jumbo_packet)

namespace {

// Writes the pattern over the packet by way of the area.
const char *write_pattern(kel_packet packet, uint8_t *area, uint32_t size, uint32_t seed)
{
    set_data(area, static_cast<int32_t>(size), seed);
    return must_work(kel_set_data(packet, OFFSET_DATA, 0, area, size));
}

const char *read_and_verify(kel_packet packet, uint8_t *area, uint32_t size, uint32_t seed)
{
    uint32_t length = size;

    if (uint32_t error = kel_get_data(packet, OFFSET_DATA, 0, area, &length)) {
        return error_text(error);
    }
    return verify_data(area, static_cast<int32_t>(size), seed) ? "verify data failed" : nullptr;
}

// A packet whose data may stand in several buffers.
uint32_t get_scattered(kel_client client, uint32_t size, kel_packet *packet)
{
    uint32_t error = ERROR_NOT_STORED;

    *packet = kel_get_packet(client, 0, size, 0, &error);
    return error;
}

} // namespace

CASE(kel_packet, get_jumbo_packet, with_client,
     must_work(get_packet(held.client, JUMBO_SIZE, &held.packet)))

CASE(kel_packet, get_non_cont_buf_packet, with_client)
{
    const char *message = nullptr;

    if (uint32_t error = get_scattered(held.client, CHAIN_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (kel_get_length(held.packet) != CHAIN_SIZE) message = "packet size mismatch";
    held.area = static_cast<uint8_t *>(malloc(CHAIN_SIZE));
    if (!held.area) return "malloc failed";
    if (const char *failure = write_pattern(held.packet, held.area, CHAIN_SIZE, 7)) {
        return failure;
    }
    // Not cleared in between, on purpose.
    const char *failure = read_and_verify(held.packet, held.area, CHAIN_SIZE, 7);
    return failure ? failure : message;
}

CASE(kel_packet, get_non_cont_packet_stress, with_packets<32>)
{
    uint8_t area[32768];

    for (uint32_t i = 0; i < 32; i++) {
        const uint32_t size = i % 2 ? 32768 : 8192;

        if (uint32_t error = get_scattered(held.client, size, &held.packets[i])) {
            return error_text(error);
        }
        if (kel_get_length(held.packets[i]) != size) return "packet size mismatch";
        if (const char *failure = write_pattern(held.packets[i], area, size, i)) return failure;
        memset(area, 0, size);
        if (const char *failure = read_and_verify(held.packets[i], area, size, i)) return failure;
    }
    return nullptr;
}

// Duplicates that must be refused.

namespace {

constexpr uint32_t BAD_KIND = 48879;

// Whether a duplicate is refused with EINVAL. One that is made nevertheless replaces the
// last.
bool duplicate_refused(held_objects &held, uint32_t kind, uint32_t offset, uint32_t length)
{
    uint32_t error = 0;

    if (held.duplicate) free_packet(held.duplicate);
    held.duplicate = kel_duplicate(held.packet, kind, offset, length, &error);
    return error == EINVAL;
}

} // namespace

CASE(kel_packet, dup_pkt_invalid_pkt, with_nothing,
     duplicate_refused(held, OFFSET_DATA, 0, STANDARD_SIZE) ? nullptr : "dup invalid pkt succeed")

CASE(kel_packet, dup_pkt_invalid_len, with_client)
{
    const char *message = nullptr;

    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (!duplicate_refused(held, OFFSET_DATA, 0, 0)) message = "dup invalid len(=0) succeed";
    if (!duplicate_refused(held, OFFSET_DATA, 0, 1501)) {
        message = "dup invalid len(too big) succeed";
    }
    if (!duplicate_refused(held, OFFSET_DATA, 750, 1500)) {
        message = "dup invalid len(too big2) succeed";
    }
    return message;
}

CASE(kel_packet, dup_pkt_invalid_offset, with_client)
{
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    return duplicate_refused(held, BAD_KIND, 0, STANDARD_SIZE) ? nullptr
                                                               : "dup invalid offset succeed";
}

CASE(kel_packet, dup_pkt_no_buf, with_client)
{
    held.packet = kel_get_pkthdr(held.client);
    if (!held.packet) return "get_pkthdr failed";
    return duplicate_refused(held, BAD_KIND, 0, STANDARD_SIZE) ? nullptr
                                                               : "dup pkt with no buf succeed";
}

// Metadata of a source and its duplicate.

namespace {

void set_pkt_attributes(kel_packet packet)
{
    kel_set_tag(packet, 48879);
    kel_set_egress_vlan_id(packet, 10);
    kel_set_ingress_vlan_id(packet, 11);
    kel_set_topology_id(packet, 12);
    kel_set_vrf_id(packet, 13);
    kel_set_link_type(packet, 14);
    kel_set_priority(packet, 1);
    kel_set_cause(packet, 2);
    kel_set_ifid(packet, IF_INPUT, 3);
    kel_set_ifid(packet, IF_OUTPUT, 4);
    kel_set_ifid(packet, IF_INPUT_L2_PHYSICAL, 5);
    kel_set_ifid(packet, IF_INPUT_L2_LOGICAL, 6);
}

// The two values start unequal, so that a getter that stores nothing is a difference.
template <typename value>
bool differ(uint32_t (*get)(kel_packet packet, value *result), kel_packet a, kel_packet b)
{
    value of_a = 0;
    value of_b = static_cast<value>(~value{0});

    get(a, &of_a);
    get(b, &of_b);
    return of_a != of_b;
}

bool ifids_differ(kel_packet a, kel_packet b, uint32_t kind)
{
    uint64_t of_a = 0;
    uint64_t of_b = ~of_a;

    kel_get_ifid(a, kind, &of_a);
    kel_get_ifid(b, kind, &of_b);
    return of_a != of_b;
}

int32_t compare_pkt_attributes(kel_packet a, kel_packet b)
{
    if (kel_get_tag(a) != kel_get_tag(b)) return 1;
    if (kel_get_input_ifid(a) != kel_get_input_ifid(b)) return 1;
    if (differ(kel_get_priority, a, b)) return 1;
    if (differ(kel_get_cause, a, b)) return 1;
    if (ifids_differ(a, b, IF_OUTPUT)) return 1;
    if (ifids_differ(a, b, IF_INPUT_L2_PHYSICAL)) return 1;
    if (ifids_differ(a, b, IF_INPUT_L2_LOGICAL)) return 1;
    if (differ(kel_get_link_type, a, b)) return 1;
    if (differ(kel_get_vrf_id, a, b)) return 1;
    if (differ(kel_get_topology_id, a, b)) return 1;
    if (differ(kel_get_ingress_vlan_id, a, b)) return 1;
    if (differ(kel_get_egress_vlan_id, a, b)) return 1;
    return 0;
}

} // namespace

// Duplicates of data.

namespace {

// Leaves nothing in the area that a library could copy later.
const char *write_pattern_a(kel_packet packet, uint8_t *area, uint32_t size)
{
    const char *failure = write_pattern(packet, area, size, PATTERN_A);

    memset(area, 0, size);
    return failure;
}

const char *duplicate_packet(held_objects &held, uint32_t kind, uint32_t offset, uint32_t length)
{
    uint32_t error = ERROR_NOT_STORED;

    held.duplicate = kel_duplicate(held.packet, kind, offset, length, &error);
    return must_work(error);
}

// Judges a duplicate of `expected` bytes, read into the area: against pattern A, or, as far
// as they were read, against the bytes of `part`. The checks record in `message`; a call that
// fails is returned and ends the case.
const char *judge_duplicate(const held_objects &held, uint8_t *area, uint32_t expected,
                            const uint8_t *part, const char **message)
{
    uint32_t length = expected;

    if (kel_get_length(held.duplicate) != expected) *message = "dup pkt size mismatch";
    memset(area, 0, expected);
    if (uint32_t error = kel_get_data(held.duplicate, OFFSET_DATA, 0, area, &length)) {
        return error_text(error);
    }
    const bool verified = part ? length <= expected && memcmp(area, part, length) == 0
                               : verify_data(area, static_cast<int32_t>(expected), PATTERN_A) == 0;
    if (!verified) *message = "dup'd pkt data verification failed";
    if (compare_pkt_attributes(held.packet, held.duplicate)) {
        *message = "dup' pkt attributes mismatch"; // sic
    }
    return nullptr;
}

// Duplicates all of held.packet, which has `size` bytes, asking for `length` of them.
const char *record_whole(held_objects &held, uint8_t *area, uint32_t size, uint32_t length,
                         const char **message)
{
    if (const char *failure = write_pattern_a(held.packet, area, size)) return failure;
    set_pkt_attributes(held.packet);
    if (const char *failure = duplicate_packet(held, OFFSET_DATA, 0, length)) return failure;
    return judge_duplicate(held, area, size, nullptr, message);
}

const char *duplicate_whole(held_objects &held, uint8_t *area, uint32_t size, uint32_t length)
{
    const char *message = nullptr;
    const char *failure = record_whole(held, area, size, length, &message);

    return failure ? failure : message;
}

} // namespace

CASE(kel_packet, dup_pkt, with_client)
{
    uint8_t area[STANDARD_SIZE];

    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    return duplicate_whole(held, area, STANDARD_SIZE, STANDARD_SIZE);
}

CASE(kel_packet, dup_pkt_jumbo, with_client)
{
    uint8_t area[JUMBO_SIZE];

    if (uint32_t error = get_packet(held.client, JUMBO_SIZE, &held.packet)) {
        return error_text(error);
    }
    return duplicate_whole(held, area, JUMBO_SIZE, JUMBO_SIZE);
}

CASE(kel_packet, dup_pkt_jumbo_partial, with_client)
{
    constexpr uint32_t HALF = JUMBO_SIZE / 2;
    uint8_t source[JUMBO_SIZE];
    uint8_t area[HALF];

    if (uint32_t error = get_packet(held.client, JUMBO_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (const char *failure = write_pattern_a(held.packet, source, JUMBO_SIZE)) return failure;
    set_pkt_attributes(held.packet);
    if (const char *failure = duplicate_packet(held, OFFSET_DATA, HALF, KEL_COPY_ALL)) {
        return failure;
    }
    const char *message = nullptr;
    set_data(source, JUMBO_SIZE, PATTERN_A);
    const char *failure = judge_duplicate(held, area, HALF, source + HALF, &message);
    return failure ? failure : message;
}

CASE(kel_packet, dup_pkt_noncont, with_client)
{
    if (uint32_t error = get_scattered(held.client, CHAIN_SIZE, &held.packet)) {
        return error_text(error);
    }
    held.area = static_cast<uint8_t *>(malloc(CHAIN_SIZE));
    if (!held.area) return "malloc failed";
    return duplicate_whole(held, held.area, CHAIN_SIZE, CHAIN_SIZE);
}

CASE(kel_packet, dup_pkt_copyall, with_client)
{
    uint8_t area[STANDARD_SIZE];

    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    return duplicate_whole(held, area, STANDARD_SIZE, KEL_COPY_ALL);
}

// Duplicates of TLVs.

namespace {

// What the TLVs hold is not judged, only that they can be read.
const char *read_tlvs(kel_packet packet)
{
    uint8_t data[TLV_SIZE];

    for (uint32_t id = 1; id <= 2; id++) {
        uint32_t length = TLV_SIZE;

        if (uint32_t error = kel_tlv_getdata(packet, id, data, &length)) return error_text(error);
    }
    return nullptr;
}

} // namespace

CASE(kel_packet, dup_pkt_with_tlv, with_client)
{
    uint8_t area[STANDARD_SIZE];
    uint8_t data[TLV_SIZE];
    uint32_t error = ERROR_NOT_STORED;

    held.packet = kel_get_packet_with_tlv(held.client, 0, STANDARD_SIZE, 0, 1, TLV_SIZE, &error);
    if (error) return error_text(error);
    set_data(data, TLV_SIZE, 0xdeadbeef);
    error = kel_tlv_setdata(held.packet, 1, data, TLV_SIZE);
    if (error) return error_text(error);
    error = kel_tlv_alloc(held.packet, 2, TLV_SIZE);
    if (error) return error_text(error);
    set_data(data, TLV_SIZE, 0xabcd1234);
    error = kel_tlv_setdata(held.packet, 2, data, TLV_SIZE);
    if (error) return error_text(error);

    const char *message = nullptr;
    if (const char *failure = record_whole(held, area, STANDARD_SIZE, STANDARD_SIZE, &message)) {
        return failure;
    }
    const char *failure = read_tlvs(held.duplicate);
    return failure ? failure : message;
}

// Offsets of partial duplicates.

namespace {

// The duplicate begins at `offset` from the offset of kind `kind`; its own OFFSET_APP must be
// `app`, the others 0.
const char *duplicate_offsets(held_objects &held, uint32_t kind, uint32_t offset, uint32_t app,
                              const char *wrong_app)
{
    const char *const wrong[] = {"OFFSET_DATA != 0", "OFFSET_NETWORK != 0", "OFFSET_TRANSPORT != 0",
                                 wrong_app};
    const char *message = nullptr;
    uint8_t area[STANDARD_SIZE];

    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    if (const char *failure = write_pattern_a(held.packet, area, STANDARD_SIZE)) return failure;
    if (uint32_t error = set_offsets(held.packet, 32, 64, 96)) return error_text(error);
    set_pkt_attributes(held.packet);
    if (const char *failure = duplicate_packet(held, kind, offset, KEL_COPY_ALL)) return failure;
    if (kel_get_length(held.duplicate) >= STANDARD_SIZE) message = "dup pkt size mismatch";
    for (uint32_t i = OFFSET_DATA; i <= OFFSET_APP; i++) {
        const uint32_t expected = i == OFFSET_APP ? app : 0;
        uint32_t found = ~expected;

        if (uint32_t error = kel_get_offset(held.duplicate, i, &found)) return error_text(error);
        if (found != expected) message = wrong[i];
    }
    return message;
}

} // namespace

CASE(kel_packet, dup_pkt_offset_reset, with_client,
     duplicate_offsets(held, OFFSET_APP, 1, 0, "OFFSET_APP != 0"))
CASE(kel_packet, dup_pkt_offset_adj, with_client,
     duplicate_offsets(held, OFFSET_TRANSPORT, 8, 24, "OFFSET_APP adjustment failed"))

// A duplicate's group, and the largest TLV.

CASE(kel_packet, dup_pkt_bufgroup, with_client)
{
    const char *message = nullptr;
    uint32_t error = ERROR_NOT_STORED;
    uint32_t buffers = 0;
    uint32_t bytes = 0;

    error = kel_register_bufgroup(held.client, &held.group, "dup_pkt test group");
    if (error) return error_text(error);
    error = ERROR_NOT_STORED;
    held.packet = kel_get_packet(held.client, held.group, STANDARD_SIZE, 1, &error);
    if (error) return error_text(error);
    set_pkt_attributes(held.packet);
    if (const char *failure = duplicate_packet(held, OFFSET_DATA, 0, KEL_COPY_ALL)) return failure;
    if (kel_get_length(held.duplicate) != STANDARD_SIZE) message = "dup pkt size mismatch";
    if (compare_pkt_attributes(held.packet, held.duplicate)) {
        message = "dup' pkt attributes mismatch"; // sic
    }
    error = kel_get_count_bygroup(held.client, held.group, &buffers, &bytes);
    if (error) return error_text(error);
    if (buffers != 2) message = "bufgroup buffer count incorrect";
    if (bytes != 2 * STANDARD_SIZE) message = "bufgroup bytes count incorrect";
    return message;
}

CASE(kel_packet, pkt_invalid_tlvsize, with_client)
{
    uint32_t error = ERROR_NOT_STORED;

    held.packet = kel_get_packet_with_tlv(held.client, 0, STANDARD_SIZE, 0, 1, 238, &error);
    if (held.packet) return "Got packet when it should have been NULL";
    return error == ENOSPC ? nullptr : "Expected error code ENOSPC";
}

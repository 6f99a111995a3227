// SPDX-License-Identifier: MIT
//
// Buffer groups: who may set thresholds and ask for counts, and that limits, notices and counts
// hold for packets with TLVs and for buffers as they do for packets.
#include <errno.h>

#include "kelapi/buf.h"
#include "kelapi/bufgroup.h"
#include "kelapi/client.h"
#include "kelapi/packet.h"
#include "more/account.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_bufgroup, params_by_stranger)

namespace {

constexpr char GROUP_NAME[] = "more group";

constexpr kel_bufgroup_thresholds FEW_BUFFERS = {3, 1, 2}; // max, low, high
constexpr kel_bufgroup_thresholds MANY_BUFFERS = {30, 10, 20};
constexpr kel_bufgroup_thresholds FEW_BYTES = {3000, 1000, 2000};
constexpr kel_bufgroup_thresholds MANY_BYTES = {30000, 10000, 20000};

constexpr uint32_t TLV = 1;
constexpr uint32_t MOST = 4;

struct group_objects {
    kel_packet packets[MOST];
    kel_buffer buffers[MOST];
    kel_bufgroup group;
    kel_client client; // has registered the group
    kel_client stranger;
};

const char *register_group(group_objects &held)
{
    if (const char *failure = register_default_client(held)) return failure;
    return must_work(kel_register_bufgroup(held.client, &held.group, GROUP_NAME));
}

void release(group_objects &held)
{
    for (const kel_packet packet : held.packets) {
        if (packet) free_packet(packet);
    }
    for (const kel_buffer buffer : held.buffers) {
        if (buffer) free_buffer(buffer);
    }
    if (held.group) kel_deregister_bufgroup(held.client, held.group);
    cleanup_client(held.stranger);
    cleanup_client(held.client);
}

constexpr case_frame<group_objects> with_group = {register_group, release};

// Only the buffers are limited: which of two records governs is the library's choice.
uint32_t limit_buffers(const group_objects &held)
{
    kel_bufgroup_thresholds passed = FEW_BUFFERS;

    return kel_bufgroup_set_params(held.client, held.group, KEL_BUFGROUP_BUFFERS, &passed, nullptr);
}

bool is_same(const kel_bufgroup_thresholds &left, const kel_bufgroup_thresholds &right)
{
    return left.max == right.max && left.low == right.low && left.high == right.high;
}

kel_packet get_packet_with_tlv(const group_objects &held, uint32_t *error)
{
    *error = ERROR_NOT_STORED;
    return kel_get_packet_with_tlv(held.client, held.group, SMALL_SIZE, 0, TLV, TLV_SIZE, error);
}

// Stores the buffer at `index`.
uint32_t get_group_buffer(group_objects &held, uint32_t index)
{
    uint32_t error = ERROR_NOT_STORED;

    held.buffers[index] = kel_get_buffer(held.client, held.group, SMALL_SIZE, 1, &error);
    return error;
}

// `buffers` buffers of SMALL_SIZE must be taken from the group.
const char *judge_group_count(const group_objects &held, uint32_t buffers)
{
    uint32_t counted = NOT_COUNTED;
    uint32_t bytes = NOT_COUNTED;

    if (kel_get_count_bygroup(held.client, held.group, &counted, &bytes)) {
        return "kel_get_count_bygroup failed";
    }
    if (counted != buffers) return "wrong buffer count of the group";
    return bytes == buffers * SMALL_SIZE ? nullptr : "wrong byte count of the group";
}

} // namespace

CASE(kel_more_bufgroup, params_by_stranger, with_group)
{
    uint32_t mask = 0;
    kel_bufgroup_thresholds buffers = {};
    kel_bufgroup_thresholds bytes = {};

    if (uint32_t error = create_default_client(&held.stranger)) return error_text(error);
    if (uint32_t error = set_thresholds(held.client, held.group, FEW_BUFFERS, FEW_BYTES)) {
        return error_text(error);
    }
    if (const char *message = judge_refusal(
            set_thresholds(held.stranger, held.group, MANY_BUFFERS, MANY_BYTES), EINVAL,
            "kel_bufgroup_set_params was successful", "kel_bufgroup_set_params wrong error")) {
        return message;
    }
    if (kel_bufgroup_get_params(held.client, held.group, &mask, &buffers, &bytes)) {
        return "kel_bufgroup_get_params failed";
    }
    if (mask != (KEL_BUFGROUP_BUFFERS | KEL_BUFGROUP_BYTES)) return "wrong mask";
    const bool are_kept = is_same(buffers, FEW_BUFFERS) && is_same(bytes, FEW_BYTES);
    return are_kept ? nullptr : "the group's thresholds have changed";
}

CASE(kel_more_bufgroup, limit_with_tlv, with_group)
{
    uint32_t error = ERROR_NOT_STORED;

    if (limit_buffers(held)) return "kel_bufgroup_set_params failed";
    for (uint32_t i = 0; i < FEW_BUFFERS.max; i++) {
        held.packets[i] = get_packet_with_tlv(held, &error);
        if (!held.packets[i]) return "kel_get_packet_with_tlv failed";
    }
    held.packets[FEW_BUFFERS.max] = get_packet_with_tlv(held, &error);
    if (held.packets[FEW_BUFFERS.max]) return "a packet beyond the group's maximum";
    return error == ENOBUFS ? nullptr : "kel_get_packet_with_tlv wrong error";
}

CASE(kel_more_bufgroup, buffer_reaches_high, with_group)
{
    if (limit_buffers(held)) return "kel_bufgroup_set_params failed";
    for (uint32_t i = 0; i < FEW_BUFFERS.high; i++) {
        const bool is_high = i + 1 == FEW_BUFFERS.high;
        const uint32_t error = get_group_buffer(held, i);
        if (!held.buffers[i]) return "kel_get_buffer failed";
        if (is_high && error == 0) return "no notice of the high threshold";
        if (error != (is_high ? KEL_HIGH_THRESHOLD_REACHED : 0)) {
            return "kel_get_buffer wrong error";
        }
    }
    return nullptr;
}

CASE(kel_more_bufgroup, buffers_are_counted, with_group)
{
    for (uint32_t i = 0; i < MOST; i++) {
        if (uint32_t error = get_group_buffer(held, i)) return error_text(error);
        if (const char *message = judge_group_count(held, i + 1)) return message;
    }
    if (kel_free_buffer(held.buffers[3])) return "kel_free_buffer failed";
    held.buffers[3] = 0;
    if (const char *message = judge_group_count(held, 3)) return message;
    if (kel_buf_append(held.buffers[1], held.buffers[2])) return "kel_buf_append failed";
    held.buffers[2] = 0;
    if (kel_free_bufchain(held.buffers[1])) return "kel_free_bufchain failed";
    held.buffers[1] = 0;
    return judge_group_count(held, 1);
}

CASE(kel_more_bufgroup, deregistered_group, with_group)
{
    const kel_bufgroup left = held.group;
    uint32_t buffers = NOT_COUNTED;
    uint32_t bytes = NOT_COUNTED;

    if (const char *message = judge_group_count(held, 0)) return message;
    if (kel_deregister_bufgroup(held.client, left)) return "kel_deregister_bufgroup failed";
    held.group = 0;
    return judge_refusal(kel_get_count_bygroup(held.client, left, &buffers, &bytes), EINVAL,
                         "the client is still registered with the group",
                         "kel_get_count_bygroup wrong error");
}

// SPDX-License-Identifier: MIT
//
// Buffer groups and the accounting of buffers by client, by tag and by group. Cases register
// their own clients, up to five, in a frame of this suite; it frees packets and buffer, then
// deregisters groups, tag and clients. All messages are located, also those of set-up.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "fixtures/wait.h"
#include "kelapi/buf.h"
#include "kelapi/bufgroup.h"
#include "kelapi/client.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "kelapi/role.h"
#include "suites/bufgroup_case.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_bufgroup, reg_bufgroup_null_client)

namespace {

constexpr kel_tag COUNTED_TAG = 333;
constexpr char GROUP_NAME[] = "test group";

// The marks of the threshold cases, in elements.
constexpr uint32_t MAX_BUFFERS = 5;
constexpr uint32_t HIGH_BUFFERS = 4;
constexpr uint32_t LOW_BUFFERS = 1;

struct counts {
    uint32_t buffers;
    uint32_t bytes;
};

// Counts that no query stores.
constexpr counts NOT_COUNTED = {0xffffffff, 0xffffffff};

struct count_texts {
    const char *query_failed;
    const char *wrong_buffers;
    const char *wrong_bytes;
};

constexpr count_texts CLIENT_COUNTS = {"get_bufcount_byclient failed", "buffer count mismatch",
                                       "bytes count mismatch"};
constexpr count_texts CLIENT_EMPTY = {"get_bufcount_byclient failed", "buffer count != 0",
                                      "bytes count != 0"};
constexpr count_texts GROUP_COUNTS = {"get_count_bygroup failed", "buffer count wrong",
                                      "bytes count wrong"};
constexpr count_texts GROUP_EMPTY = {"get_count_bygroup failed", "buffer count != 0",
                                     "bytes count != 0"};
// For the count when all packets are taken; sic.
constexpr count_texts GROUP_FULL = {"get_count_bygroup failed", "buffer count != 1",
                                    "bytes count != 512"};
constexpr count_texts TAG_COUNTS = {"get_bufcount_bytag failed", "buffer count mismatch",
                                    "bytes count mismatch"};
constexpr count_texts TAG_COUNTS_OF_ALL = {"NULL client get_bufcount_bytag failed",
                                           "buffer count mismatch", "bytes count mismatch"};

uint32_t register_client(kel_client *client, const char *name)
{
    return kel_register_client(client, name, KEL_ROLE_ACTIVE, 6);
}

uint32_t register_test_group(kel_client client, kel_bufgroup *group)
{
    return kel_register_bufgroup(client, group, GROUP_NAME);
}

const char *register_one_client(held_groups &held)
{
    CHECK_LOCATED(register_client(&held.clients[0], "client1") == 0, "register_client failed");
    return api_msg;
}

const char *register_two_clients(held_groups &held)
{
    CHECK_LOCATED(register_client(&held.clients[0], "client1") == 0, "register_client failed");
    CHECK_LOCATED(register_client(&held.clients[1], "client2") == 0, "register_client failed");
    return api_msg;
}

const char *register_client_and_group(held_groups &held)
{
    if (const char *message = register_one_client(held)) return message;
    CHECK_LOCATED(register_test_group(held.clients[0], &held.groups[0][0]) == 0,
                  "kel_register_bufgroup failed");
    return api_msg;
}

// The last step of cases that judge the deregistration of their client.
const char *deregister_client(held_groups &held)
{
    CHECK_LOCATED(kel_deregister_client(held.clients[0]) == 0, "deregister_client failed");
    held.clients[0] = 0;
    return api_msg;
}

// Judges a count. A failure is published with the caller's line.
const char *judge_count(uint32_t result, const counts &counted, const counts &expected,
                        const count_texts &texts, int line)
{
    if (result) return publish_located(texts.query_failed, line);
    if (counted.buffers != expected.buffers) return publish_located(texts.wrong_buffers, line);
    if (counted.bytes != expected.bytes) return publish_located(texts.wrong_bytes, line);
    api_msg = nullptr;
    return api_msg;
}

// The client must hold `buffers` buffers of `size` bytes.
const char *check_client_count(kel_client client, uint32_t buffers, uint32_t size,
                               const count_texts &texts, int line)
{
    counts counted = NOT_COUNTED;

    const uint32_t result = kel_get_bufcount_byclient(client, &counted.buffers, &counted.bytes);
    return judge_count(result, counted, {buffers, buffers * size}, texts, line);
}

// Client number `index` must see `buffers` elements taken from its group.
const char *check_group_count(const held_groups &held, uint32_t index, uint32_t buffers,
                              const count_texts &texts, int line)
{
    counts counted = NOT_COUNTED;

    const uint32_t result = kel_get_count_bygroup(held.clients[index], held.groups[index][0],
                                                  &counted.buffers, &counted.bytes);
    return judge_count(result, counted, {buffers, buffers * SMALL_SIZE}, texts, line);
}

// At least `buffers` elements must carry the tag.
const char *check_tag_count(kel_client client, uint32_t buffers, const count_texts &texts, int line)
{
    counts counted = {};

    const uint32_t result =
        kel_get_count_bytag(client, COUNTED_TAG, &counted.buffers, &counted.bytes);
    if (result) return publish_located(texts.query_failed, line);
    if (counted.buffers < buffers) return publish_located(texts.wrong_buffers, line);
    if (counted.bytes < buffers * SMALL_SIZE) return publish_located(texts.wrong_bytes, line);
    api_msg = nullptr;
    return api_msg;
}

bool has_client_count(kel_client client, uint32_t buffers, uint32_t bytes)
{
    counts counted = NOT_COUNTED;

    kel_get_bufcount_byclient(client, &counted.buffers, &counted.bytes);
    return counted.buffers == buffers && counted.bytes == bytes;
}

bool same_thresholds(const kel_bufgroup_thresholds &a, const kel_bufgroup_thresholds &b)
{
    return memcmp(&a, &b, sizeof(a)) == 0;
}

// The first `clients` clients share a group: each in its turn judges the count and takes a packet.
const char *take_packets(held_groups &held, uint32_t clients)
{
    for (uint32_t i = 0; i < PACKETS; i++) {
        const uint32_t turn = i % clients;
        if (const char *message = check_group_count(held, turn, i, GROUP_COUNTS, __LINE__)) {
            return message;
        }
        held.packets[i] =
            kel_get_packet(held.clients[turn], held.groups[turn][0], SMALL_SIZE, 1, nullptr);
        CHECK_LOCATED(held.packets[i] != 0, "kel_get_packet failed");
    }
    return api_msg;
}

// Each client in its turn judges the count before a packet is freed.
const char *free_packets(held_groups &held, uint32_t clients)
{
    for (uint32_t i = 0; i < PACKETS; i++) {
        if (const char *message =
                check_group_count(held, i % clients, PACKETS - i, GROUP_COUNTS, __LINE__)) {
            return message;
        }
        CHECK_LOCATED(kel_free_packet(held.packets[i]) == 0,
                      "kel_free_pkthdr failed"); // sic
        held.packets[i] = 0;
    }
    return api_msg;
}

const char *share_limited_group(held_groups &held,
                                uint32_t (*register_group)(kel_client, kel_bufgroup *))
{
    if (const char *message = register_two_clients(held)) return message;
    CHECK_LOCATED(register_group(held.clients[0], &held.groups[0][0]) == 0,
                  "kel_register_bufgroup failed");
    CHECK_LOCATED(register_group(held.clients[1], &held.groups[1][0]) == 0,
                  "kel_register_bufgroup failed");
    CHECK_LOCATED(held.groups[0][0] == held.groups[1][0], "group mismatch");
    CHECK_LOCATED(set_thresholds(held.clients[0], held.groups[0][0],
                                 {.max = MAX_BUFFERS, .low = LOW_BUFFERS, .high = HIGH_BUFFERS},
                                 {.max = MAX_BUFFERS * SMALL_SIZE,
                                  .low = LOW_BUFFERS * SMALL_SIZE,
                                  .high = HIGH_BUFFERS * SMALL_SIZE}) == 0,
                  "kel_bufgroup_set_params failed");
    return api_msg;
}

// Each pass begins by judging the allocation of the pass before.
const char *take_beyond_max(held_groups &held)
{
    uint32_t error = 0;

    for (uint32_t i = 0; i < PACKETS; i++) {
        if (i == HIGH_BUFFERS) {
            CHECK_LOCATED(error == KEL_HIGH_THRESHOLD_REACHED, "hi-thresh check");
        }
        if (i > MAX_BUFFERS) {
            CHECK_LOCATED(error == ENOBUFS, "max-thresh check");
        }
        held.packets[i] = kel_get_packet(held.clients[0], held.groups[0][0], SMALL_SIZE, 1, &error);
        if (error && error != KEL_HIGH_THRESHOLD_REACHED) continue;
        CHECK_LOCATED(held.packets[i] != 0, "kel_get_packet failed");
    }
    return api_msg;
}

const char *refuse_other_client(held_groups &held)
{
    uint32_t error = ERROR_NOT_STORED;

    held.buffer = kel_get_buffer(held.clients[1], held.groups[1][0], SMALL_SIZE, 1, &error);
    CHECK_LOCATED(held.buffer == 0, "buf != NULL");
    CHECK_LOCATED(error == ENOBUFS, "max-thresh check");
    return api_msg;
}

// Empty slots are freed, too. Only the free that comes down to the low mark is judged.
const char *free_to_low(held_groups &held)
{
    for (uint32_t i = 0; i < PACKETS; i++) {
        const uint32_t result = kel_free_packet(held.packets[i]);
        held.packets[i] = 0;
        if (i + 1 + LOW_BUFFERS == MAX_BUFFERS) {
            CHECK_LOCATED(result == KEL_LOW_THRESHOLD_REACHED, "low-thresh check");
        }
    }
    return api_msg;
}

} // namespace

void release_groups(held_groups &held)
{
    for (uint32_t i = 0; i < PACKETS; i++) {
        if (held.packets[i]) kel_free_packet(held.packets[i]);
    }
    if (held.buffer) free_buffer(held.buffer);
    for (uint32_t name = 0; name < NAMES; name++) {
        for (uint32_t i = MAX_CLIENTS; i-- > 0;) {
            if (held.groups[i][name]) {
                kel_deregister_bufgroup(held.clients[i], held.groups[i][name]);
            }
        }
    }
    if (held.tag) kel_deregister_tag(held.clients[0], held.tag);
    for (uint32_t i = 0; i < MAX_CLIENTS; i++) {
        cleanup_client(held.clients[i]);
    }
}

const char *threshold_steps(held_groups &held,
                            uint32_t (*register_group)(kel_client client, kel_bufgroup *group))
{
    if (const char *message = share_limited_group(held, register_group)) return message;
    if (const char *message = take_beyond_max(held)) return message;
    if (const char *message = refuse_other_client(held)) return message;
    return free_to_low(held);
}

CASE(kel_bufgroup, reg_bufgroup_null_client, with_groups)
{
    kel_bufgroup group = 0;

    CHECK_LOCATED(kel_register_bufgroup(0, &group, nullptr) == EINVAL,
                  "kel_register_bufgroup failed");
    return api_msg;
}

CASE(kel_bufgroup, reg_bufgroup_null_group, with_groups)
{
    if (const char *message = register_one_client(held)) return message;
    CHECK_LOCATED(kel_register_bufgroup(held.clients[0], nullptr, nullptr) == EINVAL,
                  "kel_register_bufgroup failed");
    return deregister_client(held);
}

CASE(kel_bufgroup, reg_bufgroup_null_name, with_groups)
{
    if (const char *message = register_one_client(held)) return message;
    CHECK_LOCATED(kel_register_bufgroup(held.clients[0], &held.groups[0][0], nullptr) == EINVAL,
                  "register bufgroup with NULL name");
    CHECK_LOCATED(kel_register_bufgroup(held.clients[0], &held.groups[0][0], "") == EINVAL,
                  "register bufgroup with empty string name");
    return api_msg;
}

CASE(kel_bufgroup, free_null_bufgroup, with_groups)
{
    if (const char *message = register_one_client(held)) return message;
    CHECK_LOCATED(kel_deregister_bufgroup(held.clients[0], 0) == EINVAL,
                  "kel_deregister_bufgroup failed");
    return deregister_client(held);
}

CASE(kel_bufgroup, get_null_input, with_groups)
{
    if (const char *message = register_one_client(held)) return message;
    CHECK_LOCATED(kel_get_bufcount_byclient(held.clients[0], nullptr, nullptr) == EINVAL,
                  "get_bufcount_byclient failed");
    return deregister_client(held);
}

CASE(kel_bufgroup, get_bufcount_byclient, with_groups)
{
    if (const char *message = register_one_client(held)) return message;
    const kel_client client = held.clients[0];
    for (uint32_t i = 0; i < PACKETS; i++) {
        if (const char *message =
                check_client_count(client, i, STANDARD_SIZE, CLIENT_COUNTS, __LINE__)) {
            return message;
        }
        CHECK_LOCATED(get_packet(client, STANDARD_SIZE, &held.packets[i]) == 0,
                      "get_packet failed");
    }
    for (uint32_t i = 0; i < PACKETS; i++) {
        if (const char *message =
                check_client_count(client, PACKETS - i, STANDARD_SIZE, CLIENT_COUNTS, __LINE__)) {
            return message;
        }
        CHECK_LOCATED(kel_free_packet(held.packets[i]) == 0, "free packet failed");
        held.packets[i] = 0;
    }
    return check_client_count(client, 0, STANDARD_SIZE, CLIENT_EMPTY, __LINE__);
}

CASE(kel_bufgroup, get_bufcount_byclient_noncont, with_groups)
{
    uint32_t error = ERROR_NOT_STORED;
    counts counted = {};

    CHECK_LOCATED(create_default_client(&held.clients[0]) == 0, "register_client failed");
    held.packets[0] = kel_get_packet(held.clients[0], 0, CHAIN_SIZE, 0, &error);
    CHECK_LOCATED(error == 0, "fail to get non-cont packet");
    CHECK_LOCATED(kel_get_length(held.packets[0]) == CHAIN_SIZE, "packet size mismatch");
    CHECK_LOCATED(kel_get_bufcount_byclient(held.clients[0], &counted.buffers, &counted.bytes) == 0,
                  "get_bufcount_byclient failed");
    CHECK_LOCATED(counted.buffers > 1, "buffer count <= 1");
    CHECK_LOCATED(counted.bytes == CHAIN_SIZE, "bytes count mismatch");
    CHECK_LOCATED(kel_free_packet(held.packets[0]) == 0, "free packet failed");
    held.packets[0] = 0;
    return check_client_count(held.clients[0], 0, CHAIN_SIZE, CLIENT_EMPTY, __LINE__);
}

// The packets stay in the client's queue until they are released.
CASE(kel_bufgroup, get_bufcount_bytag, with_groups)
{
    constexpr uint32_t SENT = 5;

    if (const char *message = register_one_client(held)) return message;
    const kel_client client = held.clients[0];
    CHECK_LOCATED(kel_register_tag(client, COUNTED_TAG) == 0, "kel_register_tag failed");
    held.tag = COUNTED_TAG;
    for (uint32_t i = 0; i < SENT; i++) {
        if (const char *message = check_tag_count(client, i, TAG_COUNTS, __LINE__)) {
            return message;
        }
        held.packets[i] = kel_get_packet(client, 0, SMALL_SIZE, 1, nullptr);
        CHECK_LOCATED(held.packets[i] != 0, "get_packet failed");
        CHECK_LOCATED(kel_set_tag(held.packets[i], COUNTED_TAG) == 0, "set_tag failed");
        CHECK_LOCATED(kel_send(client, held.packets[i]) == 0, "kel_send failed");
        wait_seconds(2);
    }
    return check_tag_count(0, SENT, TAG_COUNTS_OF_ALL, __LINE__);
}

// The deregistration of its client frees the packet, and with it the buffer.
CASE(kel_bufgroup, get_bufcount_add_trim, with_groups)
{
    uint32_t error = ERROR_NOT_STORED;

    CHECK_LOCATED(register_client(&held.clients[0], "clientA") == 0, "register_client A failed");
    CHECK_LOCATED(register_client(&held.clients[1], "clientB") == 0, "register_client B failed");
    const kel_packet packet = kel_get_packet(held.clients[0], 0, 200, 0, &error);
    CHECK_LOCATED(error == 0, "kel_get_packet failed");
    const kel_buffer buffer = kel_get_buffer(held.clients[1], 0, 5000, 0, &error);
    CHECK_LOCATED(buffer != 0, "kel_get_buffer failed");
    kel_append(packet, buffer);
    kel_add_head(packet, 1000);
    kel_add_tail(packet, 1000);
    kel_trim_head(packet, 1000);
    kel_trim_tail(packet, 1000);
    CHECK_LOCATED(has_client_count(held.clients[1], 1, 5000), "bufcount_byclient #1 failed");
    kel_coalesce(packet);
    CHECK_LOCATED(has_client_count(held.clients[1], 0, 0), "bufcount_byclient #2 failed");
    return api_msg;
}

CASE(kel_bufgroup, get_bufcount_bygroup, with_groups)
{
    if (const char *message = register_client_and_group(held)) return message;
    if (const char *message = check_group_count(held, 0, 0, GROUP_EMPTY, __LINE__)) {
        return message;
    }
    if (const char *message = take_packets(held, 1)) return message;
    if (const char *message = check_group_count(held, 0, PACKETS, GROUP_FULL, __LINE__)) {
        return message;
    }
    if (const char *message = free_packets(held, 1)) return message;
    return check_group_count(held, 0, 0, GROUP_EMPTY, __LINE__);
}

CASE(kel_bufgroup, mul_cli_get_bufcount_bygroup, with_groups)
{
    for (uint32_t i = 0; i < MAX_CLIENTS; i++) {
        CHECK_LOCATED(register_client(&held.clients[i], "client1") == 0, "register_client failed");
        CHECK_LOCATED(register_test_group(held.clients[i], &held.groups[i][0]) == 0,
                      "kel_register_bufgroup failed");
    }
    for (uint32_t i = 0; i < MAX_CLIENTS; i++) {
        CHECK_LOCATED(held.groups[i][0] == held.groups[(i + 1) % MAX_CLIENTS][0], "group mismatch");
    }
    for (uint32_t i = 0; i < MAX_CLIENTS; i++) {
        if (const char *message = check_group_count(held, i, 0, GROUP_EMPTY, __LINE__)) {
            return message;
        }
    }
    if (const char *message = take_packets(held, MAX_CLIENTS)) return message;
    if (const char *message = free_packets(held, MAX_CLIENTS)) return message;
    for (uint32_t i = 0; i < MAX_CLIENTS; i++) {
        if (const char *message = check_group_count(held, i, 0, GROUP_EMPTY, __LINE__)) {
            return message;
        }
    }
    return api_msg;
}

CASE(kel_bufgroup, reg_multi_group, with_groups)
{
    if (const char *message = register_two_clients(held)) return message;
    for (uint32_t i = 0; i < NAMES; i++) {
        char name[32] = {};
        snprintf(name, sizeof(name), "test group %d", static_cast<int>(i));
        CHECK_LOCATED(kel_register_bufgroup(held.clients[0], &held.groups[0][i], name) == 0,
                      "kel_register_bufgroup failed");
        CHECK_LOCATED(kel_register_bufgroup(held.clients[1], &held.groups[1][i], name) == 0,
                      "kel_register_bufgroup failed");
    }
    CHECK_LOCATED(memcmp(held.groups[0], held.groups[1], sizeof(held.groups[0])) == 0,
                  "bufgroup mismatch");
    return api_msg;
}

CASE(kel_bufgroup, set_unreg_group_params, with_groups)
{
    kel_bufgroup_thresholds buffers = {.max = 10, .low = 3, .high = 7};

    if (const char *message = register_two_clients(held)) return message;
    CHECK_LOCATED(register_test_group(held.clients[0], &held.groups[0][0]) == 0,
                  "kel_register_bufgroup failed");
    CHECK_LOCATED(
        kel_bufgroup_set_params(held.clients[1], held.groups[0][0], 2, &buffers, nullptr) == EINVAL,
        "un-registered bufgroup");
    return api_msg;
}

CASE(kel_bufgroup, set_get_params, with_groups)
{
    constexpr kel_bufgroup_thresholds BUFFERS = {.max = 10, .low = 3, .high = 7};
    constexpr kel_bufgroup_thresholds BYTES = {.max = 5120, .low = 1536, .high = 3584};
    kel_bufgroup_thresholds read_buffers = {};
    kel_bufgroup_thresholds read_bytes = {};
    uint32_t mask = 0xffffffff;

    if (const char *message = register_client_and_group(held)) return message;
    const kel_client client = held.clients[0];
    const kel_bufgroup group = held.groups[0][0];
    CHECK_LOCATED(kel_bufgroup_set_params(client, 0, 0, nullptr, nullptr) == EINVAL,
                  "kel_bufgroup_set_params failed");
    CHECK_LOCATED(kel_bufgroup_get_params(client, 0, nullptr, nullptr, nullptr) == EINVAL,
                  "kel_bufgroup_get_params failed");
    CHECK_LOCATED(kel_bufgroup_get_params(client, group, &mask, &read_buffers, &read_bytes) == 0 &&
                      mask == 0,
                  "kel_bufgroup_get_params failed");
    CHECK_LOCATED(set_thresholds(client, group, BUFFERS, BYTES) == 0,
                  "kel_bufgroup_set_params failed");
    CHECK_LOCATED(kel_bufgroup_get_params(client, group, &mask, &read_buffers, &read_bytes) == 0,
                  "kel_bufgroup_get_params failed");
    CHECK_LOCATED(same_thresholds(read_buffers, BUFFERS) && same_thresholds(read_bytes, BYTES),
                  "param mismatch");
    return api_msg;
}

CASE(kel_bufgroup, threshold_test, with_groups, threshold_steps(held, register_test_group))

// SPDX-License-Identifier: MIT
//
// Sending and receiving: refusals, full queues, transfer between two clients with a thread
// that sends, and deferred signals. The frame ends and joins the thread, frees the packets
// that are still held, the handle array and the data area, deregisters the sender, then the
// tag and its client.
//
// Threads end by returning: pthread_exit would make the C library load libgcc_s, which a
// device need not have.
#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include "fixtures/descriptor.h"
#include "fixtures/helper_thread.h"
#include "fixtures/pattern.h"
#include "kelapi/client.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "kelapi/role.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_send, null_client_send)

namespace {

constexpr uint32_t PACKET_LIMIT = 256;
constexpr kel_client UNKNOWN_CLIENT = 0xBEEF;

constexpr uint32_t LARGE_SIZE = 16384;
constexpr uint32_t SHORT_PATTERN_SIZE = 128;
constexpr kel_tag EXCHANGE_TAG = 128;

constexpr uint32_t SMALLEST_QUEUE = 8;

constexpr uint32_t DEFERRED_DEPTH = 32;
constexpr kel_tag DEFERRED_TAG = 1000;
constexpr uint32_t DEFAULT_THRESHOLD = DEFERRED_DEPTH - DEFERRED_DEPTH / 4;
constexpr uint32_t PROGRAMMED_THRESHOLD = 16;
constexpr uint32_t FLUSHED_PACKETS = 2;
constexpr int64_t DAEMON_MAY_FLUSH_AFTER = 20000; // microseconds
constexpr int64_t INTERVAL_AT_LEAST = 1999900;    // microseconds, of 2000 milliseconds

struct send_job {
    kel_client client;
    const kel_packet *packets;
    uint32_t count;
    uint32_t sent = 0;  // written by the thread, read once it is joined
    uint32_t ended = 0; // set to 1: no further try
};

struct send_objects {
    bool sending; // the thread is to be joined
    pthread_t thread;
    send_job job;
    kel_packet packets[PACKET_LIMIT];
    kel_packet received[PACKET_LIMIT];
    kel_packet *deferred; // DEFERRED_DEPTH handles, from calloc
    uint8_t *area;        // from malloc
    kel_client sender;
    kel_client client; // receives; sends to itself where there is no sender
    kel_tag tag;       // registered by `client`
    int32_t descriptor;
};

// Sends the job's packets in order, each again and again until it is accepted.
void *send_helper(void *argument)
{
    send_job *job = static_cast<send_job *>(argument);

    while (job->sent < job->count) {
        if (kel_send(job->client, job->packets[job->sent]) == 0) {
            job->sent++;
        } else if (__atomic_load_n(&job->ended, __ATOMIC_ACQUIRE)) {
            break;
        }
    }
    return nullptr;
}

// Ends the thread and forgets the packets that it sent: they are the receiver's.
void join_sender(send_objects &held)
{
    if (!held.sending) {
        return;
    }
    __atomic_store_n(&held.job.ended, 1, __ATOMIC_RELEASE);
    pthread_join(held.thread, nullptr);
    held.sending = false;
    for (uint32_t i = 0; i < held.job.sent; i++) {
        held.packets[i] = 0;
    }
}

void free_packets(const kel_packet *packets, uint32_t count)
{
    for (uint32_t i = 0; i < count; i++) {
        if (packets[i]) {
            kel_free_packet(packets[i]);
        }
    }
}

void release(send_objects &held)
{
    join_sender(held);
    free_packets(held.packets, PACKET_LIMIT);
    free_packets(held.received, PACKET_LIMIT);
    if (held.deferred) {
        free_packets(held.deferred, DEFERRED_DEPTH);
        free(held.deferred);
    }
    free(held.area);
    cleanup_client(held.sender);
    if (held.tag) kel_deregister_tag(held.client, held.tag);
    cleanup_client(held.client);
}

constexpr case_frame<send_objects> with_sender = {nullptr, release};

const char *register_tag(send_objects &held, kel_tag tag)
{
    CHECK_LOCATED(kel_register_tag(held.client, tag) == 0, "register_tag_failed");
    held.tag = tag;
    return nullptr;
}

const char *obtain_packet(kel_client client, uint32_t size, kel_tag tag, kel_packet *packet)
{
    *packet = kel_get_packet(client, 0, size, 1, nullptr);
    CHECK_LOCATED(*packet != 0, "get_packet failed");
    CHECK_LOCATED(kel_set_tag(*packet, tag) == 0, "set_tag failed");
    return nullptr;
}

// Fills the client's own queue; the packets remain in the record and are freed by the
// handles that were sent.
const char *overfill_own_queue(send_objects &held, kel_tag tag, uint32_t size)
{
    CHECK_LOCATED(kel_register_client(&held.client, "client 1", KEL_ROLE_ACTIVE, 1) == 0,
                  "kel_register_client failed");
    if (const char *message = register_tag(held, tag)) return message;
    CHECK_LOCATED(kel_recv(held.client) == 0, "kel_recv failed");
    for (uint32_t i = 0; i <= SMALLEST_QUEUE; i++) {
        if (const char *message = obtain_packet(held.client, size, tag, &held.packets[i])) {
            return message;
        }
    }
    for (uint32_t i = 0; i < SMALLEST_QUEUE; i++) {
        CHECK_LOCATED(kel_send(held.client, held.packets[i]) == 0, "kel_send failed");
    }
    CHECK_LOCATED(kel_send(held.client, held.packets[SMALLEST_QUEUE]) == EAGAIN, "kel_send failed");
    CHECK_LOCATED(kel_recv(held.client) != 0, "kel_recv failed");
    return nullptr;
}

// What two clients exchange: packets of two sizes in turn, filled with patterns that are
// seeded by their positions.
struct exchange_plan {
    uint32_t count;
    uint32_t even_size;
    uint32_t odd_size;
    uint32_t pattern_size = 0; // 0: the packet's size
    uint8_t contiguous = 0;
    bool length_checked = false;
};

uint32_t packet_size(const exchange_plan &plan, uint32_t position)
{
    return position % 2 == 0 ? plan.even_size : plan.odd_size;
}

uint32_t pattern_size(const exchange_plan &plan, uint32_t position)
{
    return plan.pattern_size ? plan.pattern_size : packet_size(plan, position);
}

const char *prepare_packets(send_objects &held, const exchange_plan &plan, uint8_t *area)
{
    for (uint32_t i = 0; i < plan.count; i++) {
        const uint32_t length = pattern_size(plan, i);

        held.packets[i] =
            kel_get_packet(held.sender, 0, packet_size(plan, i), plan.contiguous, nullptr);
        CHECK_LOCATED(held.packets[i] != 0, "get_packet failed");
        set_data(area, static_cast<int32_t>(length), i);
        CHECK_LOCATED(kel_set_data(held.packets[i], OFFSET_DATA, 0, area, length) == 0,
                      "set_data failed");
        memset(area, 0, length); // else a library that copies late is not caught
        CHECK_LOCATED(kel_set_tag(held.packets[i], EXCHANGE_TAG) == 0, "set_tag failed");
    }
    return nullptr;
}

const char *start_sender(send_objects &held, uint32_t count)
{
    held.job = {.client = held.sender, .packets = held.packets, .count = count};
    CHECK_LOCATED(start_helper_thread(&held.thread, send_helper, &held.job) == 0,
                  "pthread_create failed");
    held.sending = true;
    return nullptr;
}

const char *receive_packet(send_objects &held, uint32_t position)
{
    int32_t ready;
    do {
        ready = wait_for_descriptor(kel_getfd(held.client), DESCRIPTOR_READABLE, nullptr);
    } while (ready == 0);
    CHECK_LOCATED(ready > 0, "kel_recv_failed");
    held.received[position] = kel_recv(held.client);
    CHECK_LOCATED(held.received[position] != 0, "kel_recv_failed");
    return nullptr;
}

const char *verify_received(const send_objects &held, const exchange_plan &plan, uint32_t position,
                            uint8_t *area)
{
    const uint32_t expected = pattern_size(plan, position);
    uint32_t length = expected;

    CHECK_LOCATED(kel_get_data(held.received[position], OFFSET_DATA, 0, area, &length) == 0,
                  "kel_get_data failed");
    if (plan.length_checked) {
        CHECK_LOCATED(length == expected, "buf size mismatch");
    }
    CHECK_LOCATED(verify_data(area, static_cast<int32_t>(expected), position) == 0,
                  "verfify data failed"); // sic
    return nullptr;
}

const char *register_exchange_clients(send_objects &held)
{
    CHECK_LOCATED(kel_register_client(&held.sender, "client 1", KEL_ROLE_ACTIVE, 16) == 0,
                  "kel_register_client failed");
    CHECK_LOCATED(kel_register_client(&held.client, "client 2", KEL_ROLE_ACTIVE, 16) == 0,
                  "kel_register_client failed");
    return nullptr;
}

// Sends the packets from a thread and receives them here, in order. `area` holds one
// packet's pattern.
const char *exchange_packets(send_objects &held, const exchange_plan &plan, uint8_t *area)
{
    if (const char *message = prepare_packets(held, plan, area)) return message;
    if (const char *message = register_tag(held, EXCHANGE_TAG)) return message;
    if (const char *message = start_sender(held, plan.count)) return message;
    for (uint32_t i = 0; i < plan.count; i++) {
        if (const char *message = receive_packet(held, i)) return message;
        if (const char *message = verify_received(held, plan, i, area)) return message;
    }
    return nullptr;
}

const char *exchange_large_packets(send_objects &held, const exchange_plan &plan, size_t area_size)
{
    if (const char *message = register_exchange_clients(held)) return message;
    held.area = static_cast<uint8_t *>(malloc(area_size));
    CHECK_LOCATED(held.area != nullptr, "malloc failed");
    return exchange_packets(held, plan, held.area);
}

// Wraps round every 72 minutes.
uint32_t microseconds()
{
    struct timeval now = {};

    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec) * 1000000u + static_cast<uint32_t>(now.tv_usec);
}

// Whether less than `limit` passed between the two; not where the clock wrapped round.
bool passed_less_than(int64_t limit, uint32_t since, uint32_t now)
{
    const int64_t elapsed = static_cast<int64_t>(now) - static_cast<int64_t>(since);

    return elapsed >= 0 && elapsed < limit;
}

// `threshold` 0 leaves the default one.
const char *prepare_deferred(send_objects &held, uint32_t threshold)
{
    CHECK_LOCATED(kel_register_client(&held.client, "SrcClient", KEL_ROLE_ALWAYS, DEFERRED_DEPTH) ==
                      0,
                  "register_client failed");
    if (threshold) {
        CHECK_LOCATED(kel_set_sig_threshold(held.client, threshold) == 0,
                      "set_sig_threshold failed");
    }
    if (const char *message = register_tag(held, DEFERRED_TAG)) return message;
    held.deferred = static_cast<kel_packet *>(calloc(DEFERRED_DEPTH, sizeof(kel_packet)));
    CHECK_LOCATED(held.deferred != nullptr, "packet header calloc failed");
    held.descriptor = kel_getfd(held.client);
    CHECK_LOCATED(held.descriptor != -1, "getfd failed");
    return nullptr;
}

// Sends a packet that needs no signal to its own client and stores the time just before.
const char *send_deferred(send_objects &held, uint32_t position, uint32_t *sent_at)
{
    kel_packet *packet = &held.deferred[position];

    if (const char *message = obtain_packet(held.client, 128, DEFERRED_TAG, packet)) {
        return message;
    }
    CHECK_LOCATED(kel_pkt_no_sig_required(*packet, 1) == 0, "no_sig_required failed");
    *sent_at = microseconds();
    CHECK_LOCATED(kel_send(held.client, *packet) == 0, "send failed");
    return nullptr;
}

const char *wait_readable(const send_objects &held, struct timeval *timeout, bool *readable)
{
    const int32_t result = wait_for_descriptor(held.descriptor, DESCRIPTOR_READABLE, timeout);

    CHECK_LOCATED(result >= 0, "select failed");
    *readable = result > 0;
    return nullptr;
}

const char *poll_readable(const send_objects &held, bool *readable)
{
    struct timeval no_time = {};

    return wait_readable(held, &no_time, readable);
}

const char *receive_deferred(const send_objects &held, uint32_t count)
{
    for (uint32_t i = 0; i < count; i++) {
        CHECK_LOCATED(kel_recv(held.client) != 0, "kel_recv failed");
    }
    return nullptr;
}

// `threshold` 0 is the default one, checked only while the daemon cannot have flushed.
const char *check_threshold(send_objects &held, uint32_t threshold)
{
    const uint32_t due = threshold ? threshold : DEFAULT_THRESHOLD;
    uint32_t sent_at = 0;
    bool readable = false;

    if (const char *message = prepare_deferred(held, threshold)) return message;
    const uint32_t start = microseconds();
    for (uint32_t i = 0; i < DEFERRED_DEPTH; i++) {
        if (const char *message = send_deferred(held, i, &sent_at)) return message;
        if (const char *message = poll_readable(held, &readable)) return message;
        if (i >= due - 1) {
            CHECK_LOCATED(readable, "packets not signaled >= threshold");
        } else if (threshold || passed_less_than(DAEMON_MAY_FLUSH_AFTER, start, microseconds())) {
            CHECK_LOCATED(!readable, "packets signaled before threshold");
        }
    }
    return receive_deferred(held, DEFERRED_DEPTH);
}

// Stores the time just before the last send.
const char *send_to_be_flushed(send_objects &held, uint32_t *sent_at)
{
    bool readable = false;

    for (uint32_t i = 0; i < FLUSHED_PACKETS; i++) {
        if (const char *message = send_deferred(held, i, sent_at)) return message;
        if (const char *message = poll_readable(held, &readable)) return message;
        CHECK_LOCATED(!readable, "packets signaled before threshold");
    }
    return nullptr;
}

// Waits for the daemon to flush the packets, and takes them.
const char *receive_flushed(const send_objects &held, struct timeval timeout)
{
    bool readable = false;

    if (const char *message = wait_readable(held, &timeout, &readable)) return message;
    CHECK_LOCATED(readable, "packets not signaled via KELd flush");
    return receive_deferred(held, FLUSHED_PACKETS);
}

// The signal interval must pass before the daemon flushes.
const char *check_interval(const send_objects &held, uint32_t last)
{
    struct timeval timeout = {2, 0};
    bool readable = false;

    if (const char *message = wait_readable(held, &timeout, &readable)) return message;
    const uint32_t current = microseconds();
    if (passed_less_than(INTERVAL_AT_LEAST, last, current)) {
        printf("handle=%u, current=%llu, last=%llu, tv.usec=%d\n", held.client,
               static_cast<unsigned long long>(current), static_cast<unsigned long long>(last),
               static_cast<int>(timeout.tv_usec));
        CHECK_LOCATED(!readable, "packets signaled via KELd flush before time");
    }
    return nullptr;
}

} // namespace

CASE(kel_send, null_client_send, with_nothing)
{
    CHECK_LOCATED(kel_send(0, 0) != 0, "kel_send failed");
    return api_msg;
}

CASE(kel_send, null_buf_send, with_sender)
{
    CHECK_LOCATED(kel_register_client(&held.client, "client1", KEL_ROLE_ACTIVE, 6) == 0,
                  "register_client failed");
    CHECK_LOCATED(kel_send(held.client, 0) == EINVAL, "send failed");
    CHECK_LOCATED(kel_deregister_client(held.client) == 0, "deregister_client failed");
    held.client = 0;
    return api_msg;
}

CASE(kel_sendrecv, sendself, with_sender, overfill_own_queue(held, 123, 512))

CASE(kel_send, zero_byte_buf_send, with_sender)
{
    CHECK_LOCATED(kel_register_client(&held.client, "client 1", KEL_ROLE_ACTIVE, 1) == 0,
                  "kel_register_client failed");
    held.packets[0] = kel_get_packet(held.client, 0, 512, 1, nullptr);
    CHECK_LOCATED(held.packets[0] != 0, "get_packet failed");
    CHECK_LOCATED(kel_set_length(held.packets[0], 0) == 0, "set length");
    CHECK_LOCATED(kel_send(held.client, held.packets[0]) == EINVAL, "kel_send failed");
    return api_msg;
}

CASE(kel_sendrecv, jumbo, with_sender, overfill_own_queue(held, 700, JUMBO_SIZE))

CASE(kel_sendrecv, select_test, with_sender)
{
    static const exchange_plan plan = {.count = 256,
                                       .even_size = SMALL_SIZE,
                                       .odd_size = SMALL_SIZE,
                                       .pattern_size = SHORT_PATTERN_SIZE,
                                       .contiguous = 1};
    uint8_t area[SHORT_PATTERN_SIZE];

    if (const char *message = register_exchange_clients(held)) return message;
    return exchange_packets(held, plan, area);
}

CASE(kel_sendrecv, jumbo_mix, with_sender)
{
    static const exchange_plan plan = {
        .count = 50, .even_size = SMALL_SIZE, .odd_size = JUMBO_SIZE, .contiguous = 1};

    return exchange_large_packets(held, plan, JUMBO_SIZE);
}

CASE(kel_sendrecv, non_cont_sendrecv, with_sender)
{
    static const exchange_plan plan = {
        .count = 64, .even_size = LARGE_SIZE, .odd_size = LARGE_SIZE, .length_checked = true};

    return exchange_large_packets(held, plan, LARGE_SIZE);
}

CASE(kel_sendrecv, invalid_queue_empty, with_nothing)
{
    CHECK_LOCATED(kel_queue_is_empty(UNKNOWN_CLIENT) == EINVAL, "queue is not empty");
    return api_msg;
}

CASE(kel_sendrecv, is_queue_empty, with_sender)
{
    CHECK_LOCATED(kel_register_client(&held.client, "client1", KEL_ROLE_ACTIVE, 6) == 0,
                  "register_client failed");
    CHECK_LOCATED(kel_queue_is_empty(held.client) == 1, "queue is not empty");
    return api_msg;
}

CASE(kel_sendrecv, recv_via_queue_empty, with_sender)
{
    constexpr uint32_t COUNT = 6;

    CHECK_LOCATED(kel_register_client(&held.client, "client1", KEL_ROLE_ALWAYS, COUNT) == 0,
                  "register_client failed");
    if (const char *message = register_tag(held, 123)) return message;
    for (uint32_t i = 0; i < COUNT; i++) {
        if (const char *message = obtain_packet(held.client, 128, 123, &held.packets[i])) {
            return message;
        }
    }
    CHECK_LOCATED(kel_queue_is_empty(held.client) == 1, "queue is not empty");
    for (uint32_t i = 0; i < COUNT; i++) {
        CHECK_LOCATED(kel_send(held.client, held.packets[i]) == 0, "kel_send failed");
    }
    CHECK_LOCATED(kel_queue_is_empty(held.client) == 0, "queue is empty");
    while (kel_queue_is_empty(held.client) == 0) {
        CHECK_LOCATED(kel_recv(held.client) != 0, "kel_recv failed");
    }
    CHECK_LOCATED(kel_queue_is_empty(held.client) == 1, "queue is not empty");
    return api_msg;
}

CASE(kel_sendrecv, recv_no_sig, with_sender, check_threshold(held, 0))
CASE(kel_sendrecv, recv_no_sig_prog_thresh, with_sender,
     check_threshold(held, PROGRAMMED_THRESHOLD))

CASE(kel_sendrecv, recv_no_sig_flush, with_sender)
{
    uint32_t sent_at = 0;

    if (const char *message = prepare_deferred(held, PROGRAMMED_THRESHOLD)) return message;
    if (const char *message = send_to_be_flushed(held, &sent_at)) return message;
    return receive_flushed(held, {0, 30000});
}

CASE(kel_sendrecv, recv_no_sig_prog_flush, with_sender)
{
    uint32_t last = 0;

    if (const char *message = prepare_deferred(held, PROGRAMMED_THRESHOLD)) return message;
    CHECK_LOCATED(kel_set_client_signal_interval(held.client, 2000) == 0,
                  "set_client_sig_interval failed");
    if (const char *message = send_to_be_flushed(held, &last)) return message;
    if (const char *message = check_interval(held, last)) return message;
    return receive_flushed(held, {2, 0});
}

// SPDX-License-Identifier: MIT
//
// Events: arming and disarming, waits that poll, time out, block or are interrupted, and
// the conditions that fire events, often met by another thread. The frame ends and joins the
// thread, frees packets and buffer, deregisters tags, groups and clients.
//
// Threads end by returning: pthread_exit would make the C library load libgcc_s, which a
// device need not have.
#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>

#include "fixtures/descriptor.h"
#include "fixtures/helper_thread.h"
#include "fixtures/pattern.h"
#include "fixtures/wait.h"
#include "kelapi/buf.h"
#include "kelapi/bufgroup.h"
#include "kelapi/client.h"
#include "kelapi/event.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "kelapi/role.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_event, addremove_tag_event)

namespace {

constexpr uint32_t PACKET_LIMIT = 256;
constexpr uint32_t PATTERN_SIZE = 128;

constexpr uint32_t INVALID = 2989; // a type, an object and flags that do not exist
constexpr uint32_t BAD_HANDLE = 0xdeadbeef;
constexpr kel_tag TAG = 48;
constexpr kel_tag GENERIC_TAG = 98;
constexpr kel_tag NOT_REGISTERED_TAG = 56;
constexpr kel_tag FLOW_TAG = 128;
constexpr uint32_t SMALL_QUEUE = 4;
constexpr uint32_t GROUP_PACKETS = 10;

constexpr uint32_t GROUP_BOTH = KEL_EVENT_GROUP_LOW | KEL_EVENT_GROUP_HIGH;

constexpr suseconds_t RECEIVE_SLICE = 50000; // microseconds
constexpr uint32_t CLEAR_AGAIN_AFTER = 75;   // milliseconds

// A record that no wait stores.
constexpr kel_event NOT_STORED = {UINT32_MAX, UINT32_MAX, UINT32_MAX,
                                  UINT32_MAX, UINT32_MAX, UINT32_MAX};

struct event_job {
    kel_client client = 0;
    kel_packet *packets = nullptr;
    uint32_t count = 0;
    kel_tag tag = 0;
    uint32_t ended = 0; // set to 1: the thread gives up
};

struct event_objects {
    bool running; // the thread is to be joined
    pthread_t thread;
    event_job job;
    kel_packet packets[PACKET_LIMIT];
    kel_buffer buffer;
    kel_client tag_holder;
    kel_tag first_tag; // and the tag_count - 1 following ones
    uint32_t tag_count;
    kel_bufgroup group;
    kel_bufgroup second_group; // the second client's
    kel_client client;
    kel_client second_client;
};

void join_thread(event_objects &held)
{
    if (held.running) {
        pthread_join(held.thread, nullptr);
        held.running = false;
    }
}

void end_thread(event_objects &held)
{
    __atomic_store_n(&held.job.ended, 1, __ATOMIC_RELEASE);
    join_thread(held);
}

void release(event_objects &held)
{
    end_thread(held);
    for (kel_packet packet : held.packets) {
        if (packet) free_packet(packet);
    }
    if (held.buffer) free_buffer(held.buffer);
    for (uint32_t i = 0; i < held.tag_count; i++) {
        kel_deregister_tag(held.tag_holder, held.first_tag + i);
    }
    if (held.group) kel_deregister_bufgroup(held.client, held.group);
    if (held.second_group) kel_deregister_bufgroup(held.second_client, held.second_group);
    cleanup_client(held.client);
    cleanup_client(held.second_client);
}

constexpr case_frame<event_objects> with_events = {nullptr, release};

const char *register_first_client(event_objects &held)
{
    CHECK_LOCATED(kel_register_client(&held.client, "client1", KEL_ROLE_ACTIVE, 6) == 0,
                  "register_client failed");
    return nullptr;
}

const char *register_second_client(event_objects &held)
{
    CHECK_LOCATED(kel_register_client(&held.second_client, "client2", KEL_ROLE_ACTIVE, 6) == 0,
                  "register_client failed");
    return nullptr;
}

const char *register_client_of_depth(event_objects &held, uint32_t depth)
{
    CHECK_LOCATED(kel_register_client(&held.client, "client 1", KEL_ROLE_ACTIVE, depth) == 0,
                  "kel_register_client failed");
    return nullptr;
}

const char *register_clients_of_depth(event_objects &held, uint32_t depth)
{
    if (const char *message = register_client_of_depth(held, depth)) return message;
    CHECK_LOCATED(kel_register_client(&held.second_client, "client 2", KEL_ROLE_ACTIVE, depth) == 0,
                  "kel_register_client failed");
    return nullptr;
}

void hold_tag(event_objects &held, kel_client client, kel_tag tag)
{
    if (held.tag_count == 0) {
        held.first_tag = tag;
    }
    held.tag_holder = client;
    held.tag_count++;
}

const char *register_tag(event_objects &held, kel_client client, kel_tag tag)
{
    CHECK_LOCATED(kel_register_tag(client, tag) == 0, "register_tag_failed");
    hold_tag(held, client, tag);
    return nullptr;
}

bool prepare_packets(kel_client client, kel_packet *packets, uint32_t count, kel_tag tag)
{
    uint8_t area[PATTERN_SIZE];

    for (uint32_t i = 0; i < count; i++) {
        packets[i] = kel_get_packet(client, 0, SMALL_SIZE, 1, nullptr);
        if (!packets[i]) {
            return false;
        }
        set_data(area, sizeof(area), i);
        if (kel_set_data(packets[i], OFFSET_DATA, 0, area, sizeof(area)) != 0 ||
            kel_set_tag(packets[i], tag) != 0) {
            return false;
        }
    }
    return true;
}

// A client with its own packets in its full queue.
const char *fill_own_queue(event_objects &held)
{
    if (const char *message = register_client_of_depth(held, SMALL_QUEUE)) return message;
    if (const char *message = register_tag(held, held.client, TAG)) return message;
    CHECK_LOCATED(prepare_packets(held.client, held.packets, SMALL_QUEUE, TAG),
                  "get_packets failed");
    for (uint32_t i = 0; i < SMALL_QUEUE; i++) {
        CHECK_LOCATED(kel_send(held.client, held.packets[i]) == 0, "kel_send failed");
    }
    return nullptr;
}

const char *receive_packets(const event_objects &held, uint32_t count)
{
    for (uint32_t i = 0; i < count; i++) {
        CHECK_LOCATED(kel_recv(held.client) != 0, "kel_recv failed");
    }
    return nullptr;
}

const char *start_thread(event_objects &held, void *(*routine)(void *), const event_job &job)
{
    held.job = job;
    CHECK_LOCATED(start_helper_thread(&held.thread, routine, &held.job) == 0,
                  "pthread_create failed");
    held.running = true;
    return nullptr;
}

// The exceptional condition of the client's descriptor, which shows that an event is pending.
int32_t wait_via_select(kel_client client)
{
    return wait_for_descriptor(kel_getfd(client), DESCRIPTOR_EXCEPTIONAL, nullptr);
}

const char *wait_via_select_first(bool via_select, kel_client client)
{
    if (via_select) {
        CHECK_LOCATED(wait_via_select(client) > 0, "event_wait_via_select failed");
    }
    return nullptr;
}

bool is_ended(const event_job *job)
{
    return __atomic_load_n(&job->ended, __ATOMIC_ACQUIRE);
}

bool ended_within(const event_job *job, uint32_t milliseconds)
{
    constexpr uint32_t SLICE = 5;

    for (uint32_t waited = 0; waited < milliseconds && !is_ended(job); waited += SLICE) {
        wait_milliseconds(SLICE);
    }
    return is_ended(job);
}

// Waits without limit, in slices, so that a case that fails can end the thread.
bool wait_for_packet(const event_job *job)
{
    while (!is_ended(job)) {
        struct timeval slice = {0, RECEIVE_SLICE};

        if (wait_for_descriptor(kel_getfd(job->client), DESCRIPTOR_READABLE, &slice) > 0) {
            return true;
        }
    }
    return false;
}

struct cause_mismatch {
    uint32_t position;
    uint32_t cause;
};

// Receives a packet and returns its cause.
uint32_t receive_cause(const event_job *job)
{
    uint8_t area[PATTERN_SIZE];
    uint32_t length = sizeof(area);
    uint32_t cause = 0;
    const kel_packet packet = kel_recv(job->client);

    kel_get_data(packet, OFFSET_DATA, 0, area, &length);
    kel_get_cause(packet, &cause);
    return cause;
}

// Where `mismatches` is null, none is remembered. Returns false when the thread is to end.
bool receive_all(const event_job *job, cause_mismatch *mismatches, uint32_t *mismatch_count)
{
    for (uint32_t i = 0; i < job->count; i++) {
        if (!wait_for_packet(job)) {
            return false;
        }
        const uint32_t cause = receive_cause(job);
        if (cause == i) {
            continue;
        }
        if (recv_debug) {
            printf("%s: cause=%d, i=%d\n", "recv_helper", static_cast<int>(cause),
                   static_cast<int>(i));
        }
        if (mismatches) {
            mismatches[*mismatch_count] = {i, cause};
            (*mismatch_count)++;
        }
    }
    return true;
}

// Receives even where there is no memory for the list of mismatches: the sender waits for room.
void *recv_helper(void *argument)
{
    const event_job *job = static_cast<const event_job *>(argument);
    cause_mismatch *mismatches =
        static_cast<cause_mismatch *>(malloc(job->count * sizeof(cause_mismatch)));
    uint32_t mismatch_count = 0;

    if (!mismatches) {
        fprintf(stderr, "%s: malloc failure. Aborting\n", "recv_helper"); // sic
    }
    if (receive_all(job, mismatches, &mismatch_count)) {
        printf("%s: Complete %d\n", "recv_helper", static_cast<int>(job->count));
        for (uint32_t i = 0; i < mismatch_count; i++) {
            printf("%s: Corrupted packet@ %d, cause %d\n", "recv_helper",
                   static_cast<int>(mismatches[i].position), static_cast<int>(mismatches[i].cause));
        }
    }
    free(mismatches);
    return nullptr;
}

void *pkt_free_helper(void *argument)
{
    const event_job *job = static_cast<const event_job *>(argument);

    for (uint32_t i = 0; i < job->count; i++) {
        kel_free_packet(job->packets[i]);
        job->packets[i] = 0;
    }
    return nullptr;
}

// Clears until the main thread says that its wait returned: one that was held up before its wait
// has not heard of the first.
void *wait_interrupt_helper(void *argument)
{
    const event_job *job = static_cast<const event_job *>(argument);

    wait_seconds(1);
    do {
        kel_event_clear(job->client);
    } while (!ended_within(job, CLEAR_AGAIN_AFTER));
    return nullptr;
}

void *reg_tag_helper(void *argument)
{
    const event_job *job = static_cast<const event_job *>(argument);

    wait_seconds(1);
    kel_register_tag(job->client, job->tag);
    return nullptr;
}

kel_event make_event(uint32_t type, uint32_t object, uint32_t group_flags, uint32_t flags)
{
    return {.type = type,
            .flags = flags,
            .context1 = 0,
            .context2 = 0,
            .object = object,
            .group_flags = group_flags};
}

uint32_t add_event(kel_client client, kel_event event)
{
    return kel_event_add(client, &event);
}

uint32_t remove_event(kel_client client, kel_event event)
{
    return kel_event_remove(client, &event);
}

kel_event any_event(uint32_t type)
{
    return make_event(type, 0, 0, 0);
}

kel_event group_event(kel_bufgroup group, uint32_t group_flags)
{
    return make_event(KEL_EVENT_BUFGROUP, group, group_flags, 0);
}

kel_event tag_event(kel_tag tag, uint32_t flags)
{
    return make_event(KEL_EVENT_TAG, tag, 0, flags);
}

const char *register_group(kel_client client, kel_bufgroup *group)
{
    CHECK_LOCATED(kel_register_bufgroup(client, group, "test group") == 0,
                  "kel_register_bufgroup failed");
    return nullptr;
}

const char *refuse_to_add(const event_objects &held)
{
    CHECK_LOCATED(add_event(0, group_event(held.group, GROUP_BOTH)) == EINVAL, "invalid event");
    CHECK_LOCATED(add_event(held.client, any_event(INVALID)) == EINVAL, "invalid event");
    CHECK_LOCATED(add_event(held.client, any_event(KEL_EVENT_ALL)) == EINVAL, "invalid event");
    CHECK_LOCATED(add_event(held.client, any_event(KEL_EVENT_ALL)) == EINVAL, "invalid type");
    CHECK_LOCATED(add_event(held.client, any_event(KEL_EVENT_BUFGROUP)) == EINVAL, "invalid args");
    CHECK_LOCATED(add_event(held.client, group_event(INVALID, GROUP_BOTH)) == EINVAL,
                  "invalid group");
    CHECK_LOCATED(add_event(held.client, group_event(held.group, INVALID)) == EINVAL,
                  "invalid group_flags");
    return nullptr;
}

const char *add_and_remove_group_event(const event_objects &held)
{
    CHECK_LOCATED(add_event(held.client, group_event(held.group, GROUP_BOTH)) == 0,
                  "valid bufgroup event");
    CHECK_LOCATED(remove_event(held.client, group_event(held.group, GROUP_BOTH)) == 0,
                  "valid bufgroup event");
    CHECK_LOCATED(remove_event(held.client, group_event(INVALID, GROUP_BOTH)) == EINVAL,
                  "invalid bufgroup");
    CHECK_LOCATED(remove_event(held.client, any_event(INVALID)) == EINVAL, "invalid event type");
    CHECK_LOCATED(remove_event(held.client, group_event(held.group, INVALID)) == EINVAL,
                  "invalid group flag");
    CHECK_LOCATED(remove_event(held.client, any_event(KEL_EVENT_ALL)) == 0, "remove all event");
    return nullptr;
}

const char *add_tag_events(const event_objects &held)
{
    CHECK_LOCATED(add_event(held.client, tag_event(GENERIC_TAG, INVALID)) == EINVAL,
                  "event flag != 0");
    CHECK_LOCATED(add_event(held.client, tag_event(NOT_REGISTERED_TAG, 0)) == EINVAL,
                  "tag not registered");
    CHECK_LOCATED(add_event(held.client, tag_event(GENERIC_TAG, 0)) == 0, "valid tag event");
    CHECK_LOCATED(add_event(held.client, make_event(KEL_EVENT_TAG_REGISTERED, GENERIC_TAG, 0, 0)) ==
                      0,
                  "valid tag event");
    CHECK_LOCATED(remove_event(held.client, tag_event(GENERIC_TAG, INVALID)) == EINVAL,
                  "invalid event_flags");
    return nullptr;
}

// A sender that is refused waits for a tag event; another thread receives.
struct flow_plan {
    const char *name;
    uint32_t depth;
    uint32_t count;
    uint32_t context1;
    uint32_t context2 = 0;
    // Stores the event and whether one was reported: if not, the send is only tried again.
    const char *(*wait)(kel_client client, kel_event *event, bool *reported);
};

const char *wait_without_limit(kel_client client, kel_event *event, bool *reported)
{
    CHECK_LOCATED(kel_event_wait(client, event, nullptr) == 0, "event wait failed");
    *reported = true;
    return nullptr;
}

const char *wait_without_limit_via_select(kel_client client, kel_event *event, bool *reported)
{
    if (const char *message = wait_via_select_first(true, client)) return message;
    return wait_without_limit(client, event, reported);
}

const char *wait_briefly(kel_client client, kel_event *event, bool *reported)
{
    struct timeval briefly = {0, 2};

    *reported = kel_event_wait(client, event, &briefly) == 0 && event->type != KEL_EVENT_NONE;
    return nullptr;
}

uint32_t poll_event(kel_client client, kel_event *event)
{
    struct timeval no_time = {};

    *event = NOT_STORED;
    return kel_event_wait(client, event, &no_time);
}

const char *wait_for_room(const event_objects &held, const flow_plan &plan)
{
    kel_event event = NOT_STORED;
    bool reported = false;

    if (const char *message = plan.wait(held.client, &event, &reported)) return message;
    if (!reported) {
        return nullptr;
    }
    CHECK_LOCATED(event.context1 == plan.context1 && event.context2 == plan.context2,
                  "context mismatch");
    CHECK_LOCATED(kel_event_add_tag(held.client, FLOW_TAG, plan.context1, plan.context2) == 0,
                  "add_tag_event failed");
    return nullptr;
}

const char *send_with_flow_control(const event_objects &held, const flow_plan &plan)
{
    for (uint32_t i = 0; i < plan.count; i++) {
        kel_set_cause(held.packets[i], i);
        while (kel_send(held.client, held.packets[i]) != 0) {
            printf("%s: send failed for index %d\n", plan.name, static_cast<int>(i));
            if (const char *message = wait_for_room(held, plan)) return message;
        }
    }
    return nullptr;
}

const char *check_flow_control(event_objects &held, const flow_plan &plan)
{
    if (const char *message = register_clients_of_depth(held, plan.depth)) return message;
    CHECK_LOCATED(prepare_packets(held.client, held.packets, plan.count, FLOW_TAG),
                  "get_packets failed");
    if (const char *message = register_tag(held, held.second_client, FLOW_TAG)) return message;
    if (const char *message =
            start_thread(held, recv_helper, {.client = held.second_client, .count = plan.count})) {
        return message;
    }
    CHECK_LOCATED(kel_event_add_tag(held.client, FLOW_TAG, plan.context1, plan.context2) == 0,
                  "event_add_tag failed");
    if (const char *message = send_with_flow_control(held, plan)) return message;
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "event_clear failed");
    join_thread(held);
    return nullptr;
}

const char *share_group(event_objects &held)
{
    if (const char *message = register_first_client(held)) return message;
    if (const char *message = register_second_client(held)) return message;
    if (const char *message = register_group(held.client, &held.group)) return message;
    if (const char *message = register_group(held.second_client, &held.second_group)) {
        return message;
    }
    CHECK_LOCATED(held.group == held.second_group, "group mismatch");
    CHECK_LOCATED(set_thresholds(held.client, held.group, {.max = 5, .low = 1, .high = 4},
                                 {.max = 2560, .low = 512, .high = 2048}) == 0,
                  "kel_bufgroup_set_params failed");
    return nullptr;
}

const char *exhaust_group(event_objects &held)
{
    uint32_t error = UINT32_MAX;

    for (uint32_t i = 1; i <= GROUP_PACKETS; i++) {
        error = UINT32_MAX;
        held.packets[i - 1] = kel_get_packet(held.client, held.group, SMALL_SIZE, 1, &error);
        if (i == 4) {
            CHECK_LOCATED(error == KEL_HIGH_THRESHOLD_REACHED, "hi-thresh check");
        } else if (i >= 6 && i <= 9) {
            CHECK_LOCATED(error == ENOBUFS, "max-thresh check");
        }
    }
    error = UINT32_MAX;
    held.buffer = kel_get_buffer(held.client, held.group, SMALL_SIZE, 1, &error);
    CHECK_LOCATED(held.buffer == 0 && error == ENOBUFS, "buf != NULL");
    return nullptr;
}

const char *check_bufgroup_event(event_objects &held, bool via_select)
{
    kel_event event = NOT_STORED;

    if (const char *message = share_group(held)) return message;
    if (const char *message = exhaust_group(held)) return message;
    CHECK_LOCATED(kel_event_add_bufgroup(held.client, held.group, GROUP_BOTH, held.group, 0) == 0,
                  "event_add_bufgroup failed");
    if (const char *message = start_thread(held, pkt_free_helper,
                                           {.packets = held.packets, .count = GROUP_PACKETS})) {
        return message;
    }
    if (const char *message = wait_via_select_first(via_select, held.client)) return message;
    CHECK_LOCATED(kel_event_wait(held.client, &event, nullptr) == 0, "event_wait failed");
    CHECK_LOCATED(event.context1 == held.group && event.context2 == 0, "context mismatch");
    return nullptr;
}

const char *add_tag_registered_event(const event_objects &held)
{
    CHECK_LOCATED(add_event(held.client, make_event(KEL_EVENT_TAG_REGISTERED, TAG, 0, 0)) == 0,
                  "valid tag event");
    return nullptr;
}

const char *wait_tag_registered(const event_objects &held, bool via_select, kel_event *event)
{
    *event = NOT_STORED;
    if (const char *message = wait_via_select_first(via_select, held.client)) return message;
    CHECK_LOCATED(kel_event_wait(held.client, event, nullptr) == 0, "wait_event failed");
    CHECK_LOCATED(event->type == KEL_EVENT_TAG_REGISTERED, "event type check");
    return nullptr;
}

const char *check_registered_tag(event_objects &held, bool via_select)
{
    kel_event event;

    if (const char *message = register_client_of_depth(held, 16)) return message;
    if (const char *message = register_tag(held, held.client, TAG)) return message;
    if (const char *message = add_tag_registered_event(held)) return message;
    if (const char *message = wait_tag_registered(held, via_select, &event)) return message;
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "event clear failed");
    return nullptr;
}

const char *check_unregistered_tag(event_objects &held, bool via_select)
{
    kel_event event;

    if (const char *message = register_clients_of_depth(held, 16)) return message;
    if (const char *message = add_tag_registered_event(held)) return message;
    if (const char *message =
            start_thread(held, reg_tag_helper, {.client = held.second_client, .tag = TAG})) {
        return message;
    }
    hold_tag(held, held.second_client, TAG);
    if (const char *message = wait_tag_registered(held, via_select, &event)) return message;
    CHECK_LOCATED(event.object == TAG, "event tag check");
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "event_clear failed");
    return nullptr;
}

} // namespace

CASE(kel_event, addremove_tag_event, with_events)
{
    if (const char *message = register_first_client(held)) return message;
    if (const char *message = register_second_client(held)) return message;
    for (kel_tag tag = 700; tag <= 702; tag++) {
        if (const char *message = register_tag(held, held.client, tag)) return message;
    }
    CHECK_LOCATED(kel_event_add_tag(0, 700, 700, 0) == EINVAL, "invalid add tag event");
    CHECK_LOCATED(kel_event_add_tag(held.client, 100, 100, 0) == EINVAL, "invalid add tag event");
    CHECK_LOCATED(kel_event_add_tag(held.client, 700, 700, 0) == 0, "add tag event failed");
    CHECK_LOCATED(kel_event_remove_tag(held.client, 700) == 0, "remove tag event");
    CHECK_LOCATED(kel_event_add_tag(held.client, 701, 701, 0) == 0, "add tag event failed");
    CHECK_LOCATED(kel_event_add_tag(held.client, 702, 702, 0) == 0, "add tag event failed");
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "add tag event failed"); // sic
    return api_msg;
}

CASE(kel_event, addremove_bufgroup_event, with_events)
{
    if (const char *message = register_first_client(held)) return message;
    if (const char *message = register_group(held.client, &held.group)) return message;
    const kel_client client = held.client;
    const kel_bufgroup group = held.group;
    CHECK_LOCATED(kel_event_add_bufgroup(0, group, 3, 1, 0) == EINVAL, "null client");
    CHECK_LOCATED(kel_event_add_bufgroup(client, 0, 3, 1, 0) == EINVAL, "null group");
    CHECK_LOCATED(kel_event_add_bufgroup(client, group, 3, 1, 0) == 0, "add bufgroup event failed");
    CHECK_LOCATED(kel_event_add_bufgroup(client, group, 2, 2, 0) == 0, "add bufgroup event failed");
    CHECK_LOCATED(kel_event_add_bufgroup(client, group, 1, 3, 0) == 0, "add bufgroup event failed");
    CHECK_LOCATED(kel_event_add_bufgroup(client, group, BAD_HANDLE, 4, 0) != 0,
                  "add bufgroup event failed");
    CHECK_LOCATED(kel_event_add_bufgroup(client, 0, BAD_HANDLE, 5, 0) != 0,
                  "add bufgroup event failed");
    // sic, twice
    CHECK_LOCATED(kel_event_remove_bufgroup(client, group, 1) == 0, "add bufgroup event failed");
    CHECK_LOCATED(kel_event_remove_bufgroup(client, group, 3) == 0, "add bufgroup event failed");
    CHECK_LOCATED(kel_event_clear(0) == EINVAL, "invalid clear event");
    CHECK_LOCATED(kel_event_clear(client) == 0, "clear event failed");
    return api_msg;
}

CASE(kel_event, generic_addremove_event, with_events)
{
    if (const char *message = register_first_client(held)) return message;
    if (const char *message = register_group(held.client, &held.group)) return message;
    if (const char *message = register_tag(held, held.client, GENERIC_TAG)) return message;
    if (const char *message = refuse_to_add(held)) return message;
    if (const char *message = add_and_remove_group_event(held)) return message;
    if (const char *message = add_tag_events(held)) return message;
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "clear event");
    return api_msg;
}

CASE(kel_event, invalid_wait, with_events)
{
    struct timeval timeout = {1, 0};
    kel_event event = NOT_STORED;

    if (const char *message = register_client_of_depth(held, 16)) return message;
    if (const char *message = register_tag(held, held.client, TAG)) return message;
    CHECK_LOCATED(kel_event_wait(0, &event, &timeout) == EINVAL, "null client wait");
    CHECK_LOCATED(kel_event_wait(0, &event, nullptr) == EINVAL, "null client wait");
    return api_msg;
}

CASE(kel_event, wait_poll, with_events)
{
    constexpr uint32_t CONTEXT1 = 0x27182818;
    constexpr uint32_t CONTEXT2 = 0x28459045;
    kel_event event;

    if (const char *message = fill_own_queue(held)) return message;
    CHECK_LOCATED(kel_event_add_tag(held.client, TAG, CONTEXT1, CONTEXT2) == 0,
                  "event_add_tag failed");
    CHECK_LOCATED(poll_event(held.client, &event) == 0, "wait_event failed");
    CHECK_LOCATED(event.type == KEL_EVENT_NONE, "event_type != timeout");
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "event clear failed");

    if (const char *message = receive_packets(held, 1)) return message;
    CHECK_LOCATED(kel_event_add_tag(held.client, TAG, CONTEXT1, CONTEXT2) == 0,
                  "event_add_tag failed");
    CHECK_LOCATED(poll_event(held.client, &event) == 0, "wait_event failed");
    CHECK_LOCATED(event.context1 == CONTEXT1 && event.context2 == CONTEXT2, "context mismatch");
    CHECK_LOCATED(event.type != KEL_EVENT_NONE, "wait timeout");
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "event clear failed");
    return receive_packets(held, SMALL_QUEUE - 1);
}

CASE(kel_event, wait_timeout, with_events)
{
    struct timeval timeout = {1, 0};
    kel_event event = NOT_STORED;

    if (const char *message = fill_own_queue(held)) return message;
    CHECK_LOCATED(kel_event_add_tag(held.client, TAG, TAG, 0) == 0, "event_add_tag failed");
    CHECK_LOCATED(kel_event_wait(held.client, &event, &timeout) == 0, "wait_event failed");
    CHECK_LOCATED(event.type == KEL_EVENT_NONE, "wait timeout");
    CHECK_LOCATED(kel_event_clear(held.client) == 0, "event clear failed");
    return receive_packets(held, SMALL_QUEUE);
}

CASE(kel_event, wait_tag_event, with_events)
{
    static const flow_plan plan = {.name = "kel_event_wait_tag_event",
                                   .depth = 200,
                                   .count = 200,
                                   .context1 = FLOW_TAG,
                                   .wait = wait_without_limit};

    return check_flow_control(held, plan);
}

CASE(kel_event, wait_tag_event_via_select, with_events)
{
    constexpr uint64_t CONTEXT = 0x3141592653589793;
    static const flow_plan plan = {.name = "kel_event_wait_tag_event_via_select",
                                   .depth = 16,
                                   .count = 256,
                                   .context1 = static_cast<uint32_t>(CONTEXT >> 32),
                                   .context2 = static_cast<uint32_t>(CONTEXT),
                                   .wait = wait_without_limit_via_select};

    return check_flow_control(held, plan);
}

CASE(kel_event, wait_tag_event_timeout, with_events)
{
    static const flow_plan plan = {.name = "kel_event_wait_tag_event_timeout",
                                   .depth = 16,
                                   .count = 256,
                                   .context1 = FLOW_TAG,
                                   .wait = wait_briefly};

    return check_flow_control(held, plan);
}

CASE(kel_event, wait_bufgroup_event, with_events, check_bufgroup_event(held, false))
CASE(kel_event, wait_bufgroup_event_via_select, with_events, check_bufgroup_event(held, true))

CASE(kel_event, wait_interrupt, with_events)
{
    kel_event event = NOT_STORED;

    if (const char *message = fill_own_queue(held)) return message;
    CHECK_LOCATED(kel_event_add_tag(held.client, TAG, TAG, 0) == 0, "event_add_tag failed");
    if (const char *message = start_thread(held, wait_interrupt_helper, {.client = held.client})) {
        return message;
    }
    const uint32_t result = kel_event_wait(held.client, &event, nullptr);
    end_thread(held);
    CHECK_LOCATED(result == EINTR, "wait interrupted");
    return receive_packets(held, SMALL_QUEUE);
}

CASE(kel_event, wait_registered_tag, with_events, check_registered_tag(held, false))
CASE(kel_event, wait_registered_tag_via_select, with_events, check_registered_tag(held, true))
CASE(kel_event, wait_unregistered_tag, with_events, check_unregistered_tag(held, false))
CASE(kel_event, wait_unregis_tag_via_select, with_events, check_unregistered_tag(held, true))

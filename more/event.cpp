// SPDX-License-Identifier: MIT
//
// Events that are armed by a record, and removed. The record is overwritten after the call: the
// event has to have the contexts that it was armed with. Waits poll; none lasts.
#include <string.h>
#include <sys/time.h>

#include "fixtures/descriptor.h"
#include "kelapi/bufgroup.h"
#include "kelapi/client.h"
#include "kelapi/event.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_event, tag_with_room)

namespace {

constexpr kel_tag TAG = 601;
constexpr uint32_t DEPTH = 8; // of the smallest queue
constexpr uint32_t CONTEXT1 = 0x1234;
constexpr uint32_t CONTEXT2 = 0x5678;
constexpr uint32_t GROUP_BOTH = KEL_EVENT_GROUP_LOW | KEL_EVENT_GROUP_HIGH;
constexpr kel_bufgroup_thresholds THRESHOLDS = {4, 1, 3}; // max, low, high

struct event_objects {
    kel_event record;          // as passed
    kel_packet packets[DEPTH]; // sent ones, too, until they are freed
    kel_tag tag;
    kel_bufgroup group;
    kel_client client; // sends to itself
};

const char *register_client(event_objects &held)
{
    return must_work(kel_register_client(&held.client, "more events", 0, DEPTH));
}

const char *register_client_and_tag(event_objects &held)
{
    if (const char *failure = register_client(held)) return failure;
    if (uint32_t error = kel_register_tag(held.client, TAG)) return error_text(error);
    held.tag = TAG;
    return nullptr;
}

const char *register_client_and_group(event_objects &held)
{
    kel_bufgroup_thresholds passed = THRESHOLDS;

    if (const char *failure = register_client(held)) return failure;
    if (uint32_t error = kel_register_bufgroup(held.client, &held.group, "more group")) {
        return error_text(error);
    }
    return must_work(
        kel_bufgroup_set_params(held.client, held.group, KEL_BUFGROUP_BUFFERS, &passed, nullptr));
}

void release(event_objects &held)
{
    for (const kel_packet packet : held.packets) {
        if (packet) free_packet(packet);
    }
    if (held.client) kel_event_clear(held.client);
    if (held.tag) kel_deregister_tag(held.client, held.tag);
    if (held.group) kel_deregister_bufgroup(held.client, held.group);
    cleanup_client(held.client);
}

constexpr case_frame<event_objects> with_tag = {register_client_and_tag, release};
constexpr case_frame<event_objects> with_group = {register_client_and_group, release};

const char *arm(event_objects &held, uint32_t type, uint32_t object, uint32_t group_flags)
{
    held.record = {type, 0, CONTEXT1, CONTEXT2, object, group_flags};
    const uint32_t error = kel_event_add(held.client, &held.record);
    memset(&held.record, 0, sizeof(held.record));
    return error ? "kel_event_add failed" : nullptr;
}

uint32_t poll_event(kel_client client, kel_event *event)
{
    struct timeval at_once = {0, 0};

    memset(event, 0xff, sizeof(*event));
    return kel_event_wait(client, event, &at_once);
}

const char *expect_none(const event_objects &held, const char *reported)
{
    kel_event event;

    if (poll_event(held.client, &event)) return "kel_event_wait failed";
    return event.type == KEL_EVENT_NONE ? nullptr : reported;
}

// The type of a group's event is the library's choice.
const char *expect_event(const event_objects &held, uint32_t object)
{
    kel_event event;

    if (poll_event(held.client, &event)) return "kel_event_wait failed";
    if (event.type == KEL_EVENT_NONE) return "the event was not reported";
    if (event.object != object) return "the event is another object's";
    const bool are_contexts_kept = event.context1 == CONTEXT1 && event.context2 == CONTEXT2;
    return are_contexts_kept ? nullptr : "wrong contexts";
}

const char *fill_queue(event_objects &held)
{
    for (kel_packet &packet : held.packets) {
        if (uint32_t error = get_packet(held.client, SMALL_SIZE, &packet)) return error_text(error);
        if (kel_set_tag(packet, TAG)) return "kel_set_tag failed";
        if (kel_send(held.client, packet)) return "kel_send failed";
    }
    return nullptr;
}

// Up to the maximum: which threshold a flag stands for is the library's choice.
const char *fill_group(event_objects &held)
{
    for (uint32_t i = 0; i < THRESHOLDS.max; i++) {
        held.packets[i] = kel_get_packet(held.client, held.group, SMALL_SIZE, 1, nullptr);
        if (!held.packets[i]) return "kel_get_packet failed";
    }
    return nullptr;
}

// An event that is armed while the queue is full, and removed before there is room.
const char *remove_tag_event(event_objects &held, uint32_t (*remove)(kel_client client))
{
    if (const char *message = fill_queue(held)) return message;
    if (const char *message = arm(held, KEL_EVENT_TAG, TAG, 0)) return message;
    if (remove(held.client)) return "the event was not removed";
    if (!kel_recv(held.client)) return "kel_recv failed";
    return expect_none(held, "a removed event was reported");
}

uint32_t remove_by_record(kel_client client)
{
    kel_event record = {KEL_EVENT_TAG, 0, CONTEXT1, CONTEXT2, TAG, 0};

    return kel_event_remove(client, &record);
}

uint32_t remove_by_tag(kel_client client)
{
    return kel_event_remove_tag(client, TAG);
}

} // namespace

CASE(kel_more_event, tag_with_room, with_tag)
{
    if (const char *message = arm(held, KEL_EVENT_TAG, TAG, 0)) return message;
    return expect_event(held, TAG);
}

CASE(kel_more_event, tag_while_full, with_tag)
{
    if (const char *message = fill_queue(held)) return message;
    if (const char *message = arm(held, KEL_EVENT_TAG, TAG, 0)) return message;
    if (const char *message = expect_none(held, "an event while the queue is full")) return message;
    if (!kel_recv(held.client)) return "kel_recv failed";
    return expect_event(held, TAG);
}

CASE(kel_more_event, bufgroup, with_group)
{
    if (const char *message = arm(held, KEL_EVENT_BUFGROUP, held.group, GROUP_BOTH)) return message;
    if (const char *message = fill_group(held)) return message;
    return expect_event(held, held.group);
}

CASE(kel_more_event, reported_once, with_tag)
{
    if (const char *message = arm(held, KEL_EVENT_TAG, TAG, 0)) return message;
    if (const char *message = expect_event(held, TAG)) return message;
    return expect_none(held, "the event was reported again");
}

CASE(kel_more_event, exceptional_ends, with_tag)
{
    struct timeval a_second = {1, 0};
    struct timeval at_once = {0, 0};
    const int32_t descriptor = kel_getfd(held.client);

    // The system may grant none.
    if (descriptor < 0) return skip_case();
    if (const char *message = arm(held, KEL_EVENT_TAG, TAG, 0)) return message;
    if (wait_for_descriptor(descriptor, DESCRIPTOR_EXCEPTIONAL, &a_second) <= 0) {
        return "a pending event raises no exceptional condition";
    }
    if (const char *message = expect_event(held, TAG)) return message;
    return wait_for_descriptor(descriptor, DESCRIPTOR_EXCEPTIONAL, &at_once)
               ? "the exceptional condition outlasts the event"
               : nullptr;
}

CASE(kel_more_event, removed, with_tag, remove_tag_event(held, remove_by_record))
CASE(kel_more_event, removed_tag, with_tag, remove_tag_event(held, remove_by_tag))

CASE(kel_more_event, removed_bufgroup, with_group)
{
    if (const char *message = arm(held, KEL_EVENT_BUFGROUP, held.group, GROUP_BOTH)) return message;
    if (kel_event_remove_bufgroup(held.client, held.group, GROUP_BOTH)) {
        return "the event was not removed";
    }
    if (const char *message = fill_group(held)) return message;
    return expect_none(held, "a removed event was reported");
}

// SPDX-License-Identifier: MIT
//
// Events: armed in a client's list, and found from their object through the watchers; fired
// into the client's list of pending ones, which its descriptor and its waits show.

#include "reference/event.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include "reference/bufgroup.h"
#include "reference/caller_memory.h"
#include "reference/client.h"
#include "reference/faults/inside.h"
#include "reference/operations.h"
#include "reference/options.h"
#include "reference/tag.h"

namespace kel_reference {

namespace {

event_key key_of(const kel_event &event)
{
    return {event.type, event.object};
}

// Whether both are one and the same registration, with other contexts perhaps.
bool is_same(const kel_event &left, const kel_event &right)
{
    return key_of(left) == key_of(right) && left.group_flags == right.group_flags;
}

void disarm(state &library, client_object &client, std::list<kel_event>::iterator event)
{
    const event_key key = key_of(*event);
    client.events.erase(event);
    const bool watches_still = std::ranges::any_of(
        client.events, [&](const kel_event &each) { return key_of(each) == key; });
    const auto watchers = library.watchers.find(key);
    if (watches_still || watchers == library.watchers.end()) return;
    watchers->second.erase(&client);
    if (watchers->second.empty()) library.watchers.erase(watchers);
}

// Drops the event, armed or pending. False when it is neither.
bool drop(state &library, client_object &client, const kel_event &event)
{
    const auto is_it = [&](const kel_event &each) { return is_same(each, event); };
    if (std::erase_if(client.pending_events, is_it) > 0) return true;
    const auto armed = std::ranges::find_if(client.events, is_it);
    if (armed == client.events.end()) return false;
    disarm(library, client, armed);
    return true;
}

void drop_all(state &library, client_object &client)
{
    while (!client.events.empty()) disarm(library, client, client.events.begin());
    client.pending_events.clear();
}

// Fires all armed events of that type and object for which `is_due(event)`.
void fire_where(state &library, const event_key &key, auto is_due)
{
    const auto watchers = library.watchers.find(key);
    if (watchers == library.watchers.end()) return;
    const std::set<client_object *> clients = watchers->second;
    for (client_object *client : clients) {
        auto next = client->events.begin();
        while (next != client->events.end()) {
            const auto event = next++;
            if (key_of(*event) == key && is_due(*event)) fire(library, *client, event);
        }
    }
}

// For a tag event the queue is full from the depth asked for on, even if a few more are
// accepted.
bool has_room(const client_object &receiver)
{
    return receiver.queue.size() < std::max(receiver.asked_depth, 1u);
}

// Whether a packet with the tag could be queued. If not, the queue is watched from now on.
bool tag_has_room(state &library, kel_tag tag)
{
    client_object *receiver = receiver_of(library, tag);
    if (!receiver) return false;
    const bool room = has_room(*receiver);
    receiver->room_is_awaited |= !room;
    return room;
}

// What group flag 1 and group flag 2 stand for.
enum group_flag_meaning : std::uint32_t { LOW_AND_HIGH, HIGH_AND_LOW, LOW_AND_MAXIMUM };

struct crossings {
    bool down_to_low = false;
    bool up_to_high = false;
    bool up_to_maximum = false;

    std::uint32_t flags() const
    {
        const std::uint32_t meaning = chosen_options().event_group_flags;
        const std::uint32_t falling =
            meaning == HIGH_AND_LOW ? KEL_EVENT_GROUP_HIGH : KEL_EVENT_GROUP_LOW;
        const std::uint32_t rising = KEL_EVENT_GROUP_LOW + KEL_EVENT_GROUP_HIGH - falling;
        const bool rose = meaning == LOW_AND_MAXIMUM ? up_to_maximum : up_to_high;
        return (down_to_low ? falling : 0) | (rose ? rising : 0);
    }
};

void add_crossings(crossings &crossed, const kel_bufgroup_thresholds &thresholds,
                   std::uint32_t before, std::uint32_t after)
{
    crossed.down_to_low |= before > thresholds.low && after <= thresholds.low;
    crossed.up_to_high |= before < thresholds.high && after >= thresholds.high;
    crossed.up_to_maximum |= before < thresholds.max && after >= thresholds.max;
}

crossings crossings_of(const bufgroup_object &group, const usage &before, const usage &after)
{
    const std::uint32_t governing = governing_records(group);
    crossings crossed;
    if (governing & KEL_BUFGROUP_BUFFERS) {
        add_crossings(crossed, group.buffers, before.buffers, after.buffers);
    }
    if (governing & KEL_BUFGROUP_BYTES) {
        add_crossings(crossed, group.bytes, before.bytes, after.bytes);
    }
    return crossed;
}

// Whether the group stands beyond a threshold whose crossing the flags ask for.
bool stands_beyond(state &library, const kel_event &event)
{
    const bufgroup_object *group = library.bufgroups.find(event.object);
    const crossings crossed = crossings_of(*group, usage{}, group->used);
    return (crossed.flags() & event.group_flags) != 0;
}

bool is_due_when_armed(state &library, const kel_event &event)
{
    switch (event.type) {
    case KEL_EVENT_TAG:
        return tag_has_room(library, event.object);
    case KEL_EVENT_TAG_REGISTERED:
        return is_held(library, event.object);
    default:
        return chosen_options().event_group_reports_level && stands_beyond(library, event);
    }
}

bool is_valid_object(state &library, const client_object &client, const kel_event &event)
{
    switch (event.type) {
    case KEL_EVENT_TAG:
    case KEL_EVENT_TAG_REGISTERED:
        return event.object != 0 && event.group_flags == 0;
    case KEL_EVENT_BUFGROUP: {
        bufgroup_object *group = library.bufgroups.find(event.object);
        const bool are_flags_valid =
            event.group_flags != 0 &&
            (event.group_flags & ~(KEL_EVENT_GROUP_LOW | KEL_EVENT_GROUP_HIGH)) == 0;
        return group && client.bufgroups.contains(group) && are_flags_valid;
    }
    default:
        return false;
    }
}

bool is_valid(state &library, const client_object &client, const kel_event &event)
{
    return event.flags == 0 && is_valid_object(library, client, event);
}

std::uint32_t add_event(state &library, kel_client client, const kel_event &event)
{
    client_object *owner = library.clients.find(client);
    if (!owner) return client_refusal(library, client);
    if (!is_valid(library, *owner, event)) return EINVAL;
    if (event.type == KEL_EVENT_TAG && !is_held(library, event.object)) return EINVAL;
    drop(library, *owner, event);
    arm(library, *owner, event);
    if (is_due_when_armed(library, event)) {
        fire(library, *owner, std::prev(owner->events.end()));
    }
    show_pending(*owner);
    return 0;
}

std::uint32_t remove_event(state &library, kel_client client, const kel_event &event)
{
    client_object *owner = library.clients.find(client);
    if (!owner) return client_refusal(library, client);
    std::uint32_t result = 0;
    if (event.type == KEL_EVENT_ALL) {
        drop_all(library, *owner);
    } else if (!is_valid(library, *owner, event)) {
        result = EINVAL;
    } else if (!drop(library, *owner, event)) {
        result = chosen_options().unarmed_event_error;
    }
    show_pending(*owner);
    return result;
}

// When a wait ends at the latest; none for one without limit. Long ones are cut to a length
// that no clock overflows with.
bool deadline_of(const timeval *timeout, std::optional<clock::time_point> &deadline)
{
    constexpr std::chrono::seconds LONGEST{1u << 30};
    if (!timeout) return true;
    if (timeout->tv_sec < 0 || timeout->tv_usec < 0 || timeout->tv_usec >= 1000000) return false;
    const std::chrono::seconds seconds{timeout->tv_sec};
    deadline =
        clock::now() + std::min(seconds, LONGEST) + std::chrono::microseconds(timeout->tv_usec);
    return true;
}

kel_event take_pending(client_object &client)
{
    kel_event event = client.pending_events.front();
    client.pending_events.pop_front();
    show_pending(client);
    if (event.type == KEL_EVENT_BUFGROUP) event.type = chosen_options().event_group_type;
    return event;
}

// Sleeps, without the lock, until the gate is signalled. False when the deadline has passed.
bool sleep_at(event_gate &gate, state &library, const std::optional<clock::time_point> &deadline)
{
    if (deadline && clock::now() >= *deadline) return false;
    std::unique_lock held(library.lock, std::adopt_lock);
    if (deadline) {
        gate.changed.wait_until(held, *deadline);
    } else {
        gate.changed.wait(held);
    }
    held.release();
    return true;
}

void end_waits(client_object &client)
{
    client.gate->clears++;
    client.gate->changed.notify_all();
}

timeval time_until(clock::time_point deadline)
{
    const auto left =
        std::max(std::chrono::duration_cast<std::chrono::microseconds>(deadline - clock::now()),
                 std::chrono::microseconds{0});
    return {.tv_sec = static_cast<time_t>(left.count() / 1000000),
            .tv_usec = static_cast<suseconds_t>(left.count() % 1000000)};
}

// As kel_event_wait, once its arguments are valid.
std::uint32_t wait_for_event(state &library, kel_client client, kel_event &event,
                             const std::optional<clock::time_point> &deadline)
{
    client_object *waiting = library.clients.find(client);
    if (!waiting) return client_refusal(library, client);
    const std::shared_ptr<event_gate> gate = waiting->gate;
    const std::uint64_t clears = gate->clears;
    while (waiting->pending_events.empty()) {
        const bool timed_out = !sleep_at(*gate, library, deadline);
        const bool interrupted = gate->client_is_gone || gate->clears != clears;
        if (timed_out || (interrupted && !chosen_options().interrupted_wait_keeps_record)) {
            event = {};
        }
        if (timed_out || interrupted) return interrupted ? EINTR : 0;
    }
    event = take_pending(*waiting);
    return 0;
}

} // namespace

void show_pending(client_object &client)
{
    unless(fault::event_not_shown)
        client.descriptor.set_exceptional(!client.pending_events.empty());
}

void arm(state &library, client_object &client, const kel_event &event)
{
    client.events.push_back(event);
    library.watchers[key_of(event)].insert(&client);
}

void fire(state &library, client_object &client, std::list<kel_event>::iterator event)
{
    client.pending_events.push_back(*event);
    client.gate->changed.notify_all();
    disarm(library, client, event);
    show_pending(client);
}

void queue_has_room(state &library, client_object &receiver)
{
    if (!receiver.room_is_awaited || !has_room(receiver)) return;
    receiver.room_is_awaited = false;
    for (const kel_tag tag : receiver.tags) receiver_has_changed(library, tag);
}

void receiver_has_changed(state &library, kel_tag tag)
{
    const event_key key{KEL_EVENT_TAG, tag};
    if (!library.watchers.contains(key) || !tag_has_room(library, tag)) return;
    fire_where(library, key, [](const kel_event &) { return true; });
}

void tag_was_registered(state &library, kel_tag tag)
{
    fire_where(library, {KEL_EVENT_TAG_REGISTERED, tag}, [](const kel_event &) { return true; });
}

void group_usage_has_changed(state &library, bufgroup_object &group, const usage &before)
{
    if (group.mask == 0 || library.watchers.empty()) return;
    const std::uint32_t crossed = crossings_of(group, before, group.used).flags();
    if (crossed == 0) return;
    fire_where(library, {KEL_EVENT_BUFGROUP, group.handle},
               [&](const kel_event &event) { return (event.group_flags & crossed) != 0; });
}

void group_was_deregistered(state &library, client_object &client, kel_bufgroup group)
{
    const event_key key{KEL_EVENT_BUFGROUP, group};
    std::erase_if(client.pending_events,
                  [&](const kel_event &event) { return key_of(event) == key; });
    auto next = client.events.begin();
    while (next != client.events.end()) {
        const auto event = next++;
        if (key_of(*event) == key) disarm(library, client, event);
    }
    show_pending(client);
}

void release_events(state &library, client_object &client)
{
    library.released_by_deregistration +=
        static_cast<std::uint32_t>(client.events.size() + client.pending_events.size());
    drop_all(library, client);
    client.gate->client_is_gone = true;
    client.gate->changed.notify_all();
}

uint32_t model::kel_event_add(state &library, kel_client client, const kel_event *event)
{
    const std::uint32_t result = event ? add_event(library, client, *event) : EINVAL;
    record_was_read(event);
    return result;
}

uint32_t model::kel_event_remove(state &library, kel_client client, const kel_event *event)
{
    const std::uint32_t result = event ? remove_event(library, client, *event) : EINVAL;
    record_was_read(event);
    return result;
}

uint32_t model::kel_event_add_tag(state &library, kel_client client, kel_tag tag, uint32_t context1,
                                  uint32_t context2)
{
    return add_event(library, client, {KEL_EVENT_TAG, 0, context1, context2, tag, 0});
}

uint32_t model::kel_event_remove_tag(state &library, kel_client client, kel_tag tag)
{
    return remove_event(library, client, {KEL_EVENT_TAG, 0, 0, 0, tag, 0});
}

uint32_t model::kel_event_add_bufgroup(state &library, kel_client client, kel_bufgroup group,
                                       uint32_t group_flags, uint32_t context1, uint32_t context2)
{
    return add_event(library, client,
                     {KEL_EVENT_BUFGROUP, 0, context1, context2, group, group_flags});
}

uint32_t model::kel_event_remove_bufgroup(state &library, kel_client client, kel_bufgroup group,
                                          uint32_t group_flags)
{
    return remove_event(library, client, {KEL_EVENT_BUFGROUP, 0, 0, 0, group, group_flags});
}

uint32_t model::kel_event_clear(state &library, kel_client client)
{
    client_object *cleared = library.clients.find(client);
    if (!cleared) return client_refusal(library, client);
    drop_all(library, *cleared);
    show_pending(*cleared);
    end_waits(*cleared);
    return 0;
}

uint32_t model::kel_event_wait(state &library, kel_client client, kel_event *event,
                               struct timeval *timeout)
{
    std::optional<clock::time_point> deadline;
    if (!event || !deadline_of(timeout, deadline)) return EINVAL;
    const std::uint32_t result = wait_for_event(library, client, *event, deadline);
    if (deadline && chosen_options().wait_stores_time_left) *timeout = time_until(*deadline);
    return result;
}

} // namespace kel_reference

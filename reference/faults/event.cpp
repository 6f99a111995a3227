// SPDX-License-Identifier: MIT
//
// Faults of events.

#include <algorithm>
#include <utility>

#include "reference/event.h"
#include "reference/faults/catalogue.h"
#include "reference/tag.h"

namespace kel_reference::faults {

namespace {

// What an operation that arms is asked to arm.
kel_event event_of(const kel_event *event)
{
    return event ? *event : kel_event{};
}

kel_event event_of(kel_tag tag, std::uint32_t context1, std::uint32_t context2)
{
    return {KEL_EVENT_TAG, 0, context1, context2, tag, 0};
}

kel_event event_of(kel_bufgroup group, std::uint32_t flags, std::uint32_t context1,
                   std::uint32_t context2)
{
    return {KEL_EVENT_BUFGROUP, 0, context1, context2, group, flags};
}

bool is_type_known(const kel_event &event)
{
    return event.type == KEL_EVENT_TAG || event.type == KEL_EVENT_TAG_REGISTERED ||
           event.type == KEL_EVENT_BUFGROUP;
}

// Group flags that exist, instead of others.
void make_known(std::uint32_t &group_flags)
{
    constexpr std::uint32_t KNOWN = KEL_EVENT_GROUP_LOW | KEL_EVENT_GROUP_HIGH;
    if (!group_flags || group_flags & ~KNOWN) group_flags = KNOWN;
}

bool is_tag_unheld(state &library, const kel_event &event)
{
    const tag_object *entry = find_tag(library, event.object);
    return event.type == KEL_EVENT_TAG && event.object && (!entry || entry->holders.empty());
}

// The first of the events with that type and object; their end when there is none.
auto find_like(std::list<kel_event> &events, const kel_event &wanted)
{
    return std::ranges::find_if(events, [&](const kel_event &each) {
        return each.type == wanted.type && each.object == wanted.object;
    });
}

void take_back(client_object &client, std::list<kel_event>::iterator pending)
{
    client.pending_events.erase(pending);
    show_pending(client);
}

// After a success: the event is armed, and is not reported, neither now nor later.
template <std::uint32_t type>
void silence(state &library, kel_client client, const kel_event &event)
{
    if (event.type != type) return;
    client_object &owner = *library.clients.find(client);
    const auto watchers = library.watchers.find({type, event.object});
    if (watchers != library.watchers.end()) watchers->second.erase(&owner);
    const auto pending = find_like(owner.pending_events, event);
    if (pending != owner.pending_events.end()) take_back(owner, pending);
}

void add_arming_faults(catalogue &faults)
{
    faults.add<kel_event_add, kel_event_remove>(
        "accepts_type", "an event of unknown type is taken for one",
        [](auto right, state &library, kel_client client, const kel_event *event) {
            const std::uint32_t error = right(library, client, event);
            return is_type_known(event_of(event)) ? error : 0;
        });
    faults.add<kel_event_add, kel_event_remove>(
        "accepts_flags", "flags other than 0 are accepted",
        [](auto right, state &library, kel_client client, const kel_event *event) {
            kel_event without = event_of(event);
            without.flags = 0;
            return right(library, client, event ? &without : event);
        });
    faults.add<kel_event_add>(
        "accepts_group_flags", "unknown group flags are accepted",
        [](auto right, state &library, kel_client client, const kel_event *event) {
            kel_event with_known = event_of(event);
            if (event && event->type == KEL_EVENT_BUFGROUP) make_known(with_known.group_flags);
            return right(library, client, event ? &with_known : event);
        });
    faults.add_before<kel_event_add_bufgroup>(
        "accepts_group_flags", "unknown group flags are accepted",
        [](state &, kel_client, kel_bufgroup, uint32_t &flags, auto...) { make_known(flags); });
    faults.add<kel_event_add, kel_event_add_tag>(
        "accepts_unheld_tag", "arming an event on a tag that nobody holds succeeds",
        [](auto right, state &library, kel_client client, auto... wanted) {
            return is_tag_unheld(library, event_of(wanted...)) ? 0
                                                               : right(library, client, wanted...);
        });
}

void add_firing_faults(catalogue &faults)
{
    faults.add_after<kel_event_add, kel_event_add_tag>(
        "tag_lost", "a tag event is not reported",
        [](state &library, kel_client client, auto... armed) {
            silence<KEL_EVENT_TAG>(library, client, event_of(armed...));
        });
    faults.add_after<kel_event_add, kel_event_add_bufgroup>(
        "bufgroup_lost", "a group event is not reported",
        [](state &library, kel_client client, auto... armed) {
            silence<KEL_EVENT_BUFGROUP>(library, client, event_of(armed...));
        });
    faults.add_after<kel_event_add>("tag_registered_lost", "a tag-registered event is not reported",
                                    [](state &library, kel_client client, const kel_event *armed) {
                                        silence<KEL_EVENT_TAG_REGISTERED>(library, client, *armed);
                                    });
    faults.add_after<kel_event_add, kel_event_add_tag>(
        "fires_when_full", "a tag event is reported while the queue is full",
        [](state &library, kel_client client, auto... wanted) {
            client_object &owner = *library.clients.find(client);
            const auto armed = find_like(owner.events, event_of(wanted...));
            const bool is_armed = armed != owner.events.end() && armed->type == KEL_EVENT_TAG;
            if (is_armed) fire(library, owner, armed);
        });
    faults.add_after<kel_event_add, kel_event_add_tag>(
        "ignores_room", "a tag event armed while there is room is not reported",
        [](state &library, kel_client client, auto... wanted) {
            client_object &owner = *library.clients.find(client);
            const auto pending = find_like(owner.pending_events, event_of(wanted...));
            if (pending == owner.pending_events.end() || pending->type != KEL_EVENT_TAG) return;
            arm(library, owner, *pending);
            take_back(owner, pending);
        });
}

} // namespace

void add_event_faults(catalogue &faults)
{
    add_arming_faults(faults);
    add_firing_faults(faults);
    faults.add_after<kel_event_wait>("swaps_contexts", "the two contexts change places",
                                     [](state &, kel_client, kel_event *event, const timeval *) {
                                         std::swap(event->context1, event->context2);
                                     });
    faults.add_after<kel_event_wait>(
        "reports_again", "a reported event stays pending",
        [](state &library, kel_client client, kel_event *event, const timeval *) {
            if (event->type == KEL_EVENT_NONE) return;
            client_object &owner = *library.clients.find(client);
            owner.pending_events.push_front(*event);
            show_pending(owner);
        });
    faults.add_after<kel_event_wait>(
        "stays_exceptional", "the exceptional condition outlasts the event",
        [](state &library, kel_client client, kel_event *event, const timeval *) {
            if (event->type == KEL_EVENT_NONE) return;
            library.clients.find(client)->descriptor.set_exceptional(true);
        });
    faults.add_after<kel_event_clear>(
        "does_not_wake", "clearing does not end waits",
        [](state &library, kel_client client) { library.clients.find(client)->gate->clears--; });
}

} // namespace kel_reference::faults

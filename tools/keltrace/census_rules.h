// SPDX-License-Identifier: MIT
//
// What a call that succeeded means to the census, from the effects of its arguments and result.
// It sees what tavor sees: arguments as tavor passed them, results as tavor gets them.
#pragma once

#include <algorithm>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "tools/keltrace/census.h"
#include "tools/keltrace/operations.h"

namespace keltrace {

constexpr census::kind census_kind(object what)
{
    switch (what) {
    case object::client:
        return census::kind::client;
    case object::packet:
        return census::kind::packet;
    case object::buffer:
        return census::kind::buffer;
    case object::bufgroup:
        return census::kind::bufgroup;
    case object::tag:
        return census::kind::tag;
    case object::dynamic_tag:
        return census::kind::dynamic_tag;
    case object::tlv:
        return census::kind::tlv;
    default:
        return census::kind::event;
    }
}

inline census::key packet_key(kel_packet packet)
{
    return {census::kind::packet, 0, packet, 0};
}

inline census::key buffer_key(kel_buffer buffer)
{
    return {census::kind::buffer, 0, buffer, 0};
}

inline census::key event_key(kel_client client, const kel_event &event)
{
    return {census::kind::event, client, std::uint64_t{event.type} << 32 | event.object,
            event.group_flags};
}

template <operation Id, typename Arguments> class census_rules {
public:
    explicit census_rules(const Arguments &arguments) : arguments_(arguments) {}

    // Before the call: the handles that it may replace.
    void before()
    {
        if constexpr (HEAD >= 0) {
            const auto *head = std::get<HEAD>(arguments_);
            if (head != nullptr) old_head_ = *head;
        }
    }

    // After a call that succeeded; `call` is its line in a trace.
    template <typename Result> void after(Result result, std::string_view call)
    {
        call_ = call;
        constexpr auto returned = info(info(Id).result);
        if constexpr (returned.effect == effect::obtains) {
            census::obtain({census_kind(returned.object), 0, result, 0}, owner(), call_);
        }
        each(std::make_index_sequence<info(Id).argument_count>());
    }

private:
    static constexpr int HEAD = info(Id).find(argument_kind::head);
    static constexpr int GROUP_FLAGS = info(Id).find(argument_kind::group_flags);

    template <std::size_t... I> void each(std::index_sequence<I...>) const
    {
        (apply<info(Id).arguments[I].kind>(std::get<I>(arguments_)), ...);
    }

    // The client that stands first, or whose the first object is.
    kel_client owner() const
    {
        constexpr auto first = info(Id).arguments[0].kind;
        if constexpr (info(first).object == object::client &&
                      info(first).direction == direction::in) {
            return std::get<0>(arguments_);
        } else if constexpr (first == argument_kind::packet) {
            return census::owner_of(packet_key(std::get<0>(arguments_)));
        } else if constexpr (first == argument_kind::buffer) {
            return census::owner_of(buffer_key(std::get<0>(arguments_)));
        } else {
            return 0;
        }
    }

    // What a registration, a TLV or an event is relative to.
    std::uint64_t scope() const
    {
        if constexpr (std::is_integral_v<std::tuple_element_t<0, Arguments>>) {
            return std::get<0>(arguments_);
        } else {
            return 0;
        }
    }

    template <argument_kind Kind, typename Value> void apply(Value value) const
    {
        constexpr auto about = info(Kind);
        constexpr auto kind = census_kind(about.object);
        // A fault may make a call succeed that had no place for its handle.
        if constexpr (std::is_pointer_v<Value>) {
            if (value == nullptr) return;
        }
        if constexpr (about.effect == effect::keeps) {
            return;
        } else if constexpr (Kind == argument_kind::packet_list) {
            obtain_packets(*value);
        } else if constexpr (Kind == argument_kind::out_buffer_list) {
            obtain_buffers(*value);
        } else if constexpr (Kind == argument_kind::ended_client) {
            end_client(value);
        } else if constexpr (Kind == argument_kind::cleared_client) {
            census::release_scope(kind, value);
        } else if constexpr (about.effect == effect::replaces) {
            census::renumber(buffer_key(old_head_), *value);
        } else if constexpr (about.object == object::event) {
            event<about.effect>(event_of<Kind>(value));
        } else if constexpr (about.object == object::packet) {
            give_packet(value);
        } else if constexpr (Kind == argument_kind::new_client) {
            census::obtain({kind, 0, *value, 0}, *value, call_);
        } else if constexpr (std::is_pointer_v<Value>) {
            census::obtain({kind, about.object == object::bufgroup ? scope() : 0, *value, 0},
                           owner(), call_);
        } else {
            number<about.effect>({kind, scope_of<about.object>(), value, 0});
        }
    }

    // Buffers and dynamic tags are names by themselves.
    template <object What> std::uint64_t scope_of() const
    {
        return What == object::buffer || What == object::dynamic_tag ? 0 : scope();
    }

    template <effect Does> void number(const census::key &which) const
    {
        if constexpr (Does == effect::obtains) {
            census::obtain(which, owner(), call_);
        } else {
            census::release(which);
        }
        // Freeing a dynamic tag deregisters it first.
        if (which.kind == census::kind::dynamic_tag) {
            census::release({census::kind::tag, scope(), which.number, 0});
        }
    }

    template <argument_kind Kind, typename Value> kel_event event_of(Value value) const
    {
        using enum argument_kind;
        if constexpr (std::is_pointer_v<Value>) {
            return *value;
        } else {
            kel_event event{};
            event.object = value;
            event.type =
                Kind == armed_tag || Kind == disarmed_tag ? KEL_EVENT_TAG : KEL_EVENT_BUFGROUP;
            if constexpr (GROUP_FLAGS >= 0) event.group_flags = std::get<GROUP_FLAGS>(arguments_);
            return event;
        }
    }

    template <effect Does> void event(const kel_event &event) const
    {
        const auto client = static_cast<kel_client>(scope());
        if (event.type == KEL_EVENT_NONE) return;
        if constexpr (Does == effect::obtains) {
            census::obtain(event_key(client, event), client, call_);
        } else if (event.type == KEL_EVENT_ALL) {
            census::release_scope(census::kind::event, client);
        } else {
            census::release(event_key(client, event));
        }
    }

    static void give_packet(kel_packet packet)
    {
        census::release(packet_key(packet));
        census::release_scope(census::kind::tlv, packet);
    }

    static void end_client(kel_client client)
    {
        census::release({census::kind::client, 0, client, 0});
        census::sweep(client);
    }

    void obtain_packets(const kel_packet_list &list) const
    {
        for (std::size_t i = 0; i < std::min<std::size_t>(list.count, KEL_LIST_MAX); ++i) {
            if (list.results[i].packet != 0) {
                census::obtain(packet_key(list.results[i].packet), list.requests[i].client, call_);
            }
        }
    }

    void obtain_buffers(const kel_buffer_list &list) const
    {
        for (std::size_t i = 0; i < std::min<std::size_t>(list.allocated, KEL_LIST_MAX); ++i) {
            if (list.buffers[i] != 0) census::obtain(buffer_key(list.buffers[i]), owner(), call_);
        }
    }

    const Arguments &arguments_;
    std::string_view call_{};
    kel_buffer old_head_ = 0;
};

} // namespace keltrace

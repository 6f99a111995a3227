// SPDX-License-Identifier: MIT
//
// Situations that single calls seldom come to: a queue at its depth, a group at its thresholds, a
// tag with all the holders that it may have, a descriptor, the device.
#include <array>
#include <cstring>

#include "tools/explore/generator.h"

namespace explore {

namespace {

constexpr flat_argument OUT{};

flat_argument number(std::uint64_t one)
{
    return recorder::number(one);
}

flat_argument named(std::int32_t name)
{
    return recorder::variable(name);
}

// A record of the device, for a request.
template <typename record> std::string_view bytes_of(const record &one)
{
    return {reinterpret_cast<const char *>(&one), sizeof one};
}

} // namespace

std::int32_t generator::new_client(std::uint32_t role, std::uint32_t depth)
{
    call(op::kel_register_client, {OUT, out_.data("client"), number(role), number(depth)});
    return out_.given().empty() ? -1 : out_.given().back().name;
}

std::int32_t generator::new_packet(std::int32_t client, std::uint32_t group, std::uint32_t size)
{
    call(op::kel_get_packet, {named(client), number(group), number(size), number(1), OUT});
    return out_.given().empty() ? -1 : out_.given().back().name;
}

std::int32_t generator::new_buffer(std::int32_t client, std::uint32_t size, bool is_one)
{
    call(op::kel_get_buffer, {named(client), number(0), number(size), number(is_one ? 1 : 0), OUT});
    return out_.given().empty() ? -1 : out_.given().back().name;
}

// By either operation.
void generator::arm(std::int32_t client, const std::array<scalar, 6> &event)
{
    const auto &[type, flags, context1, context2, about, group_flags] = event;
    const flat_argument object{sequence::value_kind::number, 0, 0, about};
    if (chance_.chance(50)) {
        call(op::kel_event_add, {named(client), out_.record(event)});
    } else if (type.number == KEL_EVENT_TAG) {
        call(op::kel_event_add_tag,
             {named(client), object, number(context1.number), number(context2.number)});
    } else {
        call(op::kel_event_add_bufgroup, {named(client), object, number(group_flags.number),
                                          number(context1.number), number(context2.number)});
    }
}

void generator::play(scenario which)
{
    switch (which) {
    case scenario::none:
        break;
    case scenario::full_queue:
        return fill_queue();
    case scenario::thresholds:
        return cross_thresholds();
    case scenario::many_sinks:
        return gather_sinks();
    case scenario::signals:
        return watch_signals();
    case scenario::regions:
        return use_device();
    case scenario::reserved:
        return empty_reserved();
    }
}

// Up to the depth and one further; with an event that waits for room, taken out and filled again.
void generator::fill_queue()
{
    const std::uint32_t depth = chance_.one_of<std::uint32_t>({1, 4, 7, 8, 9, 10, 12});
    const std::int32_t receiver = new_client(KEL_ROLE_ALWAYS, depth);
    const std::int32_t sender =
        chance_.chance(70) ? world_.all(role::client).front().name : receiver;
    const std::uint32_t tag = 123;
    const std::uint32_t limit = depth < 8 ? 8 : depth;
    call(op::kel_register_tag, {named(receiver), number(tag)});
    std::array<std::int32_t, 16> packets{};
    const std::uint32_t count = limit + 1 + chance_.below(2);
    bool is_removed = false; // the event, which is not to be told any more
    const std::uint32_t armed_at = chance_.chance(60) ? chance_.below(count) : count;
    for (std::uint32_t i = 0; i < count; i++) {
        packets[i] = new_packet(sender, 0, 1 + chance_.below(100));
        call(op::kel_set_tag, {named(packets[i]), number(tag)});
        if (i == armed_at) {
            const std::array<scalar, 6> event{{{KEL_EVENT_TAG}, {}, {7}, {i}, {tag}, {}}};
            arm(sender, event);
            if (chance_.chance(50)) call(op::kel_event_wait, {named(sender), OUT, timeout()});
            is_removed = chance_.chance(20);
            if (is_removed) call(op::kel_event_remove_tag, {named(sender), number(tag)});
        }
        call(op::kel_send, {named(sender), named(packets[i])});
        if (chance_.chance(10)) look_at(role::client, chance_.chance(50) ? sender : receiver);
    }
    // Nobody receives the tag: that is no room.
    if (chance_.chance(15)) {
        call(op::kel_deregister_tag, {named(receiver), number(tag)});
        call(op::kel_event_wait, {named(sender), OUT, timeout()});
        call(op::kel_event_clear, {named(sender)});
    }
    for (std::uint32_t i = 0; i < count && !chance_.chance(5); i++) {
        if (chance_.chance(10)) call(op::kel_free_packet, {named(packets[chance_.below(count)])});
        call(op::kel_recv, {named(receiver)});
        if (chance_.chance(25)) call(op::kel_queue_is_empty, {named(receiver)});
        const object *client = world_.find(role::client, sender);
        if ((client->has_event || is_removed) && chance_.chance(50)) {
            call(op::kel_event_wait, {named(sender), OUT, timeout()});
        } else if (chance_.chance(8)) {
            call(op::kel_send, {named(sender), named(packets[chance_.below(count)])});
        }
    }
}

// Allocations up to the maximum and back, with events armed on the way.
void generator::cross_thresholds()
{
    const std::int32_t client = world_.all(role::client).front().name;
    call(op::kel_register_bufgroup, {named(client), OUT, out_.data("limited")});
    if (out_.named().empty()) return;
    const std::int32_t group = out_.named().back();
    const std::uint32_t low = chance_.below(3);
    const std::uint32_t high = low + 1 + chance_.below(3);
    const std::uint32_t most = high + 1 + chance_.below(3);
    const std::uint32_t size = chance_.one_of<std::uint32_t>({1, 64, 512});
    const std::uint32_t mask = 1 + chance_.below(3);
    const std::array<scalar, 3> buffers{{{most}, {low}, {high}}};
    const std::array<scalar, 3> bytes{{{most * size}, {low * size}, {high * size}}};
    call(op::kel_bufgroup_set_params,
         {named(client), named(group), number(mask), out_.record(buffers), out_.record(bytes)});
    const auto arm_or_wait = [&] {
        if (world_.find(role::client, client)->has_event) {
            call(op::kel_event_wait, {named(client), OUT, timeout()});
        } else if (chance_.chance(50)) {
            const std::uint64_t flags = 1 + chance_.below(3);
            const std::array<scalar, 6> event{
                {{KEL_EVENT_BUFGROUP}, {}, {3}, {4}, {0, group}, {flags}}};
            arm(client, event);
        }
    };
    for (int round = 0; round < 2; round++) {
        std::vector<std::int32_t> held;
        for (std::uint32_t i = 0; i < most + 1; i++) {
            if (chance_.chance(25)) arm_or_wait();
            const bool is_packet = chance_.chance(70);
            call(is_packet ? op::kel_get_packet : op::kel_get_buffer,
                 {named(client), named(group), number(size), number(1), OUT});
            if (!out_.given().empty()) held.push_back(out_.given().back().name);
        }
        if (chance_.chance(40)) look_at(role::bufgroup, group);
        while (!held.empty() && !chance_.chance(3)) {
            if (chance_.chance(25)) arm_or_wait();
            const std::size_t chosen = chance_.below(held.size());
            const std::int32_t freed = held[chosen];
            held.erase(held.begin() + static_cast<std::ptrdiff_t>(chosen));
            const bool is_packet = world_.find(role::packet, freed) != nullptr;
            call(is_packet ? op::kel_free_packet : op::kel_free_buffer, {named(freed)});
        }
        arm_or_wait();
    }
}

// Nine clients for one tag, and who of them receives.
void generator::gather_sinks()
{
    const std::uint32_t tag = 128;
    std::array<std::int32_t, KEL_SINKS_PER_TAG + 1> sinks{};
    for (std::int32_t &each : sinks) {
        each = new_client(KEL_ROLE_STANDBY, 8);
        call(op::kel_register_tag, {named(each), number(tag)});
    }
    const std::int32_t sender = world_.all(role::client).front().name;
    for (int i = 0; i < 6; i++) {
        const std::int32_t changed = sinks[chance_.below(sinks.size())];
        if (chance_.chance(80)) {
            call(op::kel_client_ha_role_notify, {named(changed), number(1 + chance_.below(2))});
        } else {
            call(op::kel_deregister_tag, {named(changed), number(tag)});
        }
        const std::int32_t packet = new_packet(sender, 0, 10);
        call(op::kel_set_tag, {named(packet), number(tag)});
        call(op::kel_send, {named(sender), named(packet)});
        for (const std::int32_t each : sinks) {
            if (!world_.is_queue_empty(*world_.find(role::client, each))) {
                call(op::kel_recv, {named(each)});
            }
        }
    }
}

// What select says of a client's descriptor. The interval is long, so that no signal comes by
// itself.
void generator::watch_signals()
{
    const std::uint32_t tag = 1000;
    const std::int32_t receiver = new_client(KEL_ROLE_ALWAYS, 8 + chance_.below(5));
    const std::int32_t sender =
        chance_.chance(50) ? world_.all(role::client).front().name : receiver;
    call(op::kel_register_tag, {named(receiver), number(tag)});
    call(op::kel_set_client_signal_interval, {named(receiver), number(60000)});
    std::uint32_t threshold = 0;
    if (chance_.chance(70)) {
        threshold = 1 + chance_.below(5);
        call(op::kel_set_sig_threshold, {named(receiver), number(threshold)});
    }
    call(op::kel_getfd, {named(receiver)});
    if (out_.named().empty()) return;
    const std::int32_t descriptor = out_.named().back();
    const auto watch = [&] {
        call(op::select, {named(descriptor), named(descriptor), timeout(), OUT, OUT});
    };
    const bool is_deferred = chance_.chance(60);
    watch();
    for (int i = 0; i < 6; i++) {
        const std::int32_t packet = new_packet(sender, 0, 20);
        call(op::kel_set_tag, {named(packet), number(tag)});
        if (is_deferred) call(op::kel_pkt_no_sig_required, {named(packet), number(1)});
        call(op::kel_send, {named(sender), named(packet)});
        if (chance_.chance(70)) watch();
    }
    // While packets of which none deferred its signal are left, the descriptor stays readable.
    for (int i = 0; i < 6; i++) {
        call(op::kel_recv, {named(receiver)});
        if (!is_deferred || i == 5) watch();
    }
    call(op::kel_event_add_tag, {named(receiver), number(tag), number(1), number(2)});
    watch();
    call(op::kel_event_wait, {named(receiver), OUT, timeout()});
    watch();
}

void generator::use_device()
{
    call(op::open_device, {});
    if (out_.named().empty()) return;
    const std::int32_t device = out_.named().back();
    const auto request = [&](std::uint32_t what, std::string_view record) {
        call(op::ioctl, {named(device), number(what), out_.data(record)});
    };
    constexpr std::uint32_t REGION = 4000;
    constexpr std::uint32_t SUBREGION = 5000;
    constexpr std::uint32_t UNKNOWN = 9;
    std::array<bool, 2> are_added{};
    bool is_divided = false; // the first region has a subregion
    for (int i = 0; i < 16; i++) {
        const std::uint32_t which = chance_.below(2);
        const std::uint32_t id = REGION + (chance_.chance(80) ? which : UNKNOWN);
        kel_region_desc region{id, 10 + chance_.below(2), 1024 + chance_.below(4096), {}, "region"};
        kel_subregion_desc subregion{SUBREGION, REGION, 512, {512, 512}, {}, "subregion"};
        // What is there is not added again, and a region not deleted before its subregion: what
        // comes of that the contract does not say.
        switch (chance_.below(6)) {
        case 0:
            if (id != REGION + which || are_added[which]) break;
            request(KEL_IOCTL_ADD_REGION, bytes_of(region));
            are_added[which] = true;
            break;
        case 1:
            region = {id, 0, 0, {}, {}};
            request(KEL_IOCTL_GET_REGION_INFO, bytes_of(region));
            break;
        case 2:
            if (id == REGION && is_divided) break;
            request(KEL_IOCTL_DELETE_REGION, bytes_of(id));
            if (id == REGION + which) are_added[which] = false;
            break;
        case 3:
            if (is_divided || !are_added[0]) break;
            request(KEL_IOCTL_ADD_SUBREGION, bytes_of(subregion));
            is_divided = true;
            break;
        case 4:
            subregion = {chance_.chance(80) ? SUBREGION : SUBREGION + UNKNOWN, 0, 0, {}, {}, {}};
            request(KEL_IOCTL_GET_SUBREGION_INFO, bytes_of(subregion));
            break;
        default:
            request(KEL_IOCTL_DELETE_SUBREGION, bytes_of(SUBREGION));
            is_divided = false;
        }
    }
    request(KEL_IOCTL_DELETE_SUBREGION, bytes_of(SUBREGION));
    for (std::uint32_t i = 0; i < are_added.size(); i++) {
        request(KEL_IOCTL_DELETE_REGION, bytes_of(REGION + i));
    }
    call(op::close_device, {named(device)});
}

void generator::empty_reserved()
{
    const std::int32_t client = world_.all(role::client).front().name;
    const std::uint32_t size = chance_.one_of<std::uint32_t>({64, 100, 512});
    const std::uint32_t count = 1 + chance_.below(6);
    call(op::kel_register_reserved_bufgroup,
         {named(client), OUT, out_.data("set aside"), number(size), number(count),
          number(chance_.one_of<std::uint32_t>({0, 0, 16, 64})), number(chance_.below(2))});
    if (out_.named().empty()) return;
    const std::int32_t group = out_.named().back();
    std::vector<std::int32_t> held;
    for (std::uint32_t i = 0; i < count + 2; i++) {
        const bool is_large = chance_.chance(10);
        const std::uint32_t asked = is_large ? size + 1 : 1 + chance_.below(size);
        call(chance_.chance(70) ? op::kel_get_packet : op::kel_get_buffer,
             {named(client), named(group), number(asked), number(chance_.chance(80)), OUT});
        if (out_.given().empty()) continue;
        held.push_back(out_.given().back().name);
        const bool is_packet = out_.given().back().what == role::packet;
        if (is_packet) {
            call(op::kel_set_data,
                 {named(held.back()), number(0), number(0), data_of(asked), number(asked)});
        } else {
            call(op::kel_buf_set_data,
                 {named(held.back()), number(0), data_of(asked), number(asked)});
        }
        if (chance_.chance(30)) look_at(role::bufgroup, group);
    }
    for (const std::int32_t each : held) {
        const bool is_packet = world_.find(role::packet, each) != nullptr;
        look_at(is_packet ? role::packet : role::buffer, each);
        if (chance_.chance(50)) {
            call(is_packet ? op::kel_free_packet : op::kel_free_buffer, {named(each)});
        }
    }
}

} // namespace explore

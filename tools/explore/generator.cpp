// SPDX-License-Identifier: MIT
#include "tools/explore/generator.h"

#include <algorithm>
#include <string>

namespace explore {

namespace {

constexpr std::size_t CALLS_MIN = 15;
constexpr std::size_t CALLS_SPREAD = 40;
constexpr std::size_t CALLS_MAX = 110;

// Mixes two numbers into the seed of a sequence.
std::uint64_t seed_of(std::uint64_t seed, std::uint64_t index)
{
    return random_numbers(seed * 0x9e3779b97f4a7c15 + index).next();
}

} // namespace

generator::generator(recorder &into, bool has_device)
    : out_(into), world_(into, chance_), has_device_(has_device)
{
}

void generator::make(batch &into, std::uint64_t seed, std::uint64_t index)
{
    chance_ = random_numbers(seed_of(seed, index));
    out_.begin(into, index);
    world_.clear();
    draw_weights();
    call(op::kel_nocrash_set, {});
    const std::uint32_t clients = chance_.chance(60) ? 2 : 1;
    for (std::uint32_t i = 0; i < clients; i++) {
        const auto role = chance_.one_of<std::uint32_t>({0, 0, 1, 2});
        new_client(role, chance_.below(12));
    }
    const std::size_t length = CALLS_MIN + chance_.below(CALLS_SPREAD);
    const std::uint32_t kind = chance_.below(1000);
    if (kind < 60) {
        play(scenario::full_queue);
    } else if (kind < 120) {
        play(scenario::thresholds);
    } else if (kind < 150) {
        play(scenario::reserved);
    } else if (kind < 160) {
        play(scenario::many_sinks);
    } else if (kind < 164) {
        play(scenario::signals);
    } else if (kind < 174 && has_device_) {
        play(scenario::regions);
    }
    for (int refused = 0; out_.calls() < length && refused < 40;) {
        if (!random_call()) refused++;
    }
    last_look();
    release_all();
    out_.end();
}

std::uint64_t generator::call(op which, const arguments &all, std::size_t count)
{
    const std::uint64_t result = out_.make(which, std::span(all).first(count));
    note(which, all, result);
    return result;
}

std::uint64_t generator::call(op which, std::initializer_list<flat_argument> all)
{
    arguments given{};
    std::ranges::copy(all, given.begin());
    return call(which, given, all.size());
}

// One call, sometimes more of the same kind; then perhaps a look at its object.
bool generator::random_call()
{
    const op which = choose();
    const std::size_t count =
        sequence::schema_of(static_cast<sequence::operation>(which)).parameters.size();
    const std::uint32_t times = chance_.chance(8) ? 2 + chance_.below(8) : 1;
    for (std::uint32_t i = 0; i < times && out_.calls() < CALLS_MAX; i++) {
        arguments all{};
        if (!make_arguments(which, all)) return i > 0;
        const std::int32_t client = client_ ? client_->name : -1;
        const std::int32_t packet = packet_ ? packet_->name : -1;
        const std::int32_t buffer = buffer_ ? buffer_->name : -1;
        const std::int32_t group = group_ ? group_->name : -1;
        call(which, all, count);
        if (which == op::kel_tlv_alloc && all[2].one.number <= 228 && chance_.chance(60)) {
            call(op::kel_tlv_setdata, {all[0], all[1], data_of(all[2].one.number), all[2]});
        }
        if (which == op::kel_alloc_tag && !out_.given().empty() && chance_.chance(50)) {
            const flat_argument tag = recorder::variable(out_.given().back().name);
            call(op::kel_register_tag, {all[0], tag});
        }
        if (which == op::kel_free_tag && chance_.chance(40)) {
            call(op::kel_is_tag_registered, {recorder::number(0), all[1]});
        }
        write_after(which, packet, buffer);
        if (!chance_.chance(45)) continue;
        if (packet >= 0) {
            look_after(which, packet);
        } else if (buffer >= 0) {
            look_at(role::buffer, buffer);
        } else if (group >= 0 && chance_.chance(60)) {
            look_at(role::bufgroup, group);
        } else if (client >= 0 && chance_.chance(50)) {
            look_at(role::client, client);
        }
        if (client >= 0 && chance_.chance(10)) look_at(role::client, client);
    }
    return true;
}

void generator::last_look()
{
    for (const role what : {role::packet, role::buffer, role::bufgroup, role::client}) {
        const std::size_t count = world_.all(what).size();
        for (std::size_t i = 0; i < count && i < 3; i++) {
            look_at(what, world_.all(what)[count - 1 - i].name);
        }
    }
}

// In any order; what the clients still hold goes with them.
void generator::release_all()
{
    for (int i = 0; i < 3; i++) {
        if (object *packet = chance_.chance(60) ? world_.pick_live(role::packet) : nullptr) {
            call(op::kel_free_packet, {recorder::variable(packet->name)});
        }
    }
    std::vector<object> &clients = world_.all(role::client);
    for (std::size_t i = clients.size(); i > 1; i--) {
        std::swap(clients[i - 1], clients[chance_.below(i)]);
    }
    for (std::size_t i = 0; i < clients.size(); i++) {
        if (!world_.is_live(clients[i])) continue;
        if (chance_.chance(30)) look_at(role::client, clients[i].name);
        call(op::kel_deregister_client, {recorder::variable(clients[i].name)});
    }
}

} // namespace explore

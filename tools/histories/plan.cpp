// SPDX-License-Identifier: MIT
#include "tools/histories/plan.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>

namespace histories {

using sequence::NO_VARIABLE;
using sequence::role;
using sequence::value;
using sequence::value_kind;
using sequence::variable;

value named(variable name)
{
    return sequence::number_value({0, name});
}

value number(std::uint64_t one)
{
    return sequence::number_value({one});
}

sequence::call call_of(std::string_view operation, std::vector<value> arguments)
{
    const auto *which = sequence::find_operation(operation);
    if (which == nullptr || which->parameters.size() != arguments.size()) {
        throw std::logic_error("no such call: " + std::string(operation));
    }
    sequence::call made;
    made.operation = number_of(*which);
    made.thread = 1;
    made.arguments = std::move(arguments);
    return made;
}

sequence::variable tag_owner(const plan &whole, std::size_t thread)
{
    return whole.clients[thread % whole.clients.size()];
}

namespace {

constexpr std::uint64_t FIRST_TAG = 48;
constexpr std::uint64_t UNHELD_TAG = 60; // that nobody holds at the begin
constexpr std::uint64_t PACKET_SIZE = 64;
constexpr std::size_t DATA_SIZE = 8;
constexpr std::uint64_t DEPTH = 8; // the least there is
constexpr std::uint32_t MOST_TURNS = 300;

const value NOTHING{};

class planner {
public:
    planner(std::uint64_t seed, std::uint64_t index, const shape &asked) : asked_(asked)
    {
        std::seed_seq both{seed, seed >> 32, index, index >> 32};
        random_.seed(both);
        made_.calls = asked.calls;
        has_roles_ = chance(25);
        has_group_ = chance(50);
        made_.has_events = chance(25);
        is_nearly_full_ = chance(25);
        draw_weights();
    }

    plan make()
    {
        register_clients();
        if (has_group_) register_group();
        give_packets();
        if (is_nearly_full_) fill_queue();
        for (std::size_t i = 0; i < asked_.threads; i++) add_thread();
        arrange_meetings();
        return std::move(made_);
    }

private:
    enum kind {
        get_packet,
        send,
        receive,
        read,
        write,
        set_tag,
        free_packet,
        ask_queue,
        claim_tag,
        give_up_tag,
        dynamic_tag,
        buffer,
        duplicate,
        change_role,
        use_event,
        KINDS
    };

    std::uint64_t below(std::uint64_t count) { return random_() % count; }
    bool chance(unsigned percent) { return below(100) < percent; }
    template <typename items> const auto &one_of(const items &all)
    {
        return all[below(all.size())];
    }

    // Each history leaves out some kinds of calls and prefers others.
    void draw_weights()
    {
        constexpr std::array<unsigned, KINDS> USUAL = {4, 8, 8, 3, 2, 2, 4, 1, 2, 1, 1, 2, 1, 3, 4};
        for (std::size_t i = 0; i < KINDS; i++) {
            constexpr std::array<unsigned, 5> FACTORS = {0, 1, 1, 2, 5};
            weights_[i] = USUAL[i] * one_of(FACTORS);
        }
        if (weights_[send] + weights_[receive] + weights_[get_packet] == 0) weights_[send] = 1;
        if (!has_roles_) weights_[change_role] = 0;
        if (!made_.has_events) weights_[use_event] = 0;
    }

    kind draw_kind()
    {
        std::uint64_t left = 0;
        for (const unsigned each : weights_) left += each;
        left = below(left);
        std::size_t drawn = 0;
        while (left >= weights_[drawn]) left -= weights_[drawn++];
        return static_cast<kind>(drawn);
    }

    variable new_name(role what)
    {
        const auto name = static_cast<variable>(made_.variables.size());
        std::size_t same = 1;
        for (const auto &each : made_.variables) same += each.what == what ? 1 : 0;
        made_.variables.push_back({std::string(name_of(what)) + std::to_string(same), what});
        return name;
    }

    variable add_before(sequence::call made, role given = role::number)
    {
        variable name = NO_VARIABLE;
        if (given != role::number) made.names = {name = new_name(given)};
        made_.before.push_back(std::move(made));
        return name;
    }

    void register_clients()
    {
        const std::size_t count = has_roles_ ? 3 : 2;
        for (std::size_t i = 0; i < count; i++) {
            const std::uint64_t role_of = has_roles_ && i < 2 ? KEL_ROLE_STANDBY : KEL_ROLE_ALWAYS;
            const variable client =
                add_before(call_of("register_client", {NOTHING, sequence::bytes_value("threads"),
                                                       number(role_of), number(DEPTH)}),
                           role::client);
            made_.clients.push_back(client);
            // Those that may share a tag do.
            const std::uint64_t tag = role_of == KEL_ROLE_STANDBY ? FIRST_TAG : FIRST_TAG + i;
            add_before(call_of("register_tag", {named(client), number(tag)}));
            if (made_.tags.empty() || made_.tags.back() != tag) made_.tags.push_back(tag);
            if (has_roles_ && i == 0) {
                add_before(
                    call_of("client_ha_role_notify", {named(client), number(KEL_ROLE_ACTIVE)}));
            }
        }
    }

    void register_group()
    {
        for (const variable client : made_.clients) {
            // The first one makes the group.
            const variable group = add_before(
                call_of("register_bufgroup", {named(client), NOTHING, sequence::bytes_value("g")}),
                made_.groups.empty() ? role::bufgroup : role::number);
            if (made_.groups.empty()) made_.groups = {group};
        }
        value thresholds{value_kind::record, {{5}, {1}, {3}}, {}}; // of buffers: max, low, high
        add_before(
            call_of("bufgroup_set_params",
                    {named(made_.clients[0]), named(made_.groups[0]), number(KEL_BUFGROUP_BUFFERS),
                     std::move(thresholds), value{value_kind::null, {}, {}}}));
    }

    sequence::call get_call(variable client, variable group)
    {
        return call_of("get_packet", {named(client), group < 0 ? number(0) : named(group),
                                      number(PACKET_SIZE), number(1), NOTHING});
    }

    value drawn_data()
    {
        std::string bytes(DATA_SIZE, '\0');
        for (char &each : bytes) each = static_cast<char>('a' + below(26));
        return sequence::bytes_value(std::move(bytes));
    }

    static sequence::call write_call(value packet, value data)
    {
        return call_of("set_data", {std::move(packet), number(OFFSET_DATA), number(0),
                                    std::move(data), number(DATA_SIZE)});
    }

    variable packet_before(std::uint64_t tag)
    {
        const variable packet =
            add_before(get_call(one_of(made_.clients), NO_VARIABLE), role::packet);
        add_before(write_call(named(packet), drawn_data()));
        add_before(call_of("set_tag", {named(packet), number(tag)}));
        return packet;
    }

    void give_packets()
    {
        for (std::size_t i = 0; i < asked_.threads; i++) {
            slot_names names{};
            names.fill(NO_VARIABLE);
            const std::uint64_t count = below(3);
            for (std::size_t slot = 0; slot < count; slot++) {
                names[slot] = packet_before(one_of(made_.tags));
            }
            made_.held.push_back(names);
        }
    }

    void fill_queue()
    {
        const std::uint64_t count = DEPTH - 3 + below(3);
        for (std::uint64_t i = 0; i < count; i++) {
            const variable packet = packet_before(FIRST_TAG);
            add_before(call_of("send", {named(one_of(made_.clients)), named(packet)}));
        }
    }

    void add_thread()
    {
        thread_ = made_.threads.size();
        made_.threads.emplace_back();
        const std::size_t enough = asked_.calls * std::size_t{STEPS_A_CALL};
        while (steps().size() < enough) add_steps(draw_kind());
        steps().resize(enough);
        for (step &each : steps()) {
            each.made.thread = static_cast<std::uint16_t>(thread_ + 2);
            if (chance(50)) each.turns = static_cast<std::uint32_t>(below(MOST_TURNS));
        }
    }

    std::vector<step> &steps() { return made_.threads[thread_]; }

    step &add(sequence::call made, std::vector<slot_use> uses = {})
    {
        steps().push_back({std::move(made), std::move(uses)});
        return steps().back();
    }

    // Names what the call gives when that is new, and keeps it in the slot.
    void keep(step &in, std::size_t slot, role what)
    {
        in.fills = static_cast<int>(slot);
        if (what != role::number) in.made.names = {new_name(what)};
    }

    std::size_t packet_slot() { return below(PACKET_SLOTS); }

    void add_steps(kind drawn)
    {
        const variable client = one_of(made_.clients);
        const std::size_t slot = packet_slot();
        const value held = number(0); // the slot's content, when the time has come
        switch (drawn) {
        case get_packet:
            return add_new_packet(client, slot);
        case send: {
            step &made = add(call_of("send", {named(client), held}), {{1, slot}});
            made.empties = static_cast<int>(slot);
            return;
        }
        case receive:
            return keep(add(call_of("recv", {named(client)})), slot, role::number);
        case read:
            return add_read(slot);
        case write:
            return add_write(slot);
        case set_tag:
            if (chance(25)) {
                add(call_of("set_tag", {held, held}), {{0, slot}, {1, TAG_SLOT}});
            } else {
                add(call_of("set_tag", {held, number(drawn_tag())}), {{0, slot}});
            }
            return;
        case free_packet: {
            step &made = add(call_of("free_packet", {held}), {{0, slot}});
            made.empties = static_cast<int>(slot);
            return;
        }
        case ask_queue:
            add(call_of("queue_is_empty", {named(client)}));
            return;
        case claim_tag:
            if (chance(50)) {
                add(call_of("register_tag", {named(client), number(drawn_tag())}));
            } else {
                add(call_of("is_tag_registered",
                            {chance(50) ? number(0) : named(client), number(drawn_tag())}));
            }
            return;
        case give_up_tag:
            add(call_of("deregister_tag", {named(client), number(drawn_tag())}));
            return;
        case dynamic_tag:
            return add_dynamic_tag();
        case buffer:
            return add_buffer(client, slot);
        case duplicate: {
            const std::size_t other = (slot + 1) % PACKET_SLOTS;
            step &made = add(call_of("duplicate", {held, number(OFFSET_DATA), number(0),
                                                   number(KEL_COPY_ALL), NOTHING}),
                             {{0, slot}});
            return keep(made, other, role::packet);
        }
        case change_role:
            add(call_of("client_ha_role_notify",
                        {named(made_.clients[below(2)]),
                         number(chance(50) ? KEL_ROLE_ACTIVE : KEL_ROLE_STANDBY)}));
            return;
        case use_event:
        case KINDS:
            return add_event(client);
        }
    }

    std::uint64_t drawn_tag() { return chance(25) ? UNHELD_TAG + below(2) : one_of(made_.tags); }

    variable drawn_group() { return has_group_ && chance(70) ? made_.groups[0] : NO_VARIABLE; }

    void add_new_packet(variable client, std::size_t slot)
    {
        keep(add(get_call(client, drawn_group())), slot, role::packet);
        add(write_call(number(0), drawn_data()), {{0, slot}});
        if (chance(80)) {
            add(call_of("set_tag", {number(0), number(one_of(made_.tags))}), {{0, slot}});
        }
    }

    void add_read(std::size_t slot)
    {
        const value held = number(0);
        switch (below(3)) {
        case 0:
            add(call_of("get_cause", {held, NOTHING}), {{0, slot}});
            return;
        case 1:
            // A dynamic tag's number may be given out again: it would not say which one it is.
            add(call_of(weights_[dynamic_tag] == 0 ? "get_tag" : "get_length", {held}),
                {{0, slot}});
            return;
        default:
            add(call_of("get_data",
                        {held, number(OFFSET_DATA), number(0), NOTHING, number(DATA_SIZE)}),
                {{0, slot}});
        }
    }

    void add_write(std::size_t slot)
    {
        if (chance(50)) {
            add(call_of("set_cause", {number(0), number(1 + below(1000))}), {{0, slot}});
        } else {
            add(write_call(number(0), drawn_data()), {{0, slot}});
        }
    }

    void add_dynamic_tag()
    {
        const variable owner = tag_owner(made_, thread_);
        if (chance(30)) {
            step &made = add(call_of("free_tag", {named(owner), number(0)}), {{1, TAG_SLOT}});
            made.empties = static_cast<int>(TAG_SLOT);
            return;
        }
        keep(add(call_of("alloc_tag", {named(owner), NOTHING, value{value_kind::null, {}, {}}})),
             TAG_SLOT, role::tag);
        add(call_of("register_tag", {named(owner), number(0)}), {{1, TAG_SLOT}});
    }

    void add_buffer(variable client, std::size_t slot)
    {
        const variable group = drawn_group();
        keep(add(call_of("get_buffer", {named(client), group < 0 ? number(0) : named(group),
                                        number(PACKET_SIZE), number(1), NOTHING})),
             BUFFER_SLOT, role::buffer);
        step &made = chance(50) ? add(call_of("append", {number(0), number(0)}),
                                      {{0, slot}, {1, BUFFER_SLOT}})
                                : add(call_of("free_buffer", {number(0)}), {{0, BUFFER_SLOT}});
        made.empties = static_cast<int>(BUFFER_SLOT);
    }

    void add_event(variable client)
    {
        const std::uint64_t tag = one_of(made_.tags);
        const std::uint64_t context = below(4);
        switch (below(has_group_ ? 6 : 5)) {
        case 0:
            add(call_of("event_add_tag", {named(client), number(tag), number(context), number(0)}));
            return;
        case 1:
            add(call_of("event_remove_tag", {named(client), number(tag)}));
            return;
        case 2:
            add(call_of("event_clear", {named(client)}));
            return;
        case 5:
            add(call_of("event_add_bufgroup", {named(client), named(made_.groups[0]),
                                               number(KEL_EVENT_GROUP_LOW | KEL_EVENT_GROUP_HIGH),
                                               number(context), number(0)}));
            return;
        default:
            add(call_of("event_wait",
                        {named(client), NOTHING, value{value_kind::record, {{0}, {0}}, {}}}));
        }
    }

    // Some steps of the same place begin together, two and two: as many as run at the same time on
    // every machine.
    void arrange_meetings()
    {
        const std::size_t places = made_.threads.front().size();
        for (std::size_t place = 0; place < places; place++) {
            std::vector<std::size_t> all(made_.threads.size());
            std::iota(all.begin(), all.end(), std::size_t{0});
            for (std::size_t i = all.size(); i > 1; i--) std::swap(all[i - 1], all[below(i)]);
            for (std::size_t i = 0; i + 1 < all.size(); i += 2) {
                if (!chance(70)) continue;
                meet(made_.threads[all[i]][place], made_.threads[all[i + 1]][place]);
            }
        }
    }

    void meet(step &one, step &other)
    {
        const auto number = static_cast<int>(made_.meetings++);
        for (step *each : {&one, &other}) {
            each->meeting = number;
            each->turns %= MOST_TURNS / 6;
        }
    }

    shape asked_;
    std::mt19937_64 random_;
    bool has_roles_ = false;
    bool has_group_ = false;
    bool is_nearly_full_ = false;
    std::array<unsigned, KINDS> weights_{};
    std::size_t thread_ = 0;
    plan made_;
};

} // namespace

plan make_plan(std::uint64_t seed, std::uint64_t index, const shape &asked)
{
    return planner(seed, index, asked).make();
}

} // namespace histories

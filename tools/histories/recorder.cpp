// SPDX-License-Identifier: MIT
#include "tools/histories/recorder.h"

#include <sched.h>

#include <algorithm>
#include <deque>
#include <thread>

namespace histories {

namespace {

using sequence::NO_VARIABLE;
using sequence::value;
using sequence::value_kind;
using sequence::variable;

// More packets than a plan can put into a queue.
constexpr unsigned DRAIN_MAX = 64 + THREADS_MAX * CALLS_MAX;

// How long a thread waits for others that are to begin a call together with it.
constexpr int MEETING_TURNS = 4000;
constexpr int TURNS_TO_YIELD = 200;

struct moments {
    std::atomic<std::uint32_t> next{1};
    std::uint32_t take() { return next.fetch_add(1); }
};

// A call with its memory, from before it is made until its answer is read.
struct made_call {
    const step *planned = nullptr;
    sequence::laid_out_arguments memory{};
    sequence::raw_arguments raw{};
    sequence::raw_arguments room{};
    std::uint64_t result = 0;
    interval time{};
    bool is_made = false;
    std::uint16_t thread = FIRST_THREAD;
};

// What a call gives for a slot: its result, or the tag that it stores.
std::uint64_t given_number(const made_call &made)
{
    const auto &which = sequence::schema_of(made.planned->made.operation);
    if (which.result.form == interface::form::handle) return made.result & 0xffffffff;
    if (!has_succeeded(which, made.result & 0xffffffff)) return 0;
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const auto &where = which.parameters[i];
        if (where.shape == sequence::shape::number && where.is_written() && !where.is_read()) {
            // NOLINTNEXTLINE(performance-no-int-to-ptr): it is the memory laid out for the call
            return *reinterpret_cast<const std::uint32_t *>(made.raw[i]);
        }
    }
    return 0;
}

class recorder {
public:
    recorder(const sequence::library &tested, const plan &planned, progress &shown)
        : tested_(tested), plan_(planned), shown_(shown), arrived_(planned.meetings)
    {
        recorded_.made.variables = planned.variables;
        for (auto &each : shown_.threads) {
            for (auto &begun : each.are_begun) begun = false;
            each.is_calling = false;
        }
    }

    history run()
    {
        for (const sequence::call &each : plan_.before) call_alone(each);
        prepare();
        {
            std::vector<std::jthread> threads;
            for (std::size_t i = 0; i < plan_.threads.size(); i++) {
                threads.emplace_back([this, i] { run_thread(i); });
            }
        }
        read_answers();
        conclude();
        return std::move(recorded_);
    }

private:
    void make(made_call &one, std::size_t thread)
    {
        auto &shown = shown_.threads[thread];
        shown.operation.store(one.planned->made.operation, std::memory_order_relaxed);
        shown.is_calling.store(true, std::memory_order_relaxed);
        one.time.begin = moments_.take();
        one.result = tested_.call(one.planned->made.operation, one.raw);
        one.time.end = moments_.take();
        shown.is_calling.store(false, std::memory_order_relaxed);
        shown_.moves.fetch_add(1, std::memory_order_relaxed);
        one.is_made = true;
    }

    void lay_out(made_call &one)
    {
        const sequence::call &made = one.planned->made;
        one.memory.lay_out(made, known_);
        one.raw = one.memory.raw();
        one.room = sequence::counts_before(sequence::schema_of(made.operation), one.raw, true);
    }

    // By the first thread, while no other runs.
    sequence::answer call_alone(const sequence::call &made)
    {
        const step alone{made};
        made_call one;
        one.planned = &alone;
        lay_out(one);
        make(one, 0);
        return note(one, made);
    }

    // Puts a call that has returned into the history.
    sequence::answer note(const made_call &one, sequence::call made)
    {
        sequence::answer given = read_answer(made, one.result, one.raw, one.room, known_, {});
        recorded_.made.add(std::move(made));
        recorded_.made.answers.push_back(given);
        recorded_.times.push_back(one.time);
        return given;
    }

    void prepare()
    {
        calls_.resize(plan_.threads.size());
        for (std::size_t i = 0; i < calls_.size(); i++) {
            for (const step &each : plan_.threads[i]) {
                made_call &one = calls_[i].emplace_back();
                one.planned = &each;
                one.thread = each.made.thread;
                lay_out(one);
            }
            std::array<std::uint64_t, SLOTS> numbers{};
            for (std::size_t slot = 0; slot < SLOTS; slot++) {
                const variable name = plan_.held[i][slot];
                numbers[slot] = name == NO_VARIABLE ? 0 : known_.number_of({0, name});
            }
            slots_.push_back(numbers);
        }
    }

    // Together with another thread, unless that one is late.
    void meet(int meeting)
    {
        if (meeting < 0) return;
        auto &arrived = arrived_[static_cast<std::size_t>(meeting)];
        arrived.fetch_add(1);
        for (int turn = 1; arrived.load() < 2 && turn < MEETING_TURNS; turn++) {
            if (turn % TURNS_TO_YIELD == 0) sched_yield();
        }
    }

    void leave_out(const step &planned)
    {
        if (planned.meeting >= 0) arrived_[static_cast<std::size_t>(planned.meeting)].fetch_add(1);
    }

    void wait_for_all()
    {
        ready_.fetch_add(1);
        while (ready_.load() < plan_.threads.size()) sched_yield();
    }

    void run_thread(std::size_t thread)
    {
        auto &slots = slots_[thread];
        wait_for_all();
        std::size_t made = 0;
        for (made_call &one : calls_[thread]) {
            const step &planned = *one.planned;
            const auto is_empty = [&](const slot_use &use) { return slots[use.slot] == 0; };
            if (made == plan_.calls || std::ranges::any_of(planned.uses, is_empty) ||
                (planned.fills >= 0 && slots[static_cast<std::size_t>(planned.fills)] != 0)) {
                leave_out(planned);
                continue;
            }
            for (const slot_use &use : planned.uses) one.raw[use.argument] = slots[use.slot];
            const auto place = static_cast<std::size_t>(&planned - plan_.threads[thread].data());
            shown_.threads[thread + 1].are_begun[place].store(true, std::memory_order_relaxed);
            meet(planned.meeting);
            for (volatile std::uint32_t turn = 0; turn < planned.turns;) turn = turn + 1;
            make(one, thread + 1);
            made++;
            if (planned.fills >= 0) {
                slots[static_cast<std::size_t>(planned.fills)] = given_number(one);
            }
            if (planned.empties >= 0 && has_succeeded(sequence::schema_of(planned.made.operation),
                                                      one.result & 0xffffffff)) {
                slots[static_cast<std::size_t>(planned.empties)] = 0;
            }
        }
    }

    // In the order in which the calls returned: a handle that a library gives again is the one
    // that it gave last.
    void read_answers()
    {
        std::vector<const made_call *> all;
        for (const auto &each : calls_) {
            for (const made_call &one : each) {
                if (one.is_made) all.push_back(&one);
            }
        }
        std::ranges::sort(all, {}, [](const made_call *one) { return one->time.end; });
        names_ = plan_.held;
        for (const made_call *each : all) read_one(*each);
    }

    void read_one(const made_call &one)
    {
        const step &planned = *one.planned;
        slot_names &names = names_[one.thread - 2U];
        sequence::call made = planned.made;
        for (const slot_use &use : planned.uses) {
            const variable name = names[use.slot];
            made.arguments[use.argument] = name >= 0 ? named(name) : number(one.raw[use.argument]);
        }
        if (planned.fills >= 0 && given_number(one) == 0) made.names.clear();
        const sequence::answer given = note(one, made);
        if (planned.fills < 0) return;
        variable name = made.names.empty() ? NO_VARIABLE : made.names.front();
        if (given.result.kind == value_kind::number && given.result.one().name >= 0) {
            name = given.result.one().name;
        }
        names[static_cast<std::size_t>(planned.fills)] = name;
    }

    void conclude()
    {
        for (std::size_t i = 0; i < plan_.threads.size(); i++) free_slots(i);
        for (const variable client : plan_.clients) drain(client);
        ask_counts();
        for (const variable client : plan_.clients) {
            call_alone(call_of("deregister_client", {named(client)}));
        }
    }

    void free_slots(std::size_t thread)
    {
        for (std::size_t slot = 0; slot < SLOTS; slot++) {
            const std::uint64_t held = slots_[thread][slot];
            if (held == 0) continue;
            const variable name = names_[thread][slot];
            const value handle = name >= 0 ? named(name) : number(held);
            if (slot < PACKET_SLOTS) {
                call_alone(call_of("free_packet", {handle}));
            } else if (slot == BUFFER_SLOT) {
                call_alone(call_of("free_buffer", {handle}));
            } else {
                call_alone(call_of("free_tag", {named(tag_owner(plan_, thread)), handle}));
            }
        }
    }

    // Each packet that was sent and not received comes now, once, in its order.
    void drain(variable client)
    {
        for (unsigned i = 0; i < DRAIN_MAX; i++) {
            const sequence::answer given = call_alone(call_of("recv", {named(client)}));
            const sequence::scalar received = given.result.one();
            if (received == sequence::scalar{}) break;
            if (received.name < 0) break; // nothing that anybody sent
            call_alone(call_of("get_cause", {named(received.name), {}}));
            call_alone(call_of("free_packet", {named(received.name)}));
        }
        if (!plan_.has_events) return;
        const value poll{value_kind::record, {{0}, {0}}, {}};
        call_alone(call_of("event_wait", {named(client), {}, poll}));
    }

    void ask_counts()
    {
        for (const variable client : plan_.clients) {
            call_alone(call_of("get_bufcount_byclient", {named(client), {}, {}}));
            for (const variable group : plan_.groups) {
                call_alone(call_of("get_count_bygroup", {named(client), named(group), {}, {}}));
            }
        }
        for (const std::uint64_t tag : plan_.tags) {
            call_alone(call_of("get_count_bytag", {number(0), number(tag), {}, {}}));
        }
    }

    const sequence::library &tested_;
    const plan &plan_;
    progress &shown_;
    sequence::bindings known_;
    history recorded_;
    moments moments_;
    std::atomic<std::size_t> ready_{0};
    std::vector<std::atomic<unsigned>> arrived_;
    std::vector<std::deque<made_call>> calls_;
    std::vector<std::array<std::uint64_t, SLOTS>> slots_;
    std::vector<slot_names> names_;
};

} // namespace

history record(const sequence::library &tested, const plan &planned, progress &shown)
{
    return recorder(tested, planned, shown).run();
}

} // namespace histories

// SPDX-License-Identifier: MIT
#include "tools/histories/checker.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <deque>
#include <limits>
#include <map>
#include <tuple>
#include <unordered_set>

#include "tools/common/hash.h"
#include "tools/histories/influence.h"

namespace histories {

namespace {

using std::chrono::nanoseconds;

nanoseconds processor_time()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
}

std::uint64_t mixed(std::uint64_t before, std::uint64_t next)
{
    return tools::hash_of({reinterpret_cast<const char *>(&next), sizeof next}, before);
}

// The reference library in the state that a path of calls has led to.
class model_state {
public:
    model_state(const sequence::library &model, const sequence::call_sequence &made)
        : model_(model), made_(made), memory_(made.calls.size())
    {
        for (std::size_t i = 0; i < made.variables.size(); i++) {
            if (made.variables[i].what == sequence::role::client) {
                clients_.push_back(static_cast<sequence::variable>(i));
            }
        }
    }
    ~model_state() { clear(); }
    model_state(const model_state &) = delete;
    model_state &operator=(const model_state &) = delete;

    sequence::answer make(std::size_t index)
    {
        auto &memory = memory_[index];
        sequence::call made = made_.calls[index];
        memory.lay_out(made, known_);
        const auto room =
            sequence::counts_before(sequence::schema_of(made.operation), memory.raw(), true);
        const std::uint64_t result = model_.call(made.operation, memory.raw());
        calls_++;
        return read_answer(made, result, memory.raw(), room, known_, {});
    }

    void make_again(const std::vector<std::size_t> &path)
    {
        clear();
        for (const std::size_t each : path) make(each);
    }

    std::size_t calls() const { return calls_; }

private:
    void clear()
    {
        static const sequence::operation END =
            number_of(*sequence::find_operation("deregister_client"));
        for (const sequence::variable each : clients_) {
            model_.call(END, {known_.number_of({0, each})});
        }
        known_ = {};
    }

    const sequence::library &model_;
    const sequence::call_sequence &made_;
    sequence::bindings known_;
    std::vector<sequence::variable> clients_;
    std::deque<sequence::laid_out_arguments> memory_;
    std::size_t calls_ = 0;
};

class search {
public:
    // With `required`, for each call those that have to come before it, only such orders.
    search(const sequence::library &model, const history &whole, nanoseconds deadline,
           std::vector<std::vector<std::size_t>> required)
        : whole_(whole), influences_(influences_of(whole)), required_(std::move(required)),
          are_done_(whole.times.size()), state_(model, whole.made), deadline_(deadline)
    {
        std::map<std::uint16_t, std::vector<std::size_t>> threads;
        for (std::size_t i = 0; i < whole.made.calls.size(); i++) {
            threads[whole.made.calls[i].thread].push_back(i);
        }
        for (auto &[number, calls] : threads) threads_.push_back({std::move(calls)});
    }

    verdict run()
    {
        const bool is_legal = go_on({});
        verdict found;
        found.calls = state_.calls();
        found.outcome = is_legal   ? outcome::legal
                        : is_late_ ? outcome::undecided
                                   : outcome::illegal;
        found.path = is_legal ? path_ : longest_;
        if (!is_legal) found.misfits = std::move(misfits_);
        return found;
    }

private:
    // What tells states apart: for each part of the state a hash of the calls that changed it, in
    // their order. Roles are changed often, and to what they were before: of them it is the clients
    // that are ACTIVE, in the order in which they became it.
    struct changes {
        std::array<std::uint64_t, std::numeric_limits<std::uint32_t>::digits> parts{};
        std::vector<sequence::variable> active{};
    };

    struct thread {
        std::vector<std::size_t> calls;
        std::size_t done = 0;

        bool is_done() const { return done == calls.size(); }
        std::size_t next() const { return calls[done]; }
    };

    struct candidate {
        std::size_t thread;
        std::size_t call;
        bool is_free; // no call that may come before it has a conflict with it
    };

    bool is_late()
    {
        constexpr unsigned SELDOM = 16;
        if (++asked_ % SELDOM == 0 && processor_time() > deadline_) is_late_ = true;
        return is_late_;
    }

    // Each thread's next call that began before any call that is left has returned.
    std::vector<candidate> candidates() const
    {
        std::uint32_t first_end = ~std::uint32_t{0};
        for (const thread &each : threads_) {
            if (!each.is_done()) first_end = std::min(first_end, whole_.times[each.next()].end);
        }
        std::vector<candidate> chosen;
        for (std::size_t i = 0; i < threads_.size(); i++) {
            const thread &each = threads_[i];
            if (each.is_done() || whole_.times[each.next()].begin > first_end) continue;
            if (!may_come(each.next())) continue;
            chosen.push_back({i, each.next(), is_free(i, each.next())});
        }
        std::ranges::sort(chosen, {}, [this](const candidate &one) {
            return std::tuple(!one.is_free, influences_[one.call].changes != 0,
                              whole_.times[one.call].begin + whole_.times[one.call].end);
        });
        return chosen;
    }

    bool may_come(std::size_t call) const
    {
        return required_.empty() || std::ranges::all_of(required_[call], [this](std::size_t each) {
                   return are_done_[each];
               });
    }

    bool is_free(std::size_t own, std::size_t call) const
    {
        for (std::size_t i = 0; i < threads_.size(); i++) {
            const thread &other = threads_[i];
            for (std::size_t at = other.done; i != own && at < other.calls.size(); at++) {
                const std::size_t each = other.calls[at];
                if (whole_.times[each].begin > whole_.times[call].end) break;
                if (influences_[call].conflicts_with(influences_[each])) return false;
            }
        }
        return true;
    }

    bool is_new(const changes &done)
    {
        std::uint64_t place = tools::HASH_OF_NOTHING;
        for (const thread &each : threads_) place = mixed(place, each.done);
        for (const std::uint64_t each : done.parts) place = mixed(place, each);
        return visited_.insert(place).second;
    }

    changes with(changes done, std::size_t call) const
    {
        const influence &what = influences_[call];
        if (what.changes == ROLES) return with_role(std::move(done), whole_.made.calls[call]);
        std::uint64_t hash = mixed(tools::HASH_OF_NOTHING, call);
        for_each_part(what.reads | what.changes,
                      [&](std::size_t part) { hash = mixed(hash, done.parts[part]); });
        for_each_part(what.changes, [&](std::size_t part) { done.parts[part] = hash; });
        return done;
    }

    static changes with_role(changes done, const sequence::call &made)
    {
        const sequence::variable client = made.arguments[0].one().name;
        const bool becomes_active = made.arguments[1].one().number == KEL_ROLE_ACTIVE;
        const auto known = std::ranges::find(done.active, client);
        if (known == done.active.end() && becomes_active) done.active.push_back(client);
        if (known != done.active.end() && !becomes_active) done.active.erase(known);
        std::uint64_t hash = tools::HASH_OF_NOTHING;
        for (const sequence::variable each : done.active) {
            hash = mixed(hash, static_cast<std::uint64_t>(each));
        }
        for_each_part(ROLES, [&](std::size_t part) { done.parts[part] = hash; });
        return done;
    }

    template <typename action> static void for_each_part(std::uint32_t parts, action carry_out)
    {
        for (std::size_t part = 0; parts != 0; part++, parts >>= 1) {
            if ((parts & 1) != 0) carry_out(part);
        }
    }

    bool go_on(const changes &done)
    {
        if (path_.size() == whole_.made.calls.size()) return true;
        if (is_late() || !is_new(done)) return false;
        for (const candidate &each : candidates()) {
            if (is_behind_) state_.make_again(path_);
            is_behind_ = false;
            if (!fits(each.call)) {
                // Nothing that may come before it would make it fit.
                if (each.is_free) return false;
                continue;
            }
            path_.push_back(each.call);
            threads_[each.thread].done++;
            are_done_[each.call] = true;
            if (go_on(with(done, each.call))) return true;
            are_done_[each.call] = false;
            threads_[each.thread].done--;
            path_.pop_back();
            is_behind_ = true;
            // It fits here as well as anywhere later.
            if (each.is_free || influences_[each.call].changes == 0 || is_late_) return false;
        }
        return false;
    }

    bool fits(std::size_t call)
    {
        const sequence::call &made = whole_.made.calls[call];
        sequence::answer expected = state_.make(call);
        auto differing = compare(made, expected, whole_.made.answers[call], whole_.made.variables);
        if (!differing) return true;
        is_behind_ = has_effect(made, expected);
        note_misfit({call, std::move(expected), std::move(*differing)});
        return false;
    }

    void note_misfit(misfit found)
    {
        if (misfits_.empty() || path_.size() > longest_.size()) {
            longest_ = path_;
            misfits_.clear();
        }
        if (path_ == longest_) misfits_.push_back(std::move(found));
    }

    const history &whole_;
    std::vector<influence> influences_; // one a call
    std::vector<std::vector<std::size_t>> required_;
    std::vector<bool> are_done_;
    model_state state_;
    nanoseconds deadline_;
    std::vector<thread> threads_;
    std::vector<std::size_t> path_;
    std::vector<std::size_t> longest_;
    std::vector<misfit> misfits_;
    std::unordered_set<std::uint64_t> visited_;
    unsigned asked_ = 0;
    bool is_late_ = false;
    bool is_behind_ = false; // the model's state is not that of the path
};

} // namespace

checker::checker(const sequence::library &model) : model_(model)
{
    std::uint32_t client = 0;
    const sequence::raw_arguments arguments{reinterpret_cast<std::uintptr_t>(&client), 0,
                                            KEL_ROLE_ALWAYS, 0};
    model_.call(number_of(*sequence::find_operation("register_client")), arguments);
    awake_ = client;
}

checker::~checker()
{
    model_.call(number_of(*sequence::find_operation("deregister_client")), {awake_});
}

verdict checker::check(const history &whole, std::chrono::milliseconds limit)
{
    const nanoseconds deadline = processor_time() + limit;
    // Most orders of overlapping sends come to nothing only when the packets are received, much
    // later. Where the queues say nothing wrong, their order is the right one.
    verdict found = search(model_, whole, deadline, sends_before(whole)).run();
    if (found.outcome == outcome::legal) return found;
    return search(model_, whole, deadline, {}).run();
}

} // namespace histories

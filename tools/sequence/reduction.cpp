// SPDX-License-Identifier: MIT
//
// Changes that may make the sequence smaller are tried a few at a time, each kept where the
// difference stays the same: first only the calls that have to do with the guilty one, then without
// the lives of objects, then without single calls, many at a time before one by one, then with
// smaller numbers and data.
#include "tools/sequence/reduction.h"

#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "tools/sequence/dependencies.h"

namespace sequence {

namespace {

// So many candidates at a time, on two libraries each; more where they take their time, as they
// wait then.
constexpr std::size_t AT_ONCE = 4;
constexpr std::size_t WAITING_AT_ONCE = 24;
constexpr std::chrono::milliseconds LONG{60};
// For a library that hangs: longer than a call takes.
constexpr std::chrono::milliseconds QUICK{200};

// A sequence with the call that differs. A wait needs the calls after it that end it.
struct candidate {
    call_sequence made;
    std::size_t guilty;
};

// The candidate with the change, nothing where there is nothing to change.
using change = std::function<std::optional<candidate>(const candidate &)>;

// A call alone in its thread needs no thread.
std::optional<candidate> in_one_thread(candidate one)
{
    call_sequence &made = one.made;
    const auto is_whole = [](const step &each) { return each.phase == phase::whole; };
    const auto is_first = [](const call &each) { return each.thread == 1; };
    if (std::ranges::all_of(made.steps, is_whole) && std::ranges::all_of(made.calls, is_first)) {
        return std::nullopt;
    }
    made.steps.clear();
    for (std::size_t i = 0; i < made.calls.size(); i++) {
        made.calls[i].thread = 1;
        made.steps.push_back({static_cast<std::uint32_t>(i), phase::whole});
    }
    return one;
}

// The guilty call stays.
std::optional<candidate> selected(const candidate &from, std::vector<bool> kept)
{
    kept[from.guilty] = true;
    kept = closed(from.made, std::move(kept));
    if (!kept[from.guilty] || std::ranges::find(kept, false) == kept.end()) return std::nullopt;
    const auto before = kept.begin() + static_cast<std::ptrdiff_t>(from.guilty);
    return candidate{selection(from.made, kept),
                     static_cast<std::size_t>(std::count(kept.begin(), before, true))};
}

// What acts on the objects of the guilty call, and on those that these came from; all that comes
// after it.
std::optional<candidate> related_part(const candidate &from)
{
    std::vector<bool> kept(from.made.calls.size(), false);
    for (const std::size_t each : related_to(from.made, from.guilty)) kept[each] = true;
    std::fill(kept.begin() + static_cast<std::ptrdiff_t>(from.guilty), kept.end(), true);
    return selected(from, std::move(kept));
}

bool is_timeout(const parameter &where)
{
    return where.name == "timeout";
}

// Waits of no length.
std::optional<candidate> without_waits(candidate one)
{
    bool changed = false;
    for (call &each : one.made.calls) {
        const operation_schema &which = schema_of(each.operation);
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            if (!is_timeout(which.parameters[i]) && each.operation != SLEEP) continue;
            for (scalar &time : each.arguments[i].scalars) {
                changed = changed || time.number != 0;
                time.number = 0;
            }
        }
    }
    if (!changed) return std::nullopt;
    return one;
}

// Without calls `begin` to `end`. Those in front of them keep their places whatever goes with them.
change without_calls(std::size_t begin, std::size_t end)
{
    return [begin, end](const candidate &from) -> std::optional<candidate> {
        const std::size_t last = std::min(end, from.made.calls.size());
        if (begin >= last) return std::nullopt;
        std::vector<bool> kept(from.made.calls.size(), true);
        std::fill(kept.begin() + static_cast<std::ptrdiff_t>(begin),
                  kept.begin() + static_cast<std::ptrdiff_t>(last), false);
        return selected(from, std::move(kept));
    };
}

// Whether the call, when it was recorded, gave one of the variables `begin` to `end`.
bool gave(const call &made, const answer &given, std::size_t begin, std::size_t end)
{
    const auto is_one = [&](variable each) {
        return each >= 0 && static_cast<std::size_t>(each) >= begin &&
               static_cast<std::size_t>(each) < end;
    };
    const auto has_one = [&](const value &each) {
        return std::ranges::any_of(each.scalars, is_one, &scalar::name);
    };
    return std::ranges::any_of(made.names, is_one) || has_one(given.result) ||
           std::ranges::any_of(given.stored, has_one);
}

// Without the calls that give variables `begin` to `end`, and those that use these.
change without_lives(std::size_t begin, std::size_t end)
{
    return [begin, end](const candidate &from) -> std::optional<candidate> {
        std::vector<bool> kept;
        for (std::size_t i = 0; i < from.made.calls.size(); i++) {
            kept.push_back(!gave(from.made.calls[i], from.made.answers[i], begin, end));
        }
        return selected(from, std::move(kept));
    };
}

// Without all calls of the operation but the guilty one.
change without_operation(operation which)
{
    return [which](const candidate &from) -> std::optional<candidate> {
        std::vector<bool> kept;
        for (const call &each : from.made.calls) kept.push_back(each.operation != which);
        return selected(from, std::move(kept));
    };
}

// From the back, in pieces of that size.
std::vector<change> in_pieces(std::size_t count, std::size_t size,
                              change (*without)(std::size_t begin, std::size_t end))
{
    std::vector<change> changes;
    for (std::size_t end = count; end > 0;) {
        const std::size_t begin = end > size ? end - size : 0;
        changes.push_back(without(begin, end));
        end = begin;
    }
    return changes;
}

// Data is as long as its count says.
void fit_data(call &made)
{
    const operation_schema &which = schema_of(made.operation);
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const int at = which.parameters[i].count_at;
        value &data = made.arguments[i];
        if (at < 0 || data.kind != value_kind::bytes) continue;
        const value &count = made.arguments[static_cast<std::size_t>(at)];
        data.bytes.resize(std::min<std::size_t>(data.bytes.size(), count.one().number));
    }
}

struct place_of_argument {
    std::size_t call;
    std::size_t argument;

    value &in(call_sequence &made) const { return made.calls[call].arguments[argument]; }
    const value &in(const call_sequence &made) const
    {
        return made.calls[call].arguments[argument];
    }
};

// `smaller` is told the number as it is then.
change with_number(place_of_argument where, std::size_t at,
                   const std::function<std::uint64_t(std::uint64_t)> &smaller)
{
    return [where, at, smaller](const candidate &from) -> std::optional<candidate> {
        const scalar now = where.in(from.made).scalars[at];
        const std::uint64_t number = smaller(now.number);
        if (now.name != NO_VARIABLE || number >= now.number) return std::nullopt;
        candidate changed = from;
        where.in(changed.made).scalars[at].number = number;
        fit_data(changed.made.calls[where.call]);
        return changed;
    };
}

change with_bytes(place_of_argument where,
                  const std::function<std::string(const std::string &)> &simpler)
{
    return [where, simpler](const candidate &from) -> std::optional<candidate> {
        const value &now = where.in(from.made);
        if (now.kind != value_kind::bytes) return std::nullopt;
        std::string bytes = simpler(now.bytes);
        if (bytes == now.bytes) return std::nullopt;
        candidate changed = from;
        where.in(changed.made).bytes = std::move(bytes);
        return changed;
    };
}

// Handles and kinds stay; quantities become 0, then less; text becomes short, data zero.
void add_smaller(std::vector<change> &changes, const call_sequence &made, place_of_argument where)
{
    const parameter &what = schema_of(made.calls[where.call].operation).parameters[where.argument];
    if (what.shape == shape::bytes) {
        changes.push_back(
            with_bytes(where, [](const std::string &now) { return std::string(now.size(), 0); }));
    } else if (what.shape == shape::text) {
        changes.push_back(
            with_bytes(where, [](const std::string &now) { return now.substr(0, 1); }));
    } else if ((what.form == interface::form::decimal || what.record != nullptr) &&
               !is_timeout(what)) {
        for (std::size_t i = 0; i < where.in(made).scalars.size(); i++) {
            changes.push_back(with_number(where, i, [](std::uint64_t) { return 0; }));
            changes.push_back(with_number(where, i, [](std::uint64_t) { return 1; }));
            changes.push_back(with_number(where, i, [](std::uint64_t now) { return now / 2; }));
        }
    }
}

class reducer {
public:
    reducer(const finding &shown, const reduction_setup &how) : shown_(shown), how_(how) {}

    // `is_bold`: waits may become shorter, and what takes long counts as a hang at once.
    std::optional<reduced> run(const call_sequence &whole, bool is_bold)
    {
        start_with(whole);
        allowed_ = how_.allowed;
        const bool hangs = shown_.difference.got == "hang" ||
                           shown_.difference.got == "not returned" ||
                           shown_.difference.expected == "hang";
        if (is_bold && hangs) allowed_.call = std::min(allowed_.call, QUICK);
        if (!first_showing({current_})) return std::nullopt;
        apply({related_part});
        if (is_bold) apply({without_waits});
        drop_operations();
        drop_lives();
        for (bool changed = true; changed;) {
            changed = drop_calls();
            changed = apply({in_one_thread}) || changed;
            changed = apply(smaller_arguments()) || changed;
        }
        return proved();
    }

private:
    void start_with(const call_sequence &whole)
    {
        std::vector<bool> kept(whole.calls.size(), false);
        std::fill_n(kept.begin(), begun_until_return(whole, shown_.call), true);
        current_ = {selection(whole, kept), shown_.call};
        call_sequence &made = current_.made;
        for (call &each : made.calls) each.comments.clear();
        made.closing_comments.clear();
        made.answers.resize(made.calls.size());
    }

    // Whether the guilty call, and none before it, differs in the same way.
    // `shadow` may be null.
    bool shows(const candidate &one, const answers &got, const answers &expected,
               const answers *shadow) const
    {
        const auto other_content = [shadow](std::size_t index) {
            return shadow && index < shadow->size() ? &(*shadow)[index] : nullptr;
        };
        const call_sequence &made = one.made;
        const bool is_whole =
            expected.size() == made.calls.size() || expected.back().outcome != outcome::returned;
        if (!is_whole || expected.size() <= one.guilty || got.size() <= one.guilty) return false;
        for (std::size_t i = 0; i < one.guilty; i++) {
            if (compare(made.calls[i], expected[i], got[i], made.variables, other_content(i))) {
                return false;
            }
        }
        const auto found = compare(made.calls[one.guilty], expected[one.guilty], got[one.guilty],
                                   made.variables, other_content(one.guilty));
        return found && is_same(*found);
    }

    // What had not returned when it was recorded hangs when it is made again.
    bool is_same(const difference &found) const
    {
        const difference &wanted = shown_.difference;
        const bool never_returned = wanted.got == "not returned" && found.got == "hang";
        return found.part == wanted.part && found.expected == wanted.expected &&
               (found.got == wanted.got || never_returned);
    }

    // Makes each candidate so many times on both libraries: which of them show it every time.
    std::vector<bool> which_show(const std::vector<candidate> &candidates, std::size_t times,
                                 const limits &allowed)
    {
        std::vector<job> jobs;
        for (const candidate &each : candidates) {
            for (std::size_t i = 0; i < times; i++) {
                jobs.push_back({.setup = how_.tested, .made = &each.made});
                jobs.push_back({.setup = how_.reference, .made = &each.made});
                if (how_.shadow) jobs.push_back({.setup = *how_.shadow, .made = &each.made});
            }
        }
        auto all = run_all(jobs, allowed);
        const std::size_t libraries = how_.shadow ? 3 : 2;
        std::vector<bool> showing(candidates.size(), true);
        for (std::size_t i = 0; i < candidates.size(); i++) {
            for (std::size_t j = 0; j < times; j++) {
                const std::size_t at = libraries * (i * times + j);
                const answers *shadow = how_.shadow ? &all[at + 2] : nullptr;
                if (!shows(candidates[i], all[at], all[at + 1], shadow)) showing[i] = false;
            }
            if (showing[i]) expected_ = std::move(all[libraries * i * times + 1]);
        }
        runs_ += candidates.size() * times;
        return showing;
    }

    std::optional<std::size_t> first_showing(const std::vector<candidate> &candidates)
    {
        const auto start = std::chrono::steady_clock::now();
        const auto showing = which_show(candidates, 1, allowed_);
        at_once_ = std::chrono::steady_clock::now() - start < LONG ? AT_ONCE : WAITING_AT_ONCE;
        const auto first = std::ranges::find(showing, true);
        if (first == showing.end()) return std::nullopt;
        return static_cast<std::size_t>(first - showing.begin());
    }

    // Makes the changes in their order, each where the difference stays. They must mean the same
    // after those before them.
    bool apply(const std::vector<change> &changes)
    {
        bool changed = false;
        for (std::size_t next = 0; next < changes.size();) {
            std::vector<candidate> candidates;
            std::vector<std::size_t> made_by;
            for (; next < changes.size() && candidates.size() < at_once_; next++) {
                auto changed_one = changes[next](current_);
                if (!changed_one) continue;
                candidates.push_back(std::move(*changed_one));
                made_by.push_back(next);
            }
            if (candidates.empty()) continue;
            const auto first = first_showing(candidates);
            if (!first) continue;
            current_ = std::move(candidates[*first]);
            next = made_by[*first] + 1;
            changed = true;
        }
        return changed;
    }

    void drop_operations()
    {
        std::set<operation> used;
        for (const call &each : current_.made.calls) used.insert(each.operation);
        std::vector<change> changes;
        for (const operation each : used) changes.push_back(without_operation(each));
        apply(changes);
    }

    // In halves, quarters and at last one by one.
    void drop_lives()
    {
        const std::size_t count = current_.made.variables.size();
        for (std::size_t size = count / 2; size > 0; size /= 2) {
            apply(in_pieces(count, size, without_lives));
        }
    }

    bool drop_calls()
    {
        bool changed = false;
        for (std::size_t size = current_.made.calls.size() / 2; size > 0; size /= 2) {
            const auto changes = in_pieces(current_.made.calls.size(), size, without_calls);
            changed = apply(changes) || changed;
        }
        return changed;
    }

    std::vector<change> smaller_arguments() const
    {
        std::vector<change> changes;
        for (std::size_t i = 0; i < current_.made.calls.size(); i++) {
            for (std::size_t j = 0; j < current_.made.calls[i].arguments.size(); j++) {
                add_smaller(changes, current_.made, {i, j});
            }
        }
        return changes;
    }

    std::optional<reduced> proved()
    {
        if (!which_show({current_}, how_.proofs, how_.allowed).front()) return std::nullopt;
        reduced result{std::move(current_.made), shown_, runs_};
        result.made.answers = std::move(expected_);
        // After a hang there is none.
        result.made.answers.resize(result.made.calls.size());
        result.finding.call = current_.guilty;
        return result;
    }

    const finding &shown_;
    const reduction_setup &how_;
    limits allowed_;
    candidate current_;
    answers expected_;
    std::size_t runs_ = 0;
    std::size_t at_once_ = AT_ONCE;
};

} // namespace

std::optional<reduced> reduce(const call_sequence &whole, const finding &shown,
                              const reduction_setup &how)
{
    for (const bool is_bold : {true, false}) {
        reducer now(shown, how);
        if (auto smallest = now.run(whole, is_bold)) return smallest;
    }
    return std::nullopt;
}

} // namespace sequence

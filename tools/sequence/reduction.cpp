// SPDX-License-Identifier: MIT
//
// Changes that may make the sequence smaller are tried a few at a time, each kept where the
// difference stays the same: first only the calls that have to do with the guilty one, then without
// the lives of objects, then without single calls, many at a time before one by one, then with
// smaller numbers and data.
#include "tools/sequence/reduction.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <set>
#include <utility>

#include "tools/sequence/dependencies.h"

namespace sequence {

namespace {

// So many candidates at a time, on two libraries each; more where they take their time, as they
// wait then.
constexpr std::size_t AT_ONCE = 4;
constexpr std::size_t WAITING_AT_ONCE = 48;
constexpr std::chrono::milliseconds LONG{60};
// Longer than a call takes: without what would end a wait, libraries hang.
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

// The call waits no longer than that; without an end it still does.
void shorten(call &made, std::chrono::milliseconds most)
{
    if (told_time(made) <= most) return;
    const operation_schema &which = schema_of(made.operation);
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        std::vector<scalar> &time = made.arguments[i].scalars;
        if (made.operation == SLEEP) time = {{}};
        if (!is_timeout(which.parameters[i])) continue;
        time = {{}, {static_cast<std::uint64_t>(most.count()) * 1000}};
    }
}

// Waits as short as the calls allow while they are looked at.
call_sequence hasty(const candidate &one)
{
    call_sequence made = one.made;
    for (std::size_t i = 0; i < made.calls.size(); i++) {
        shorten(made.calls[i], i == one.guilty ? QUICK : std::chrono::milliseconds{0});
    }
    return made;
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
    reducer(const finding &shown, const reduction_setup &how)
        : shown_(shown), how_(how), content_(content_setup(how.reference, how.profile)),
          shadow_(shadow_setup(how.reference, how.profile))
    {
    }

    // `is_bold`: waits may become shorter, and what takes long counts as a hang at once.
    std::optional<reduced> run(const call_sequence &whole, bool is_bold)
    {
        start_with(whole);
        allowed_ = how_.allowed;
        if (is_bold) allowed_.call = std::min(allowed_.call, QUICK);
        is_hasty_ = is_bold;
        if (!which_show({current_}).front()) return std::nullopt;
        apply({related_part});
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
        // What the call that never returned should have answered is asked for at the end.
        const auto is_guilty = [this](const step &each) { return each.call == current_.guilty; };
        if (std::ranges::count_if(made.steps, is_guilty) == 1 &&
            std::ranges::find_if(made.steps, is_guilty)->phase == phase::begin) {
            made.steps.push_back({static_cast<std::uint32_t>(current_.guilty), phase::end});
        }
        for (call &each : made.calls) each.comments.clear();
        made.closing_comments.clear();
        made.answers.resize(made.calls.size());
    }

    // Whether the guilty call, and none before it, differs in the same way.
    bool shows(const candidate &one, const answers &got, const answers &expected,
               const answers &shadow) const
    {
        const auto other_content = [&shadow](std::size_t index) {
            return index < shadow.size() ? &shadow[index] : nullptr;
        };
        const call_sequence &made = one.made;
        const bool is_whole = expected.size() == made.calls.size() ||
                              std::ranges::any_of(expected, [](const answer &each) {
                                  return each.outcome != outcome::returned;
                              });
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

    // A recording does not tell how a call that did not return ended.
    bool is_same(const difference &found) const
    {
        const difference &wanted = shown_.difference;
        const bool never_returned =
            wanted.got == "not returned" &&
            (found.got == "hang" || found.got == "flood" || found.got.starts_with("crash"));
        return found.part == wanted.part && found.expected == wanted.expected &&
               (found.got == wanted.got || never_returned);
    }

    // Whether the library gives data, which it may not all have been given.
    static bool stores_data(const call_sequence &made)
    {
        return std::ranges::any_of(made.calls, [](const call &each) {
            return std::ranges::any_of(schema_of(each.operation).parameters,
                                       [](const parameter &where) {
                                           return where.shape == shape::bytes && where.is_written();
                                       });
        });
    }

    // Makes each candidate so many times on both libraries: which of them show it every time.
    std::vector<bool> which_show(const std::vector<candidate> &candidates, std::size_t times,
                                 const limits &allowed)
    {
        std::vector<job> jobs;
        std::deque<call_sequence> shortened;
        for (const candidate &each : candidates) {
            const call_sequence *made = &each.made;
            if (is_hasty_) made = &shortened.emplace_back(hasty(each));
            for (std::size_t i = 0; i < times; i++) {
                jobs.push_back({.setup = how_.tested, .made = made});
                jobs.push_back({.setup = content_, .made = made});
            }
            if (stores_data(*made)) jobs.push_back({.setup = shadow_, .made = made});
        }
        auto all = run_all(jobs, allowed);
        std::vector<bool> showing;
        std::size_t at = 0;
        for (const candidate &each : candidates) {
            const std::size_t end = at + 2 * times;
            const bool has_shadow = stores_data(each.made);
            const answers shadow = has_shadow ? std::move(all[end]) : answers{};
            bool always = true;
            for (std::size_t i = at; i < end; i += 2) {
                always = always && shows(each, all[i], all[i + 1], shadow);
            }
            showing.push_back(always);
            if (always) {
                expected_ = std::move(all[at + 1]);
                expected_shadow_ = shadow;
            }
            at = has_shadow ? end + 1 : end;
        }
        runs_ += candidates.size() * times;
        return showing;
    }

    std::vector<bool> which_show(const std::vector<candidate> &candidates)
    {
        const auto start = std::chrono::steady_clock::now();
        auto showing = which_show(candidates, 1, allowed_);
        at_once_ = std::chrono::steady_clock::now() - start < LONG ? AT_ONCE : WAITING_AT_ONCE;
        return showing;
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
            const auto showing = which_show(candidates);
            const auto first =
                static_cast<std::size_t>(std::ranges::find(showing, true) - showing.begin());
            if (first == showing.size()) continue;
            changed = true;
            current_ = std::move(candidates[first]);
            // Most changes do not matter to each other.
            candidate all = current_;
            bool has_more = false;
            for (std::size_t i = first + 1; i < showing.size(); i++) {
                if (!showing[i]) continue;
                auto more = changes[made_by[i]](all);
                if (!more) continue;
                all = std::move(*more);
                has_more = true;
            }
            if (has_more && which_show({all}).front()) {
                current_ = std::move(all);
            } else {
                next = made_by[first] + 1;
            }
        }
        return changed;
    }

    void drop_operations()
    {
        std::set<operation> used;
        for (const call &each : current_.made.calls) used.insert(each.operation);
        std::vector<change> changes;
        changes.reserve(used.size());
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

    // With their own time again for waits that do not last, and more for those that calls of others
    // end: on a busy machine they need it.
    candidate unhurried() const
    {
        constexpr std::uint64_t SECONDS = 2;
        candidate one = current_;
        for (std::size_t i = 0; i < one.made.calls.size(); i++) {
            call &each = one.made.calls[i];
            const bool lasts = i < expected_.size() && has_timed_out(each, expected_[i]);
            if (each.operation == SLEEP || (lasts && i != one.guilty)) {
                shorten(each, std::chrono::milliseconds{0});
            }
        }
        for (const step &each : one.made.steps) {
            call &made = one.made.calls[each.call];
            const bool is_timed = told_time(made) > std::chrono::milliseconds{0};
            if (each.phase != phase::begin || !is_timed || made.operation == SLEEP) continue;
            for (value &given : made.arguments) {
                if (given.kind == value_kind::record) given.scalars = {{SECONDS}, {}};
            }
        }
        return one;
    }

    std::optional<reduced> proved()
    {
        if (is_hasty_) current_ = unhurried();
        is_hasty_ = false;
        if (!which_show({current_}, how_.proofs, how_.allowed).front()) return std::nullopt;
        reduced result{std::move(current_.made), shown_, runs_};
        result.made.answers = std::move(expected_);
        // After a hang there is none.
        result.made.answers.resize(result.made.calls.size(), {.outcome = outcome::unreturned});
        result.made.shadow = std::move(expected_shadow_);
        result.finding.call = current_.guilty;
        return result;
    }

    const finding &shown_;
    const reduction_setup &how_;
    library_setup content_;
    library_setup shadow_;
    limits allowed_;
    bool is_hasty_ = false;
    candidate current_;
    answers expected_;
    answers expected_shadow_;
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
    // A library that has kept an address finds there what the caller has meanwhile.
    call_sequence again = whole;
    again.answers = run_one(whole, {how.tested}, how.allowed);
    again.answers.resize(again.calls.size(), {.outcome = outcome::unreturned});
    const auto found = judge(again, how.reference, how.allowed, {how.profile}).finding;
    if (!found || found->call != shown.call || found->difference.part != shown.difference.part ||
        found->difference == shown.difference) {
        return std::nullopt;
    }
    return reducer(*found, how).run(again, true);
}

} // namespace sequence

// SPDX-License-Identifier: MIT
#include "tools/explain/causes.h"

#include <algorithm>
#include <chrono>
#include <set>

#include "tools/sequence/comparison.h"
#include "tools/sequence/dependencies.h"

namespace explain {

namespace {

using sequence::call_sequence;

// Each is a run of the reference library.
constexpr std::size_t MOST_CALLS = 150;
// Nobody waits longer for what is an addition to the finding.
constexpr std::chrono::milliseconds MOST_TIME{600};

class search {
public:
    search(const call_sequence &recorded, const sequence::verdict &judged,
           const std::string &reference)
        : recorded_(recorded), guilty_(judged.finding->call), judged_(judged),
          setup_(sequence::content_setup(reference, judged.profile.front()))
    {
    }

    // What acts on other objects can matter, too, but seldom does.
    causes run()
    {
        causes found = among(candidates());
        if (!found.wrote.empty() || !has_time()) return found;
        std::vector<std::size_t> all;
        for (std::size_t i = guilty_; i > 0 && all.size() < MOST_CALLS; i--) all.push_back(i - 1);
        causes more = among(all);
        return more.wrote.empty() ? found : more;
    }

private:
    causes among(const std::vector<std::size_t> &asked) const
    {
        causes found;
        std::vector<call_sequence> without;
        without.reserve(asked.size());
        for (const std::size_t each : asked) without.push_back(part({each}));
        for (std::size_t i = 0; i < asked.size() && has_time(); i++) {
            const auto changed = answer_of(without[i]);
            if (!changed || is_expected(*changed)) continue;
            found.wrote.push_back(asked[i]);
            if (is_got(*changed)) found.without_effect = asked[i];
        }
        found.led_there = needed(found, asked);
        return found;
    }

    bool has_time() const { return std::chrono::steady_clock::now() < deadline_; }

    std::vector<std::size_t> candidates() const
    {
        auto found = sequence::related_to(recorded_, guilty_);
        if (found.size() > MOST_CALLS) found.resize(MOST_CALLS);
        return found;
    }

    std::vector<bool> kept_without(const std::set<std::size_t> &left_out) const
    {
        std::vector<bool> kept(recorded_.calls.size(), false);
        for (std::size_t i = 0; i <= guilty_; i++) kept[i] = !left_out.contains(i);
        return sequence::closed(recorded_, std::move(kept));
    }

    call_sequence part(const std::set<std::size_t> &left_out) const
    {
        const auto kept = kept_without(left_out);
        return kept[guilty_] ? selection(recorded_, kept) : call_sequence{};
    }

    // Of the guilty call, which is the last one; nothing where the library does not come so far.
    std::optional<sequence::answer> answer_of(call_sequence made) const
    {
        if (made.calls.empty()) return std::nullopt;
        made.answers.clear();
        auto given = sequence::run_one(made, {setup_});
        if (given.size() != made.calls.size()) return std::nullopt;
        return std::move(given.back());
    }

    bool is_expected(const sequence::answer &one) const
    {
        if (guilty_ >= judged_.expected.size()) return false;
        return !compare(recorded_.calls[guilty_], judged_.expected[guilty_], one,
                        recorded_.variables);
    }

    bool is_got(const sequence::answer &one) const
    {
        return !compare(recorded_.calls[guilty_], one, recorded_.answers[guilty_],
                        recorded_.variables);
    }

    // Calls are left out as long as the right answer stays, and, where one call had no effect, as
    // long as without it the answer would be the wrong one.
    std::vector<std::size_t> needed(const causes &found,
                                    const std::vector<std::size_t> &asked) const
    {
        std::set<std::size_t> left_out;
        for (std::size_t i = 0; i < guilty_; i++) {
            if (!std::binary_search(asked.rbegin(), asked.rend(), i)) left_out.insert(i);
        }
        if (!is_enough(left_out, found)) left_out.clear();
        for (const std::size_t each : asked) {
            if (!has_time()) break;
            if (std::find(found.wrote.begin(), found.wrote.end(), each) != found.wrote.end()) {
                continue;
            }
            auto more = left_out;
            more.insert(each);
            if (is_enough(more, found)) left_out = std::move(more);
        }
        std::vector<std::size_t> calls;
        const auto kept = kept_without(left_out);
        for (std::size_t i = 0; i <= guilty_; i++) {
            if (kept[i]) calls.push_back(i);
        }
        return calls;
    }

    bool is_enough(const std::set<std::size_t> &left_out, const causes &found) const
    {
        const auto right = answer_of(part(left_out));
        if (!right || !is_expected(*right)) return false;
        if (!found.without_effect) return true;
        auto also = left_out;
        also.insert(*found.without_effect);
        const auto wrong = answer_of(part(also));
        return wrong && is_got(*wrong);
    }

    const call_sequence &recorded_;
    std::size_t guilty_;
    std::chrono::steady_clock::time_point deadline_ = std::chrono::steady_clock::now() + MOST_TIME;
    const sequence::verdict &judged_;
    sequence::library_setup setup_;
};

} // namespace

causes find_causes(const call_sequence &recorded, const sequence::verdict &judged,
                   const std::string &reference)
{
    return search(recorded, judged, reference).run();
}

} // namespace explain

// SPDX-License-Identifier: MIT
//
// A legal history stays legal when its calls last longer, to either side of the moment at which the
// legal order has them. Machines that hold threads up in the middle of calls make such histories.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>

#include "tools/histories/checker.h"
#include "tools/histories/recorder.h"

namespace {

using namespace histories;

constexpr std::chrono::milliseconds LIMIT{20000};

// The moments of `path`, so far apart that there is room between them.
constexpr std::uint32_t STEP = 1000;

// The same calls in the order in which they end then, with all moments different.
history widened(const history &whole, const std::vector<std::size_t> &path, std::mt19937 &random)
{
    struct moment {
        std::uint64_t time;
        std::size_t call;
        bool is_end;
    };
    const std::uint64_t longest = STEP * (1 + random() % 20);
    std::map<std::uint16_t, std::vector<std::size_t>> threads; // places in the path
    std::vector<std::size_t> alone;
    for (std::size_t i = 0; i < path.size(); i++) {
        const std::uint16_t thread = whole.made.calls[path[i]].thread;
        (thread == FIRST_THREAD ? alone : threads[thread]).push_back(i);
    }
    std::vector<moment> moments;
    const auto add = [&](std::size_t place, std::uint64_t begin, std::uint64_t end) {
        moments.push_back({begin, path[place], false});
        moments.push_back({end, path[place], true});
    };
    for (const std::size_t place : alone) add(place, place * STEP + 400, place * STEP + 600);
    for (const auto &[thread, places] : threads) {
        // The first thread's calls before and after them stay outside.
        const auto after = std::ranges::upper_bound(alone, places.back());
        const std::uint64_t last =
            (after == alone.end() ? path.size() : *after) * std::uint64_t{STEP} + 300;
        const auto first = std::ranges::lower_bound(alone, places.front());
        std::uint64_t free = first == alone.begin() ? 0 : *(first - 1) * std::uint64_t{STEP} + 700;
        for (std::size_t i = 0; i < places.size(); i++) {
            const std::uint64_t at = places[i] * std::uint64_t{STEP} + 500;
            const std::uint64_t next =
                i + 1 < places.size() ? places[i + 1] * std::uint64_t{STEP} + 450 : last;
            const std::uint64_t begin =
                at - random() % (std::min<std::uint64_t>(longest, at - free));
            const std::uint64_t end =
                std::min(at + 1 + random() % longest, std::max(at + 1, next - 1));
            add(places[i], begin, end);
            free = end + 1;
        }
    }
    std::ranges::stable_sort(moments, {}, &moment::time);
    std::vector<interval> times(path.size());
    history made;
    made.made.variables = whole.made.variables;
    for (std::uint32_t i = 0; i < moments.size(); i++) {
        const moment &each = moments[i];
        (each.is_end ? times[each.call].end : times[each.call].begin) = i + 1;
        if (!each.is_end) continue;
        made.made.add(whole.made.calls[each.call]);
        made.made.answers.push_back(whole.made.answers[each.call]);
        made.times.push_back(times[each.call]);
    }
    return made;
}

TEST(widened_histories, stay_legal)
{
    const sequence::library library{KEL_REFERENCE_LIBRARY};
    checker by{library};
    const auto shown = std::make_unique<progress>();
    std::mt19937 random(1);
    std::size_t overlapping = 0;
    for (std::uint64_t index = 0; index < 300; index++) {
        const history whole = record(library, make_plan(7, index, {}), *shown);
        const verdict first = by.check(whole, LIMIT);
        ASSERT_EQ(first.outcome, outcome::legal) << index;
        for (int i = 0; i < 4; i++) {
            const history other = widened(whole, first.path, random);
            ASSERT_EQ(other.times.size(), whole.times.size());
            EXPECT_EQ(by.check(other, LIMIT).outcome, outcome::legal) << index;
            for (std::size_t j = 1; j < other.times.size(); j++) {
                overlapping += other.times[j].begin < other.times[j - 1].end ? 1U : 0U;
            }
        }
    }
    EXPECT_GT(overlapping, 10000U);
}

} // namespace

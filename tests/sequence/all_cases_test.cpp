// SPDX-License-Identifier: MIT
//
// All cases: what a right library answers is right.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include <string>

#include "tests/sequence/recording.h"
#include "tools/common/registry.h"
#include "tools/sequence/oracle.h"
#include "tools/sequence/report.h"

namespace {

using namespace sequence;

TEST(all_cases, differ_nowhere_when_they_are_made_again)
{
    for (const tools::test_case &each : tools::all_cases()) {
        const call_sequence made = support::recorded(std::string(each.name));
        const verdict found = judge(made, KEL_REFERENCE_LIBRARY);
        EXPECT_FALSE(found.finding) << each.name << ": " << difference_text(made, found.finding);
    }
}

// The answers of a library with one other legal choice, in all cases that last but a moment.
class legal_switches : public testing::Test {
protected:
    static bool waits(const call_sequence &made)
    {
        const auto is_long = [](const call &each) {
            return told_time(each) > std::chrono::milliseconds(20);
        };
        return std::ranges::any_of(made.calls, is_long) || made.calls.size() > 2000;
    }

    static bool is_named(const verdict &judged, const configuration &chosen)
    {
        return std::find(judged.profile.begin(), judged.profile.end(), chosen) !=
               judged.profile.end();
    }
};

TEST_F(legal_switches, are_no_difference_and_are_named_where_calls_can_tell)
{
    std::vector<call_sequence> all;
    for (const tools::test_case &each : tools::all_cases()) {
        call_sequence made = support::recorded(std::string(each.name));
        if (!waits(made)) all.push_back(std::move(made));
    }
    std::size_t switches = 0;
    std::size_t told = 0;
    for (const option &each : options_of(KEL_REFERENCE_LIBRARY)) {
        for (const std::string &value : each.others) {
            const configuration chosen = {{each.name, value}};
            std::size_t differing = 0;
            std::size_t named = 0;
            for (call_sequence made : all) {
                answers now = run_one(made, {reference_setup(KEL_REFERENCE_LIBRARY, chosen)});
                ASSERT_EQ(now.size(), made.calls.size()) << text_of(chosen);
                bool differs = false;
                for (std::size_t i = 0; i < now.size(); i++) {
                    differs =
                        differs || compare(made.calls[i], made.answers[i], now[i], made.variables);
                }
                if (!differs) continue;
                made.answers = std::move(now);
                const verdict judged = judge(made, KEL_REFERENCE_LIBRARY);
                EXPECT_FALSE(judged.finding) << text_of(chosen) << ", " << made.header.program
                                             << ": " << difference_text(made, judged.finding);
                differing++;
                if (is_named(judged, chosen)) named++;
            }
            switches++;
            if (named > 0) told++;
            // What fills memory that nobody has written means nothing.
            const bool is_content = each.name == "poison_byte" || each.name == "first_tlv_byte";
            EXPECT_TRUE(named > 0 || differing == 0 || is_content) << text_of(chosen);
            std::cout << text_of(chosen) << ": seen by " << differing << " cases, named by "
                      << named << "\n";
        }
    }
    std::cout << told << " of " << switches << " choices are told by " << all.size() << " cases\n";
    EXPECT_GT(told, 0U);
}

} // namespace

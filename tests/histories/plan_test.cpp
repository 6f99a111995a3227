// SPDX-License-Identifier: MIT
//
// Plans: the seed decides, and no thread is given what the contract leaves to one at a time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "tools/histories/plan.h"
#include "tools/histories/recorder.h"
#include "tools/sequence/printer.h"

namespace {

using namespace histories;

constexpr unsigned MANY = 200;

std::string text_of(const plan &one)
{
    std::string text;
    for (const auto &thread : one.threads) {
        for (const step &each : thread) {
            text += call_text(each.made, one.variables) + " " + std::to_string(each.turns) + " " +
                    std::to_string(each.meeting) + "\n";
        }
    }
    return text;
}

TEST(plan, is_the_seeds)
{
    EXPECT_EQ(text_of(make_plan(1, 7, {})), text_of(make_plan(1, 7, {})));
    EXPECT_NE(text_of(make_plan(1, 7, {})), text_of(make_plan(1, 8, {})));
    EXPECT_NE(text_of(make_plan(1, 7, {})), text_of(make_plan(2, 7, {})));
}

TEST(plan, shares_no_packet_and_no_buffer)
{
    for (unsigned i = 0; i < MANY; i++) {
        const plan made = make_plan(3, i, {});
        ASSERT_EQ(made.threads.size(), 4U);
        std::set<sequence::variable> held;
        for (const slot_names &each : made.held) {
            for (const sequence::variable name : each) {
                EXPECT_TRUE(name < 0 || held.insert(name).second);
            }
        }
        for (const auto &thread : made.threads) {
            for (const step &each : thread) {
                for (const sequence::value &argument : each.made.arguments) {
                    if (argument.kind != sequence::value_kind::number) continue;
                    const auto name = argument.one().name;
                    if (name < 0) continue;
                    const auto what = made.variables[static_cast<std::size_t>(name)].what;
                    EXPECT_TRUE(what == sequence::role::client || what == sequence::role::bufgroup)
                        << call_text(each.made, made.variables);
                }
            }
        }
    }
}

TEST(plan, comes_to_all_kinds_of_calls)
{
    std::set<std::string_view> called;
    for (unsigned i = 0; i < MANY; i++) {
        for (const auto &thread : make_plan(3, i, {}).threads) {
            for (const step &each : thread) {
                called.insert(sequence::schema_of(each.made.operation).name);
            }
        }
    }
    for (const char *each : {"send",
                             "recv",
                             "get_packet",
                             "free_packet",
                             "duplicate",
                             "get_buffer",
                             "free_buffer",
                             "append",
                             "set_tag",
                             "set_cause",
                             "set_data",
                             "get_data",
                             "get_cause",
                             "get_length",
                             "register_tag",
                             "deregister_tag",
                             "is_tag_registered",
                             "alloc_tag",
                             "free_tag",
                             "client_ha_role_notify",
                             "queue_is_empty",
                             "event_add_tag",
                             "event_remove_tag",
                             "event_add_bufgroup",
                             "event_clear",
                             "event_wait"}) {
        EXPECT_TRUE(called.contains(each)) << each;
    }
}

TEST(recorder, makes_as_many_calls_as_asked)
{
    const sequence::library tested(KEL_REFERENCE_LIBRARY);
    progress shown{};
    unsigned full = 0;
    for (unsigned i = 0; i < 20; i++) {
        const history made = record(tested, make_plan(5, i, {3, 6}), shown);
        std::array<unsigned, 5> calls{};
        for (std::size_t j = 0; j < made.times.size(); j++) {
            EXPECT_LT(made.times[j].begin, made.times[j].end);
            EXPECT_TRUE(j == 0 || made.times[j - 1].end < made.times[j].end);
            calls.at(made.made.calls[j].thread)++;
        }
        for (std::size_t thread = 2; thread < calls.size(); thread++) {
            EXPECT_LE(calls.at(thread), 6U);
            if (calls.at(thread) == 6) full++;
        }
    }
    EXPECT_GT(full, 40U);
}

} // namespace

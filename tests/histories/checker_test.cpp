// SPDX-License-Identifier: MIT
//
// Histories that were written by hand: which have an order, how far an order goes, and which call
// does not fit.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/histories/checker.h"
#include "tools/histories/finding.h"
#include "tools/histories/reduction.h"
#include "tools/sequence/parser.h"

namespace {

using namespace histories;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr milliseconds LIMIT{20000};

const std::string BEGIN = "sequence version=1 library=\"\" program=\"\"\n"
                          "client1 = register_client(null, ALWAYS, 8) -> 0, client=client1\n"
                          "register_tag(client1, 0x30) -> 0\n"
                          "packet1 = get_packet(client1, 0, 64, 1) -> packet1, error=0\n"
                          "set_tag(packet1, 0x30) -> 0\n"
                          "packet2 = get_packet(client1, 0, 64, 1) -> packet2, error=0\n"
                          "set_tag(packet2, 0x30) -> 0\n";
constexpr std::uint32_t BEGIN_CALLS = 6;

// The calls of the begin one after the other, then those with their times.
history written(const std::string &calls, const std::vector<interval> &times)
{
    history made;
    made.made = sequence::from_text(BEGIN + calls);
    for (std::uint32_t i = 0; i < BEGIN_CALLS; i++) made.times.push_back({2 * i + 1, 2 * i + 2});
    for (const interval &each : times) made.times.push_back({each.begin + 100, each.end + 100});
    EXPECT_EQ(made.times.size(), made.made.calls.size());
    return made;
}

class checking : public testing::Test {
protected:
    verdict check(const history &whole, milliseconds limit = LIMIT)
    {
        return by.check(whole, limit);
    }

    sequence::library model{KEL_REFERENCE_LIBRARY};
    checker by{model};
};

const char *const SENT_AND_RECEIVED = "@2 send(client1, packet1) -> 0\n"
                                      "@3 send(client1, packet2) -> 0\n"
                                      "@4 recv(client1) -> packet2\n"
                                      "@4 recv(client1) -> packet1\n";

TEST_F(checking, takes_any_order_of_calls_that_overlap)
{
    const verdict found = check(written(SENT_AND_RECEIVED, {{1, 4}, {2, 3}, {5, 6}, {7, 8}}));
    EXPECT_EQ(found.outcome, outcome::legal);
    EXPECT_THAT(found.path, ElementsAre(0, 1, 2, 3, 4, 5, 7, 6, 8, 9));
}

TEST_F(checking, keeps_the_order_of_calls_that_do_not_overlap)
{
    const history whole = written(SENT_AND_RECEIVED, {{1, 2}, {3, 4}, {5, 6}, {7, 8}});
    const verdict found = check(whole);
    EXPECT_EQ(found.outcome, outcome::illegal);
    EXPECT_THAT(found.path, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    ASSERT_EQ(found.misfits.size(), 1U);
    EXPECT_EQ(found.misfits[0].call, 8U);
    const auto told = finding_of(whole, found);
    EXPECT_EQ(told.operation, "recv");
    EXPECT_EQ(told.n, 1U);
    EXPECT_EQ(told.expected, "packet1");
    EXPECT_EQ(told.got, "packet2");
    EXPECT_EQ(told.calls, 9U);
    EXPECT_THAT(told.clause, HasSubstr("Takes the oldest packet"));
    EXPECT_THAT(told.text, HasSubstr("@4 recv(client1) -> packet1\n"));
    EXPECT_THAT(told.text, HasSubstr("# 105-106 @4 recv(client1) -> packet2\n"));
    EXPECT_NO_THROW(sequence::from_text(told.text));
}

TEST_F(checking, finds_a_packet_that_was_given_twice)
{
    const verdict found = check(written("@2 send(client1, packet1) -> 0\n"
                                        "@3 recv(client1) -> packet1\n"
                                        "@4 recv(client1) -> packet1\n",
                                        {{1, 6}, {2, 7}, {3, 8}}));
    EXPECT_EQ(found.outcome, outcome::illegal);
    EXPECT_EQ(found.path.size(), BEGIN_CALLS + 2U);
    EXPECT_EQ(found.misfits[0].difference.expected, "0");
}

TEST_F(checking, finds_a_packet_that_was_lost)
{
    const std::string calls = "@2 send(client1, packet1) -> 0\n"
                              "@3 recv(client1) -> 0\n"
                              "recv(client1) -> 0\n";
    EXPECT_EQ(check(written(calls, {{1, 4}, {2, 3}, {5, 6}})).outcome, outcome::illegal);
    EXPECT_EQ(check(written(calls, {{1, 6}, {2, 3}, {4, 5}})).outcome, outcome::legal);
}

TEST_F(checking, goes_back_where_the_first_order_was_wrong)
{
    // The call that returned first comes last: its answer needs the others.
    const verdict found = check(written("@2 recv(client1) -> packet2\n"
                                        "@3 recv(client1) -> packet1\n"
                                        "@4 send(client1, packet1) -> 0\n"
                                        "@5 send(client1, packet2) -> 0\n"
                                        "queue_is_empty(client1) -> 1\n",
                                        {{1, 5}, {2, 6}, {3, 7}, {4, 8}, {9, 10}}));
    EXPECT_EQ(found.outcome, outcome::legal);
    EXPECT_THAT(found.path, ElementsAre(0, 1, 2, 3, 4, 5, 8, 7, 9, 6, 10));
}

TEST_F(checking, leaves_undecided_what_takes_too_long)
{
    std::string calls;
    std::vector<interval> times;
    for (std::uint32_t i = 0; i < 40; i++) {
        calls += "@" + std::to_string(2 + i % 8) + " recv(client1) -> 0\n";
        times.push_back({2 * i + 1, 2 * i + 2});
    }
    EXPECT_EQ(check(written(calls, times), milliseconds{-1}).outcome, outcome::undecided);
    EXPECT_EQ(check(written(calls, times)).outcome, outcome::legal);
}

// What receives it last may have begun before it was received first.
TEST_F(checking, knows_the_way_of_a_packet_that_is_sent_on)
{
    const std::string calls = "client2 = register_client(null, ALWAYS, 8) -> 0, client=client2\n"
                              "register_tag(client2, 0x31) -> 0\n"
                              "send(client1, packet1) -> 0\n"
                              "@2 recv(client1) -> packet1\n"
                              "@2 set_tag(packet1, 0x31) -> 0\n"
                              "@2 send(client1, packet1) -> 0\n"
                              "@3 recv(client2) -> packet1\n";
    const verdict found =
        check(written(calls, {{1, 2}, {3, 4}, {5, 6}, {11, 12}, {13, 14}, {15, 16}, {10, 20}}));
    EXPECT_EQ(found.outcome, outcome::legal);
}

// Of 8! orders of the sends only one is right, which shows when the packets are received.
TEST_F(checking, orders_sends_as_their_packets_were_received)
{
    std::string calls;
    std::string sends;
    std::string receipts;
    std::vector<interval> times;
    constexpr std::uint32_t COUNT = 8;
    for (std::uint32_t i = 0; i < COUNT; i++) {
        const std::string packet = "packet" + std::to_string(3 + i);
        calls += packet + " = get_packet(client1, 0, 64, 1) -> " + packet + ", error=0\nset_tag(" +
                 packet + ", 0x30) -> 0\n";
        sends += "@" + std::to_string(2 + i) + " send(client1, " + packet + ") -> 0\n";
        receipts = "recv(client1) -> " + packet + "\n" + receipts;
    }
    for (std::uint32_t i = 0; i < 2 * COUNT; i++) times.push_back({2 * i + 1, 2 * i + 2});
    for (std::uint32_t i = 0; i < COUNT; i++) times.push_back({40 + i, 60 + i});
    for (std::uint32_t i = 0; i < COUNT; i++) times.push_back({80 + 2 * i, 81 + 2 * i});
    calls += sends;
    calls += receipts;
    const verdict found = check(written(calls, times));
    EXPECT_EQ(found.outcome, outcome::legal);
    EXPECT_LT(found.calls, 2 * found.path.size());
}

// All orders of role changes come to a few states, each of which is looked into once.
TEST_F(checking, knows_states_of_roles_again)
{
    std::string calls = "client2 = register_client(null, STANDBY, 8) -> 0, client=client2\n"
                        "client3 = register_client(null, STANDBY, 8) -> 0, client=client3\n";
    std::vector<interval> times = {{1, 2}, {3, 4}};
    for (std::uint32_t i = 0; i < 16; i++) {
        calls += "@" + std::to_string(2 + i % 4) + " client_ha_role_notify(client" +
                 std::to_string(2 + i / 2 % 2) + ", " + (i % 3 == 0 ? "ACTIVE" : "STANDBY") +
                 ") -> 0\n";
        const std::uint32_t row = i / 4 * 20;
        times.push_back({10 + row + i % 4, 20 + row + i % 4});
    }
    times.push_back({100, 101});
    const verdict found = check(written(calls + "queue_is_empty(client1) -> 0\n", times));
    EXPECT_EQ(found.outcome, outcome::illegal);
    EXPECT_LT(found.calls, 50000U);
}

TEST_F(checking, begins_each_history_with_a_clean_model)
{
    const history whole = written("@2 send(client1, packet1) -> 0\n", {{1, 2}});
    for (int i = 0; i < 3; i++) EXPECT_EQ(check(whole).outcome, outcome::legal);
}

TEST_F(checking, leaves_needless_calls_out)
{
    const history whole = written("@3 queue_is_empty(client1) -> 1\n"
                                  "@2 send(client1, packet1) -> 0\n"
                                  "@3 recv(client1) -> 0\n"
                                  "@3 recv(client1) -> 0\n",
                                  {{1, 2}, {3, 4}, {5, 6}, {7, 8}});
    ASSERT_EQ(check(whole).outcome, outcome::illegal);
    const history smaller = without_needless_calls(whole, by);
    EXPECT_EQ(smaller.times.size(), BEGIN_CALLS + 2U);
    EXPECT_EQ(check(smaller).outcome, outcome::illegal);
}

TEST_F(checking, survives_the_way_to_another_process)
{
    const history whole = written(SENT_AND_RECEIVED, {{1, 4}, {2, 3}, {5, 6}, {7, 8}});
    const std::string message = to_message(whole);
    EXPECT_EQ(to_message(from_message(message)), message);
    EXPECT_EQ(check(from_message(message)).outcome, outcome::legal);
    EXPECT_ANY_THROW(from_message(message.substr(0, 20)));
    EXPECT_ANY_THROW(from_message(message.substr(0, message.size() - 3)));
}

} // namespace

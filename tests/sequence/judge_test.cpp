// SPDX-License-Identifier: MIT
//
// Answers held to the set of right ones: what a right library answers under any switch is right,
// what it does not is found at its first call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/sequence/recording.h"
#include "tools/sequence/oracle.h"
#include "tools/sequence/parser.h"
#include "tools/sequence/printer.h"
#include "tools/sequence/report.h"

namespace {

using namespace sequence;
using support::recorded;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

verdict judged(const std::string &name, const std::vector<std::string> &environment = {})
{
    return judge(recorded(name, environment), KEL_REFERENCE_LIBRARY);
}

class right_case : public testing::TestWithParam<const char *> {};

TEST_P(right_case, differs_nowhere)
{
    const call_sequence made = recorded(GetParam());
    const verdict found = judge(made, KEL_REFERENCE_LIBRARY);
    EXPECT_FALSE(found.finding) << difference_text(made, found.finding);
    EXPECT_THAT(found.profile, ElementsAre(configuration{}));
}

INSTANTIATE_TEST_SUITE_P(
    judge, right_case,
    testing::Values("kel_packet_trim_head", "kel_role_basic", "kel_metadata_get_caller",
                    "kel_bufgroup_reserved_get_packet_list", "kel_buf_get_buf_iov_not_cont",
                    "kel_buf_get_dptr_offset", "kel_tlv_alloc", "kel_region_invalid_get_info",
                    "kel_event_wait_interrupt", "kel_sendrecv_recv_no_sig_prog_thresh"));

TEST(judge, names_the_first_wrong_call)
{
    const call_sequence made =
        recorded("kel_packet_trim_head", {"KEL_REFERENCE_FAULTS=trim_head#1+:keeps_offsets"});
    const verdict found = judge(made, KEL_REFERENCE_LIBRARY);
    ASSERT_TRUE(found.finding);
    EXPECT_EQ(schema_of(made.calls[found.finding->call].operation).name, "get_offset");
    EXPECT_EQ(ordinal_of(made, found.finding->call), 1U);
    EXPECT_EQ(expectation_text(*found.finding), "offset: expected 0, got 64");
}

struct choice {
    const char *name;
    const char *setting;
};

class legal_choice : public testing::TestWithParam<choice> {};

TEST_P(legal_choice, is_no_difference_and_is_named)
{
    const auto found =
        judged(GetParam().name, {std::string("KEL_REFERENCE_OPTIONS=") + GetParam().setting});
    EXPECT_FALSE(found.finding);
    std::vector<std::string> profile;
    for (const configuration &each : found.profile) profile.push_back(text_of(each));
    EXPECT_THAT(profile, Contains(GetParam().setting));
}

INSTANTIATE_TEST_SUITE_P(
    judge, legal_choice,
    testing::Values(choice{"kel_tlv_alloc_bad_tlv", "tlv_size_error=22"},
                    choice{"kel_reg_tag_reg_registered_tag", "own_tag_error=1"},
                    choice{"kel_role_basic", "sinks_limit_error=12"},
                    choice{"kel_buf_get_buf_iov_not_cont", "piece_size=16384"}));

TEST(judge, says_which_answers_were_allowed)
{
    const auto found =
        judged("kel_reg_tag_reg_registered_tag", {"KELTRACE_FAULTS=register_tag#2:error=ENXIO"});
    ASSERT_TRUE(found.finding);
    EXPECT_THAT(expectation_text(*found.finding), HasSubstr("allowed were: EEXIST, "));
    EXPECT_THAT(expectation_text(*found.finding), HasSubstr("; got ENXIO"));
}

const std::string HEADER = "sequence version=1 library=\"\" program=\"\"\n";

TEST(run, tells_crashes_and_hangs)
{
    const auto made =
        from_text(HEADER + "nocrash_set()\nclient1 = register_client(\"a\", ALWAYS, 8)\n"
                           "event_wait(client1, null)\n");
    const answers given =
        run_one(made, {{KEL_REFERENCE_LIBRARY, {}}}, {std::chrono::milliseconds(200)});
    ASSERT_EQ(given.size(), 3U);
    EXPECT_EQ(given.back().outcome, outcome::hang);

    const auto fatal = from_text(HEADER + "ioctl(0, 0x836, hex())\nrecv(1)\n");
    EXPECT_EQ(run_one(fatal, {{KEL_REFERENCE_LIBRARY, {}}}).size(), 2U);
}

TEST(run, tells_which_of_two_calls_hangs)
{
    const auto made = from_text(HEADER + "nocrash_set()\nclient1 = register_client(\"a\", ALWAYS, "
                                         "8)\n@2 sleep(0) ...\nevent_wait(client1, null)\n"
                                         "@2 returned()\n");
    const answers given =
        run_one(made, {{KEL_REFERENCE_LIBRARY, {}}}, {std::chrono::milliseconds(200)});
    ASSERT_EQ(given.size(), 4U);
    EXPECT_EQ(given[2].outcome, outcome::unreturned);
    EXPECT_EQ(given[3].outcome, outcome::hang);
}

// Also one that prints little more slowly than a pipe is read, and then nothing.
TEST(run, tells_a_flood_from_a_hang)
{
    const auto made = from_text(HEADER + "nocrash_set()\nget_length(1)\n");
    const auto outcome_with = [&](const std::string &setting) {
        const answers given = run_one(made, {{FLOODING_LIBRARY, {setting}}});
        return given.size() == 2 ? given.back().outcome : outcome::returned;
    };
    EXPECT_EQ(outcome_with("FLOODING_BYTES"), outcome::flood);
    EXPECT_EQ(outcome_with("FLOODING_BYTES=300000"), outcome::flood);
    EXPECT_EQ(outcome_with("FLOODING_BYTES=1000"), outcome::hang);
}

TEST(judge, notices_a_call_that_should_have_returned)
{
    const std::string start = HEADER +
                              "nocrash_set() -> 0\nclient1 = register_client(\"a\", ALWAYS, "
                              "8) -> 0, client=client1\n";
    const auto polled = from_text(start + "event_wait(client1, {}) ...\n");
    const verdict wrong = judge(polled, KEL_REFERENCE_LIBRARY, {std::chrono::milliseconds(500)});
    ASSERT_TRUE(wrong.finding);
    EXPECT_EQ(wrong.finding->difference.got, "not returned");
    const auto endless = from_text(start + "event_wait(client1, null) ...\n");
    EXPECT_FALSE(judge(endless, KEL_REFERENCE_LIBRARY, {std::chrono::milliseconds(500)}).finding);
}

TEST(first_difference, is_none_where_nobody_has_written)
{
    auto made = from_text(HEADER + "nocrash_set()\nclient1 = register_client(\"a\", ALWAYS, 8)\n"
                                   "packet1 = get_packet(client1, 0, 64, 1)\n"
                                   "set_data(packet1, OFFSET_DATA, 0, hex(01020304), 4)\n"
                                   "get_data(packet1, OFFSET_DATA, 0, 64)\n");
    auto other = made;
    made.answers = run_one(made, {content_setup(KEL_REFERENCE_LIBRARY, {})});
    other.answers = run_one(made, {shadow_setup(KEL_REFERENCE_LIBRARY, {})});
    EXPECT_TRUE(first_difference(made, other));
    made.shadow = shadow_for(made, KEL_REFERENCE_LIBRARY);
    EXPECT_FALSE(first_difference(made, other));
    other.answers.back().stored[3].bytes[2] = 7;
    const auto found = first_difference(made, other);
    ASSERT_TRUE(found);
    EXPECT_THAT(found->difference.got, HasSubstr("at byte 2 of 64"));
}

TEST(run, is_refused_where_there_is_no_library)
{
    const auto made = from_text(HEADER + "nocrash_set()\n");
    EXPECT_ANY_THROW(run_one(made, {{"/no/such/libkel.so", {}}}));
    EXPECT_ANY_THROW(judge(made, "/usr/lib/x86_64-linux-gnu/libc.so.6"));
}

} // namespace

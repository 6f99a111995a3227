// SPDX-License-Identifier: MIT
//
// Reading the table of pairs, and judging what a run shows.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "tests/support/scratch.h"
#include "tools/campaign/outcome.h"
#include "tools/campaign/pairs.h"
#include "tools/common/registry.h"

namespace {

class table : public testing::Test {
protected:
    std::vector<campaign::pair> read(const std::string &text)
    {
        std::ofstream(folder / "suite.txt") << text;
        return campaign::read_pairs(folder);
    }

    std::string complaint(const std::string &text)
    {
        try {
            read(text);
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "";
    }

    const support::scratch_folder scratch;
    const std::filesystem::path folder = scratch.path();
};

TEST_F(table, reads_kinds_and_faults)
{
    const auto pairs = read("# comment\n\n"
                            "a_case | plain | some text | append#1:lost free_buffer#2+:lost\n"
                            "a_case | located | text | getfd#1:result=0 getfd#2:result=0 |\n"
                            "a_case | errno | EBADF | send#1:error=EBADF\n"
                            "a_case | plain | never | - | judged before\n"
                            "b_case | errors | getfd#1:error=EIO send#2:after=EBUSY\n");
    ASSERT_EQ(pairs.size(), 6u);
    EXPECT_EQ(pairs[0].faults, "append#1:lost free_buffer#2+:lost");
    EXPECT_EQ(pairs[0].place(), "suite.txt:3");
    EXPECT_EQ(pairs[1].faults, "getfd#1:result=0 getfd#2:result=0");
    EXPECT_EQ(pairs[2].message, std::strerror(EBADF));
    EXPECT_EQ(pairs[3].unreachable, "judged before");
    EXPECT_EQ(pairs[4].message, std::strerror(EIO));
    EXPECT_EQ(pairs[4].faults, "getfd#1:error=EIO");
    EXPECT_EQ(pairs[5].test, "b_case");
    EXPECT_EQ(pairs[5].message, std::strerror(EBUSY));
    EXPECT_EQ(pairs[5].faults, "send#2:after=EBUSY");
}

TEST_F(table, refuses_bad_lines_with_their_place)
{
    EXPECT_EQ(complaint("a | plain | text\n"),
              "suite.txt:1: expected: case | kind | message | faults | reason");
    EXPECT_EQ(complaint("\na | loud | text | x#1:lost\n"),
              "suite.txt:2: unknown kind of message: loud");
    EXPECT_EQ(complaint("a | errno | EWHAT | x#1:lost\n"),
              "suite.txt:1: unknown error name: EWHAT");
    EXPECT_EQ(complaint("a | errors | x#1:lost\n"), "suite.txt:1: no error in x#1:lost");
    EXPECT_EQ(complaint("a | errors | EIO | x#1:error=EIO\n"),
              "suite.txt:1: expected: case | errors | faults");
    EXPECT_EQ(complaint("a | plain | text | -\n"),
              "suite.txt:1: a pair without faults needs a reason");
    EXPECT_EQ(complaint("a | plain | text |  |\n"), "suite.txt:1: no faults, and no '-'");
}

TEST(shown, messages_are_compared_to_the_character)
{
    campaign::pair plain;
    plain.message = "send failed";
    EXPECT_TRUE(campaign::shows(plain, "send failed"));
    EXPECT_FALSE(campaign::shows(plain, "send failed~"));
    EXPECT_FALSE(campaign::shows(plain, "msg='send failed' line=3"));

    campaign::pair located;
    located.kind = campaign::message_kind::located;
    located.message = "send failed";
    EXPECT_TRUE(campaign::shows(located, "msg='send failed' line=31"));
    EXPECT_FALSE(campaign::shows(located, "msg='send failed' line="));
    EXPECT_FALSE(campaign::shows(located, "msg='send failed' line=3x"));
    EXPECT_FALSE(campaign::shows(located, "send failed"));

    campaign::pair prefix;
    prefix.kind = campaign::message_kind::prefix;
    prefix.message = "errors on:";
    EXPECT_TRUE(campaign::shows(prefix, "errors on: this that"));
    EXPECT_FALSE(campaign::shows(prefix, "no errors on:"));

    campaign::pair cut;
    cut.message = std::string(90, 'x');
    EXPECT_TRUE(campaign::shows(cut, std::string(83, 'x')));
    EXPECT_FALSE(campaign::shows(cut, std::string(82, 'x')));
}

campaign::observation failed_with(const std::string &message)
{
    campaign::observation seen;
    seen.exit_status = 0;
    seen.judged = campaign::verdict::fail;
    seen.message = message;
    seen.fault_fired = true;
    return seen;
}

TEST(judging, every_state)
{
    campaign::pair expected;
    expected.test = "kel_buf_append";
    expected.message = "right";
    campaign::observation seen = failed_with("right");
    EXPECT_EQ(campaign::judge_pair(expected, seen), campaign::outcome::caught);
    EXPECT_EQ(campaign::judge_pair(expected, failed_with("other")),
              campaign::outcome::caught_elsewhere);
    seen.left = {"buffers 1"};
    EXPECT_EQ(campaign::judge_pair(expected, seen), campaign::outcome::leak);
    seen.signal = 11;
    EXPECT_EQ(campaign::judge_pair(expected, seen), campaign::outcome::crash);
    seen.timed_out = true;
    EXPECT_EQ(campaign::judge_pair(expected, seen), campaign::outcome::hang);

    campaign::observation passed = failed_with("");
    passed.judged = campaign::verdict::pass;
    EXPECT_EQ(campaign::judge_pair(expected, passed), campaign::outcome::missed);
    passed.fault_fired = false;
    EXPECT_EQ(campaign::judge_pair(expected, passed), campaign::outcome::not_reached);
    EXPECT_EQ(campaign::judge_any(expected.test, {expected}, failed_with("other")),
              campaign::outcome::stray_message);
}

TEST(judging, only_named_cases_may_leave_objects_to_the_deregistration)
{
    campaign::observation seen = failed_with("right");
    seen.left = {"released_by_deregistration 1"};
    EXPECT_TRUE(campaign::leaves_something("kel_buf_append", seen));
    EXPECT_FALSE(campaign::leaves_something("kel_dyn_tag_free_client", seen));
    seen.left.emplace_back("packets 1");
    EXPECT_TRUE(campaign::leaves_something("kel_dyn_tag_free_client", seen));
}

// Placeholders return no message.
const std::set<std::string> WITHOUT_MESSAGE_SUITES = {"kel_corrupt"};
const std::set<std::string> WITHOUT_MESSAGE = {
    "kel_free_send_pkt",          "kel_free_recv_pkt",
    "kel_region_invalid_test",    "kel_region_normal_test",
    "kel_region_dup_region_test", "kel_subregion_invalid_test",
    "kel_subregion_normal_test",  "kel_subregion_dup_subregion_test",
    "kel_subregion_enospc",
};

TEST(real_table, has_pairs_for_every_case_that_can_fail)
{
    std::set<std::string> tests;
    for (const campaign::pair &read :
         campaign::read_pairs(TAVOR_SOURCE_DIR "/tests/campaign/pairs")) {
        EXPECT_GE(tools::case_number(read.test), 0) << read.place();
        tests.insert(read.test);
    }
    for (const tools::test_case &listed : tools::all_cases()) {
        const std::string name(listed.name);
        if (!WITHOUT_MESSAGE_SUITES.contains(std::string(listed.suite)) &&
            !WITHOUT_MESSAGE.contains(name)) {
            EXPECT_TRUE(tests.contains(name)) << name;
        }
    }
}

} // namespace

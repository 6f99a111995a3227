// SPDX-License-Identifier: MIT
//
// Which faults are understood, and what is said of those that are not.
#include "tools/keltrace/fault_plan.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "tools/common/error_names.h"
#include "tools/keltrace/numbers.h"

namespace {

using keltrace::action;
using keltrace::fault_plan;
using keltrace::operation;
using keltrace::parse_plan;

std::string problem_of(const std::string &list)
{
    fault_plan plan;
    return parse_plan(list, plan);
}

TEST(fault_plan, an_empty_list_is_no_fault)
{
    fault_plan plan;
    EXPECT_EQ(parse_plan("", plan), "");
    EXPECT_EQ(parse_plan(" \t ", plan), "");
    EXPECT_TRUE(plan.faults.empty());
}

TEST(fault_plan, keeps_faults_in_the_order_given)
{
    fault_plan plan;
    ASSERT_EQ(parse_plan("append#3:error=EINVAL  tlv_getdata#1+:flip=-2 append#1:lost", plan), "");
    ASSERT_EQ(plan.faults.size(), 3U);
    const auto &append = plan.by_operation[static_cast<std::size_t>(operation::kel_append)];
    ASSERT_EQ(append.size(), 2U);
    EXPECT_EQ(append[0]->text, "append#3:error=EINVAL");
    EXPECT_EQ(append[0]->what, action::error);
    EXPECT_EQ(append[0]->value, std::uint64_t{EINVAL});
    EXPECT_EQ(append[1]->what, action::lost);
    EXPECT_EQ(plan.faults[1].what, action::flip);
    EXPECT_EQ(plan.faults[1].signed_value(), -2);
}

TEST(fault_plan, matches_one_call_or_all_from_there_on)
{
    fault_plan plan;
    ASSERT_EQ(parse_plan("append#2:nothing append#2+:nothing", plan), "");
    EXPECT_FALSE(plan.faults[0].matches(1));
    EXPECT_TRUE(plan.faults[0].matches(2));
    EXPECT_FALSE(plan.faults[0].matches(3));
    EXPECT_FALSE(plan.faults[1].matches(1));
    EXPECT_TRUE(plan.faults[1].matches(2));
    EXPECT_TRUE(plan.faults[1].matches(3));
}

TEST(fault_plan, reads_arguments_and_words)
{
    fault_plan plan;
    ASSERT_EQ(
        parse_plan("buf_get_dptr#1:arg4+=-1 bufgroup_get_params#1:arg4[2]=7 send#1:in2=0", plan),
        "");
    EXPECT_EQ(plan.faults[0].what, action::add_argument);
    EXPECT_EQ(plan.faults[0].argument, 3U);
    EXPECT_EQ(plan.faults[0].signed_value(), -1);
    EXPECT_EQ(plan.faults[1].what, action::set_argument);
    EXPECT_EQ(plan.faults[1].word, 2U);
    EXPECT_EQ(plan.faults[2].what, action::pass_argument);
    EXPECT_FALSE(plan.faults[2].word);
}

TEST(fault_plan, accepts_every_action_where_it_applies)
{
    for (const char *text : {"get_packet#1:error=ENOMEM",
                             "get_packet#1:after=KEL_HIGH_THRESHOLD_REACHED",
                             "get_length#1:error=22",
                             "get_length#1:after=22",
                             "get_length#1:result=0xffffffff",
                             "getfd#1:result=-1",
                             "metadata_init#1:lost",
                             "recv#1:error=EIO",
                             "get_packet#1:result=0",
                             "set_data#1:flip=0",
                             "get_ifid#1:arg3=0xffffffffffffffff",
                             "append#9+:delay=5",
                             "malloc#1:fail",
                             "calloc#2+:fail",
                             "malloc#1:nothing",
                             "pthread_create#1:error=EAGAIN",
                             "select#1:error=EBADF",
                             "select#1:result=0",
                             "open#1:result=5",
                             "open#1:error=ENOENT",
                             "ioctl#1:result=0",
                             "ioctl#1:error=EFAULT",
                             "sleep#1+:lost",
                             "gettimeofday#2:add=-5",
                             "gettimeofday#1:delay=1",
                             "tlv_get_versioned_data#1:arg7=3",
                             "buf_adj#1:in2=-3"}) {
        EXPECT_EQ(problem_of(text), "") << text;
    }
}

TEST(fault_plan, says_what_is_wrong)
{
    const std::pair<const char *, const char *> cases[] = {
        {"append", "no call number: <operation>#<n>[+]:<action>"},
        {"kel_append#1:lost", "unknown operation 'kel_append'"},
        {"free#1:fail", "unknown operation 'free'"},
        {"append#0:lost", "bad call number"},
        {"append#x:lost", "bad call number"},
        {"append#1", "no action: <operation>#<n>[+]:<action>"},
        {"append#1+lost", "no action: <operation>#<n>[+]:<action>"},
        {"append#1:", "unknown action"},
        {"append#1:burn", "unknown action"},
        {"append#1:burn=1", "unknown action"},
        {"append#1:error=EWHAT", "bad error 'EWHAT'"},
        {"append#1:error=0", "bad error '0'"},
        {"append#1:error=", "bad error ''"},
        {"append#1:result=1x", "bad number '1x'"},
        {"append#1:result=0x100000000", "number out of range '0x100000000'"},
        {"is_tag_registered#1:result=256", "number out of range '256'"},
        {"append#1:in1=-2147483649", "number out of range '-2147483649'"},
        {"append#1:in3=1", "operation has no such argument"},
        {"append#1:in0=1", "operation has no such argument"},
        {"append#1:arg1=1", "argument is not written by the operation"},
        {"get_data#1:arg4=1", "argument is not written by the operation"},
        {"event_wait#1:arg2=1", "argument names a record: say which word, argK[N]=V"},
        {"event_wait#1:arg2[6]=1", "record has no such word"},
        {"event_wait#1:arg2[x]=1", "bad word number"},
        {"get_cause#1:arg2[0]=1", "argument names no record"},
        {"get_priority#1:arg2=65536", "number out of range '65536'"},
        {"append#1:flip=0", "action does not apply to this operation"},
        {"append#1:fail", "action does not apply to this operation"},
        {"append#1:add=1", "unknown action"},
        {"append#1:delay=-1", "bad number of milliseconds '-1'"},
        {"metadata_init#1:error=EINVAL", "action does not apply to this operation"},
        {"metadata_init#1:result=1", "action does not apply to this operation"},
        {"recv#1:after=EIO", "action does not apply to this operation"},
        {"malloc#1:error=ENOMEM", "action does not apply to this operation"},
        {"malloc#1:lost", "action does not apply to this operation"},
        {"select#1:lost", "action does not apply to this operation"},
        {"select#1:arg1=1", "action does not apply to this operation"},
        {"pthread_create#1:result=1", "action does not apply to this operation"},
        {"sleep#1:add=1", "action does not apply to this operation"},
    };
    for (const auto &[text, message] : cases) {
        EXPECT_EQ(problem_of(text), std::string(text) + ": " + message);
    }
}

TEST(fault_plan, stops_at_the_first_wrong_fault)
{
    EXPECT_EQ(problem_of("append#1:lost bad#1:lost worse#1:lost"),
              "bad#1:lost: unknown operation 'bad'");
}

TEST(numbers, names_are_read_and_written)
{
    EXPECT_EQ(keltrace::parse_number("ENOBUFS")->magnitude, std::uint64_t{ENOBUFS});
    EXPECT_EQ(keltrace::parse_number("KEL_LOW_THRESHOLD_REACHED")->magnitude, 0x801BU);
    EXPECT_STREQ(tools::known_error_name(EPERM), "EPERM");
    EXPECT_STREQ(tools::known_error_name(0x801A), "KEL_HIGH_THRESHOLD_REACHED");
    EXPECT_EQ(tools::known_error_name(0), nullptr);
    EXPECT_EQ(tools::known_error_name(99999), nullptr);
    EXPECT_FALSE(keltrace::parse_number(""));
    EXPECT_FALSE(keltrace::parse_number("-"));
    EXPECT_FALSE(keltrace::parse_number("0x"));
    EXPECT_FALSE(keltrace::parse_number("--1"));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// What single cases print themselves, between their name and their verdict.
#include <gtest/gtest.h>

#include <regex>

#include "tests/support/tavor.h"

namespace {

using support::run_tavor;

// What a run of one case printed behind its name, up to the summary.
std::string printed_by(const std::string &test, const support::run_options &options = {})
{
    const auto result = run_tavor({test}, options);
    const std::string name = support::padded(test, 40) + " ";
    const std::size_t start = result.output.find("\n" + name);
    const std::size_t end = result.output.find("\n" + std::string(74, '=') + "\nSummary");
    if (start == std::string::npos || end == std::string::npos) {
        return "no verdict in: " + result.output;
    }
    return result.output.substr(start + 1 + name.size(), end - start - name.size());
}

TEST(progress, caller_is_printed)
{
    const std::string printed = printed_by("kel_metadata_get_caller");
    EXPECT_TRUE(
        std::regex_match(printed, std::regex("pid\\([0-9]+\\) pc\\(0x[0-9a-f]+\\)\nPASS\n")))
        << printed;
    const std::string null_pc = printed_by("kel_metadata_get_caller",
                                           {.faults = "get_caller#1:arg2=7 get_caller#1:arg3=0"});
    EXPECT_EQ(null_pc, "pid(7) pc(0x0)\nFAIL : " + support::padded("pid mismatch", 83) + "\n");
}

TEST(progress, receiving_thread_tells_its_count)
{
    EXPECT_EQ(printed_by("kel_event_wait_tag_event"), "recv_helper: Complete 200\nPASS\n");
}

TEST(progress, receiving_thread_tells_wrong_causes)
{
    EXPECT_EQ(printed_by("kel_event_wait_tag_event", {.faults = "get_cause#3:arg2=77"}),
              "recv_helper: Complete 200\nrecv_helper: Corrupted packet@ 2, cause 77\nPASS\n");
}

TEST(progress, receiving_thread_without_memory)
{
    const auto result = run_tavor({"kel_event_wait_tag_event"}, {.faults = "malloc#1+:fail"});
    EXPECT_NE(result.errors.find("recv_helper: malloc failure. Aborting\n"), std::string::npos)
        << result.errors;
    EXPECT_NE(result.output.find("\nPASS\n"), std::string::npos) << result.output;
}

TEST(progress, refused_send_is_told)
{
    const std::string printed =
        printed_by("kel_event_wait_tag_event", {.faults = "send#4:error=EAGAIN"});
    EXPECT_TRUE(printed.starts_with("kel_event_wait_tag_event: send failed for index 3\n"))
        << printed;
    EXPECT_TRUE(printed.ends_with("PASS\n")) << printed;
}

TEST(progress, refused_send_of_the_selecting_case_is_told)
{
    const std::string printed =
        printed_by("kel_event_wait_tag_event_via_select", {.faults = "send#4:error=EAGAIN"});
    EXPECT_TRUE(
        printed.starts_with("kel_event_wait_tag_event_via_select: send failed for index 3\n"))
        << printed;
}

TEST(progress, early_flush_prints_the_clock)
{
    const std::string printed =
        printed_by("kel_sendrecv_recv_no_sig_prog_flush", {.faults = "gettimeofday#3:add=-500000"});
    EXPECT_TRUE(std::regex_search(
        printed, std::regex("^handle=[0-9]+, current=[0-9]+, last=[0-9]+, tv\\.usec=[0-9]+\n")))
        << printed;
}

TEST(progress, roles_print_their_findings)
{
    EXPECT_EQ(printed_by("kel_role_basic"), "PASS\n");
    EXPECT_EQ(printed_by("kel_role_basic", {.faults = "client_ha_role_notify#1:after=EIO"}),
              "FAIL    : role change (expect(0) got(5))\nFAIL : " + support::padded("FAIL", 83) +
                  "\n");
    EXPECT_EQ(printed_by("kel_role_basic", {.faults = "register_tag#8+:error=ENOSPC"}),
              "FAIL    : registering clients (expect(8) got(7))\nFAIL : " +
                  support::padded("FAIL", 83) + "\n");
    EXPECT_EQ(printed_by("kel_role_basic", {.faults = "register_client#1:error=ENOMEM"}),
              "kel_register_client(source): 12\nPASS\n")
        << "a source that cannot be made is no failure";
    EXPECT_EQ(printed_by("kel_role_basic", {.faults = "register_bufgroup#1:error=EIO"}),
              "kel_register_bufgroup(source): 5\nPASS\n");
    EXPECT_EQ(printed_by("kel_role_basic", {.faults = "bufgroup_set_params#1:error=EIO"}),
              "kel_bufgroup_set_params(source): 5\nPASS\n");
}

TEST(progress, each_step_of_the_roles_is_named)
{
    EXPECT_EQ(printed_by("kel_role_basic", {.faults = "send#1+:error=EIO"}),
              "FAIL    : no active sink -- send should fail (expect(2) got(5))\n"
              "FAIL    : sink 5 is active -- send should succeed (expect(0) got(5))\n"
              "FAIL    : active sink removed -- send should fail (expect(2) got(5))\n"
              "FAIL    : sink 6 should take precedence, send (expect(0) got(5))\n"
              "FAIL    : sink 7 should take precedence, send (expect(0) got(5))\n"
              "FAIL    : sink 6 should receive, send (expect(0) got(5))\n"
              "FAIL    : no active sink -- send should fail (expect(2) got(5))\n"
              "FAIL : " +
                  support::padded("FAIL", 83) + "\n");
}

TEST(progress, a_packet_at_the_wrong_role_is_told)
{
    const std::string printed =
        printed_by("kel_role_basic", {.environment = {"KEL_REFERENCE_FAULTS=send#1+:to_standby"}});
    EXPECT_NE(printed.find("\nFAIL    : recv (expect(6) got(7))\n"), std::string::npos) << printed;
}

TEST(progress, refused_removal_of_a_roles_tag_is_told_and_not_counted)
{
    const std::string printed =
        printed_by("kel_role_basic", {.faults = "deregister_tag#1:error=EIO"});
    EXPECT_TRUE(printed.starts_with("FAIL: deregistering tag\n")) << printed;
}

TEST(progress, lost_packet_of_a_role_is_told_and_not_counted)
{
    const std::string printed = printed_by("kel_role_basic", {.faults = "send#2:lost"});
    EXPECT_TRUE(printed.starts_with("FAIL: No sinks received the packet!\n")) << printed;
}

TEST(progress, a_failed_role_stays_failed_in_loop_mode)
{
    const auto result =
        run_tavor({"-l", "kel_role_basic"}, {.faults = "client_ha_role_notify#1:after=EIO",
                                             .stop_after = "FAIL : ",
                                             .stop_after_count = 2});
    EXPECT_GE(support::lines_of(result.output).size(), 4u);
    EXPECT_EQ(result.output.find("PASS"), std::string::npos) << result.output;
}

} // namespace

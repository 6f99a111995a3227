// SPDX-License-Identifier: MIT
//
// Recording: the same bytes every time, all that a program does with the library, up to and with
// the call that did not return.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/sequence/recording.h"
#include "tests/support/scratch.h"
#include "tests/support/tavor.h"
#include "tools/sequence/parser.h"
#include "tools/sequence/printer.h"

namespace {

using namespace sequence;
using support::recorded_text;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class recorded_case : public testing::TestWithParam<const char *> {};

TEST_P(recorded_case, is_the_same_twice_and_reads_as_it_was_written)
{
    const std::string text = recorded_text(GetParam());
    EXPECT_EQ(recorded_text(GetParam()), text);
    EXPECT_EQ(to_text(from_text(text), printed::calls_and_answers), text);
}

INSTANTIATE_TEST_SUITE_P(record, recorded_case,
                         testing::Values("kel_packet_trim_head", "kel_role_basic",
                                         "kel_bufgroup_reserved_get_packet_list",
                                         "kel_buf_get_buf_iov_not_cont",
                                         "kel_metadata_group_access_fields",
                                         "kel_metadata_get_caller", "kel_tlv_get_null_ptr",
                                         "kel_region_invalid_get_info"));

TEST(record, names_objects_and_passes_unknown_handles_through)
{
    const std::string text = recorded_text("kel_packet_append_invalid_pkt");
    EXPECT_THAT(text, HasSubstr("client1 = register_client(\"test client\", ALWAYS, 32) -> 0, "
                                "client=client1\n"));
    EXPECT_THAT(text, HasSubstr("append(0xfedcba98, buffer1) -> EINVAL\n"));
}

TEST(record, has_what_the_device_is_asked)
{
    const std::string text = recorded_text("kel_region_invalid_get_info");
    EXPECT_THAT(text, HasSubstr("descriptor1 = open_device() -> descriptor1\n"));
    EXPECT_THAT(text, HasSubstr("ioctl(descriptor1, 0x836, "));
}

TEST(record, has_both_ends_of_a_call_that_waits)
{
    const std::string text = recorded_text("kel_event_wait_interrupt");
    EXPECT_THAT(text, HasSubstr("event_wait(client1, null) ...\n"));
    EXPECT_THAT(text, HasSubstr("@2 event_clear(client1) "));
    EXPECT_THAT(text, HasSubstr("returned() -> EINTR\n"));
}

// The shim kills nothing itself: a fault that never ends stands for a library that hangs.
TEST(record, ends_with_the_call_that_did_not_return)
{
    const support::scratch_folder scratch;
    const std::string path = scratch.file("unreturned.seq");
    tools::process_options process;
    process.arguments = {TAVOR_BINARY, "-t", "kel_packet_append"};
    process.environment = {"KELTRACE_RECORD=" + path, "LD_PRELOAD=" KELTRACE_LIBRARY,
                           "KELTRACE_FAULTS=append#1:delay=60000"};
    process.timeout = std::chrono::seconds(1);
    process.timeout_signal = SIGKILL;
    EXPECT_TRUE(tools::run_process(process).timed_out);
    process.arguments = {"cat", path};
    process.environment = {};
    const std::string text = tools::run_process(process).output;
    EXPECT_THAT(text, EndsWith("append(packet1, buffer1) ...\n"));
    EXPECT_EQ(from_text(text).answers.back().outcome, outcome::unreturned);
}

TEST(record, is_what_the_program_saw)
{
    const std::string text =
        recorded_text("kel_packet_append", {"KELTRACE_FAULTS=append#1:error=ENOENT"});
    EXPECT_THAT(text, HasSubstr("append(packet1, buffer1) -> ENOENT\n"));
}

TEST(record, ends_when_the_disk_is_full_and_the_program_goes_on)
{
    tools::process_options process;
    process.arguments = {TAVOR_BINARY, "-t", "kel_packet_append"};
    process.environment = {"KELTRACE_RECORD=/dev/full", "LD_PRELOAD=" KELTRACE_LIBRARY};
    const auto result = tools::run_process(process);
    EXPECT_TRUE(result.exited_with(0));
    EXPECT_THAT(result.output, HasSubstr("PASS"));
    EXPECT_THAT(result.errors, HasSubstr("the recording ends here"));
}

TEST(record, refuses_a_file_that_cannot_be)
{
    tools::process_options process;
    process.arguments = {TAVOR_BINARY, "-t", "kel_packet_append"};
    process.environment = {"KELTRACE_RECORD=/no/such/folder/file", "LD_PRELOAD=" KELTRACE_LIBRARY};
    EXPECT_TRUE(tools::run_process(process).exited_with(2));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// The shim before a stub library: what the program and the library see of each fault, and what the
// report, the trace and the ring say, to the byte.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/scratch.h"
#include "tools/common/process.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using words = std::vector<std::string>;

tools::process_result run(const words &calls, const words &environment)
{
    tools::process_options options;
    options.arguments = {KELTRACE_SUBJECT};
    options.arguments.insert(options.arguments.end(), calls.begin(), calls.end());
    options.environment = environment;
    options.environment.emplace_back("LD_PRELOAD=" KELTRACE_LIBRARY);
    return tools::run_process(options);
}

// What the program and the stub print under these faults; nothing else may be printed.
std::string output(const words &calls, const std::string &faults,
                   const std::string &environment = "STUB=")
{
    const auto result = run(calls, {"KELTRACE_FAULTS=" + faults, environment});
    EXPECT_TRUE(result.exited_with(0)) << result.errors;
    EXPECT_EQ(result.errors, "");
    return result.output;
}

class keltrace : public testing::Test {
protected:
    // A file of this process's own.
    static std::string path(const std::string &what)
    {
        static const support::scratch_folder scratch;
        return scratch.file(what);
    }

    static std::string content(const std::string &path)
    {
        std::ifstream file(path);
        std::string text{std::istreambuf_iterator<char>(file), {}};
        remove(path.c_str());
        return text;
    }

    static std::string report(const words &calls, const std::string &faults = "",
                              const std::string &environment = "STUB=")
    {
        const auto result = run(
            calls, {"KELTRACE_FAULTS=" + faults, "KELTRACE_REPORT=" + path("report"), environment});
        EXPECT_EQ(result.errors, "");
        const std::string text = content(path("report"));
        EXPECT_TRUE(text.ends_with("end\n")) << text;
        return text.substr(0, text.rfind("end\n"));
    }

    // The report's lines about objects.
    static std::string census(const words &calls, const std::string &faults = "",
                              const std::string &environment = "STUB=")
    {
        std::istringstream lines(report(calls, faults, environment));
        std::string kept;
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("census ") || line.starts_with("swept ")) kept += line + "\n";
        }
        return kept;
    }

    // What the shim says of objects that are left or swept.
    static std::string left(const words &calls, const std::string &faults = "")
    {
        run(calls, {"KELTRACE_FAULTS=" + faults, "KELTRACE_LEFT=" + path("left"), "STUB="});
        return content(path("left"));
    }

    // The trace in the order of the calls: lines stand in the order in which calls returned.
    static std::string trace(const words &calls, const std::string &faults = "",
                             const std::string &environment = "STUB=")
    {
        const auto result = run(
            calls, {"KELTRACE_FAULTS=" + faults, "KELTRACE_TRACE=" + path("trace"), environment});
        EXPECT_EQ(result.errors, "");
        std::istringstream stream(content(path("trace")));
        words lines;
        for (std::string line; std::getline(stream, line);) lines.push_back(line + "\n");
        std::stable_sort(lines.begin(), lines.end(), [](const auto &one, const auto &other) {
            return std::stoi(one) < std::stoi(other);
        });
        return std::accumulate(lines.begin(), lines.end(), std::string());
    }
};

constexpr const char *APPEND = "  append(packet=257 buffer=258)\n";
constexpr const char *GET_PACKET =
    "  get_packet(client=257 group=258 size=259 contiguous=1 error=&)\n";

TEST_F(keltrace, changes_nothing_without_settings)
{
    const auto result = run({"append", "malloc", "select", "open"}, {});
    EXPECT_TRUE(result.exited_with(0));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, APPEND + std::string("append = 0\nmalloc done\nselect = 1\n"
                                                  "select set 1\nopen = 1\n"));
}

TEST_F(keltrace, empty_settings_are_none)
{
    const auto result = run({"append"}, {"KELTRACE_FAULTS=", "KELTRACE_TRACE=", "KELTRACE_RING=",
                                         "KELTRACE_RING_FILE=", "KELTRACE_REPORT="});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, APPEND + std::string("append = 0\n"));
}

TEST_F(keltrace, error_refuses_one_call)
{
    EXPECT_EQ(output({"append", "append", "append"}, "append#2:error=EINVAL"),
              APPEND + std::string("append = 0\nappend = 22\n") + APPEND + "append = 0\n");
}

TEST_F(keltrace, error_refuses_from_then_on)
{
    EXPECT_EQ(output({"append", "append", "append"}, "append#2+:error=EINVAL"),
              APPEND + std::string("append = 0\nappend = 22\nappend = 22\n"));
}

TEST_F(keltrace, error_of_a_creating_operation_is_stored)
{
    EXPECT_EQ(output({"get_packet", "get_packet~5", "get_pkthdr", "buf_duplicate"},
                     "get_packet#1+:error=ENOMEM get_pkthdr#1:error=EIO "
                     "buf_duplicate#1:error=ENOBUFS"),
              "get_packet = 0 5:12\nget_packet = 0 5:261\nget_pkthdr = 0\n"
              "buf_duplicate = 0 4:105\n");
}

TEST_F(keltrace, lost_pretends_success)
{
    EXPECT_EQ(output({"append", "get_packet", "get_cause", "metadata_init", "get_length"},
                     "append#1:lost get_packet#1:lost get_cause#1:lost metadata_init#1:lost "
                     "get_length#1:lost"),
              "append = 0\nget_packet = 0 5:0\nget_cause = 0 2:258\nmetadata_init 1:0,0,0\n"
              "get_length = 0\n");
}

TEST_F(keltrace, after_refuses_what_was_done)
{
    EXPECT_EQ(output({"append", "get_packet"},
                     "append#1:after=EPERM get_packet#1:after=KEL_HIGH_THRESHOLD_REACHED"),
              APPEND + std::string("append = 1\n") + GET_PACKET + "get_packet = 20481 5:32794\n");
}

TEST_F(keltrace, result_replaces_any_result)
{
    EXPECT_EQ(output({"get_length", "getfd", "is_tag_registered", "get_packet"},
                     "get_length#1:result=0xffffffff getfd#1:result=-1 "
                     "is_tag_registered#1:result=0 get_packet#1:result=0xfedcba98"),
              "  get_length(packet=257)\nget_length = 4294967295\n"
              "  getfd(client=257)\ngetfd = -1\n"
              "  is_tag_registered(client=257 tag=258)\nis_tag_registered = 0\n" +
                  std::string(GET_PACKET) + "get_packet = 4275878552 5:0\n");
}

TEST_F(keltrace, arguments_are_replaced_in_their_width)
{
    EXPECT_EQ(output({"get_priority", "get_ifid", "buf_get_dptr", "register_client"},
                     "get_priority#1:arg2=0xffff get_ifid#1:arg3=0x123456789abcdef0 "
                     "buf_get_dptr#1:arg3=0 buf_get_dptr#1:arg4+=-2 register_client#1:arg1=5"),
              "  get_priority(packet=257 priority=&)\nget_priority = 0 2:65535\n"
              "  get_ifid(packet=257 kind=258 id=&)\nget_ifid = 0 3:1311768467463790320\n"
              "  buf_get_dptr(buffer=257 offset=258 data=& length=&)\n"
              "buf_get_dptr = 0 3:0 4:30\n"
              "  register_client(client=& name=& role=259 depth=260)\n"
              "register_client = 0 1:5\n");
}

TEST_F(keltrace, words_of_records_are_replaced)
{
    EXPECT_EQ(output({"bufgroup_get_params", "event_wait"},
                     "bufgroup_get_params#1:arg4[2]=9 bufgroup_get_params#1:arg5[0]+=-1 "
                     "event_wait#1:arg2[0]=0"),
              "  bufgroup_get_params(client=257 group=258 mask=& buffers=& bytes=&)\n"
              "bufgroup_get_params = 0 3:32 4:3,1,9 5:2,1,2\n"
              "  event_wait(client=257 event=& timeout=&)\nevent_wait = 0 2:0,4,1\n");
}

TEST_F(keltrace, a_null_argument_is_left_alone)
{
    EXPECT_EQ(report({"get_cause~2", "get_packet~5", "get_data~4", "get_data~5", "buf_set_data~3"},
                     "get_cause#1:arg2=1 get_packet#1:after=EIO get_data#1+:flip=0 "
                     "buf_set_data#1:flip=0"),
              "calls buf_set_data 1\ncalls get_cause 1\ncalls get_packet 1\ncalls get_data 2\n"
              "fault get_cause#1:arg2=1 hits 1 fired 0\n"
              "fault get_packet#1:after=EIO hits 1 fired 0\n"
              "fault get_data#1+:flip=0 hits 2 fired 0\n"
              "fault buf_set_data#1:flip=0 hits 1 fired 0\n"
              "census packet 1 0 1\n");
}

TEST_F(keltrace, passed_arguments_are_replaced)
{
    EXPECT_EQ(output({"append", "get_cause", "buf_adj"},
                     "append#1:in2=0xdeadbeef get_cause#1:in2=0 buf_adj#1:in2=-1"),
              "  append(packet=257 buffer=3735928559)\nappend = 0\n"
              "  get_cause(packet=257 cause=null)\nget_cause = 0 2:258\n"
              "  buf_adj(buffer=& size=-1)\nbuf_adj = 0 1:513\n");
}

TEST_F(keltrace, one_bit_of_data_written_is_changed_on_the_way)
{
    EXPECT_EQ(output({"set_data", "set_data", "set_data"},
                     "set_data#1:flip=0 set_data#2:flip=-1 set_data#2:flip=1"),
              "  set_data(packet=257 kind=258 offset=259 source=@BCDEFGH length=8)\nset_data = 0\n"
              "  set_data(packet=257 kind=258 offset=259 source=ACCDEFGI length=8)\nset_data = 0\n"
              "  set_data(packet=257 kind=258 offset=259 source=ABCDEFGH length=8)\n"
              "set_data = 0\n");
}

TEST_F(keltrace, one_bit_of_data_read_is_changed)
{
    EXPECT_EQ(output({"tlv_getdata", "tlv_getdata"}, "tlv_getdata#1:flip=7 tlv_getdata#2:flip=-8"),
              "  tlv_getdata(packet=257 id=258 destination=& length=&)\n"
              "tlv_getdata = 0 3:abcdefgi 4:8\n"
              "  tlv_getdata(packet=257 id=258 destination=& length=&)\n"
              "tlv_getdata = 0 3:`bcdefgh 4:8\n");
}

TEST_F(keltrace, bytes_beyond_the_data_are_not_changed)
{
    EXPECT_THAT(report({"get_data", "set_data"}, "get_data#1:flip=8 set_data#1:flip=-9"),
                HasSubstr("fault get_data#1:flip=8 hits 1 fired 0\n"
                          "fault set_data#1:flip=-9 hits 1 fired 0\n"));
}

TEST_F(keltrace, data_of_a_refused_read_is_not_changed)
{
    EXPECT_THAT(report({"get_data"}, "get_data#1:flip=0", "STUB_RESULT_get_data=22"),
                HasSubstr("fault get_data#1:flip=0 hits 1 fired 0\n"));
}

TEST_F(keltrace, delay_waits_before_the_call)
{
    const auto result = run({"append"}, {"KELTRACE_FAULTS=append#1:delay=200"});
    EXPECT_EQ(result.output, APPEND + std::string("append = 0\n"));
    EXPECT_GE(result.wall_time, std::chrono::milliseconds(200));
}

TEST_F(keltrace, nothing_is_counted_and_does_nothing)
{
    EXPECT_EQ(output({"append"}, "append#1:nothing"), APPEND + std::string("append = 0\n"));
    EXPECT_EQ(report({"append", "append"}, "append#1+:nothing append#9:error=EIO"),
              "calls append 2\nfault append#1+:nothing hits 2 fired 0\n"
              "fault append#9:error=EIO hits 0 fired 0\n");
}

TEST_F(keltrace, faults_of_one_call_act_in_order)
{
    EXPECT_EQ(output({"append"}, "append#1:in1=1 append#1:in1=2 append#1:result=3 "
                                 "append#1:after=4"),
              "  append(packet=2 buffer=258)\nappend = 4\n");
}

TEST_F(keltrace, calls_of_all_threads_are_counted_together)
{
    EXPECT_EQ(output({"recv", "pthread_create", "recv"}, "recv#2:result=9"),
              "  recv(client=257)\nrecv = 20481\n  recv(client=257)\nrecv = 9\n"
              "pthread_create = 0\n  recv(client=257)\nrecv = 20481\n");
}

TEST_F(keltrace, memory_is_refused)
{
    EXPECT_EQ(output({"malloc", "malloc", "calloc", "calloc"}, "malloc#2:fail calloc#1+:fail"),
              "malloc done\nmalloc failed\ncalloc failed\ncalloc failed\n");
}

TEST_F(keltrace, only_the_programs_own_allocations_count)
{
    EXPECT_EQ(report({"append", "malloc", "calloc"}), "calls append 1\ncalls malloc 1\n"
                                                      "calls calloc 1\ncensus memory 2 2 0\n");
}

TEST_F(keltrace, system_calls_are_refused)
{
    EXPECT_EQ(output({"pthread_create", "open", "open64", "ioctl", "select"},
                     "pthread_create#1:error=EAGAIN open#1:error=ENOENT open#2:error=EACCES "
                     "ioctl#1:error=EFAULT select#1:error=EBADF"),
              "pthread_create = 11\nopen = -1 ENOENT\nopen = -1 EACCES\nioctl = -1 EFAULT\n"
              "ioctl waiting 0\nselect = -1 EBADF\nselect set 1\n");
}

TEST_F(keltrace, system_calls_have_other_results)
{
    EXPECT_EQ(output({"select", "select", "ioctl"},
                     "select#1:result=0 select#2:result=2 ioctl#1:result=0"),
              "select = 0\nselect set 0\nselect = 2\nselect set 1\nioctl = 0\nioctl waiting 0\n");
}

TEST_F(keltrace, sleep_is_lost)
{
    const auto result = run({"sleep"}, {"KELTRACE_FAULTS=sleep#1:lost"});
    EXPECT_EQ(result.output, "sleep = 0\n");
    EXPECT_LT(result.wall_time, std::chrono::seconds(1));
}

TEST_F(keltrace, the_time_of_day_is_shifted)
{
    EXPECT_EQ(output({"gettimeofday", "gettimeofday", "gettimeofday"},
                     "gettimeofday#2:add=100999999 gettimeofday#3:add=-100999999"),
              "gettimeofday = 0\ngettimeofday right, sound\ngettimeofday = 0\n"
              "gettimeofday ahead, sound\ngettimeofday = 0\ngettimeofday behind, sound\n");
}

TEST_F(keltrace, a_wrong_setting_ends_the_program_at_once)
{
    const std::pair<const char *, const char *> cases[] = {
        {"KELTRACE_FAULTS=append#1:burn",
         "keltrace: KELTRACE_FAULTS: append#1:burn: unknown action\n"},
        {"KELTRACE_RING=none", "keltrace: KELTRACE_RING: bad number of calls 'none'\n"},
        {"KELTRACE_RING=0", "keltrace: KELTRACE_RING: bad number of calls '0'\n"},
        {"KELTRACE_TRACE=/no/such/folder",
         "keltrace: KELTRACE_TRACE: /no/such/folder: No such file or directory\n"},
        {"KELTRACE_RING_FILE=/no/such/folder",
         "keltrace: KELTRACE_RING_FILE: /no/such/folder: No such file or directory\n"},
    };
    for (const auto &[setting, message] : cases) {
        const auto result = run({"append"}, {setting});
        EXPECT_TRUE(result.exited_with(2)) << setting;
        EXPECT_EQ(result.output, "") << setting;
        EXPECT_EQ(result.errors, message) << setting;
    }
}

TEST_F(keltrace, a_report_that_cannot_be_written_is_told)
{
    const auto result = run({"append"}, {"KELTRACE_REPORT=/no/such/folder"});
    EXPECT_TRUE(result.exited_with(0));
    EXPECT_EQ(result.errors, "keltrace: cannot write /no/such/folder\n");
}

TEST_F(keltrace, the_report_is_written_when_the_program_dies)
{
    EXPECT_EQ(report({"append", "crash"}), "calls append 1\n");
}

// The subject obtains packet 0x5001, buffer 0x5002, client, group and tag 0x20, and names 0x101 and
// 0x102; faults make them meet.
TEST_F(keltrace, census_tells_what_was_released_and_what_is_left)
{
    EXPECT_EQ(census({"get_packet"}), "census packet 1 0 1\n");
    EXPECT_EQ(census({"get_packet~5"}, "get_packet#1:result=0"), "");
    EXPECT_EQ(census({"get_packet", "free_packet"}, "get_packet#1:result=0x101"),
              "census packet 1 1 0\n");
    EXPECT_EQ(census({"get_packet", "send"}, "get_packet#1:result=0x102"), "census packet 1 1 0\n");
    EXPECT_EQ(census({"get_packet", "send"}, "get_packet#1:result=0x102 send#1:error=ENOENT"),
              "census packet 1 0 1\n");
    EXPECT_EQ(census({"get_packet", "free_packet"},
                     "get_packet#1:result=0x101 free_packet#1:after=KEL_LOW_THRESHOLD_REACHED"),
              "census packet 1 1 0\n");
    EXPECT_EQ(census({"get_buffer", "append"}, "get_buffer#1:result=0x102"),
              "census buffer 1 1 0\n");
    EXPECT_EQ(census({"recv", "free_pkthdr"}, "recv#1:result=0x101"), "census packet 1 1 0\n");
}

TEST_F(keltrace, census_follows_a_chain_under_its_new_head)
{
    EXPECT_EQ(census({"get_buffer", "buf_trim_head", "free_bufchain"},
                     "get_buffer#1:result=0x200 buf_trim_head#1:arg1=0x101"),
              "census buffer 1 1 0\n");
    EXPECT_EQ(census({"get_buffer", "buf_adj"}, "get_buffer#1:result=0x200 buf_adj#1:arg1=0"),
              "census buffer 1 1 0\n");
}

TEST_F(keltrace, census_counts_registrations)
{
    EXPECT_EQ(census({"register_tag", "deregister_tag", "register_bufgroup"}),
              "census bufgroup 1 0 1\ncensus tag 1 1 0\n");
    EXPECT_EQ(census({"register_bufgroup", "deregister_bufgroup"}, "register_bufgroup#1:arg2=258"),
              "census bufgroup 1 1 0\n");
    EXPECT_EQ(census({"alloc_tag", "register_tag", "free_tag"}, "alloc_tag#1:arg2=258"),
              "census tag 1 1 0\ncensus dynamic_tag 1 1 0\n");
}

TEST_F(keltrace, census_counts_tlvs_with_their_packet)
{
    EXPECT_EQ(census({"tlv_alloc", "tlv_free"}), "census tlv 1 1 0\n");
    EXPECT_EQ(census({"tlv_alloc"}), "census tlv 1 0 1\n");
    EXPECT_EQ(census({"get_packet", "tlv_alloc", "free_packet"}, "get_packet#1:result=0x101"),
              "census packet 1 1 0\ncensus tlv 1 1 0\n");
}

TEST_F(keltrace, census_counts_armed_events)
{
    EXPECT_EQ(census({"event_add_tag", "event_remove_tag"}), "census event 1 1 0\n");
    EXPECT_EQ(census({"event_add_bufgroup", "event_remove_bufgroup"}), "census event 1 1 0\n");
    EXPECT_EQ(census({"event_add_tag", "event_add_bufgroup", "event_clear"}),
              "census event 2 2 0\n");
    // The stub reports the tag 0x20.
    EXPECT_EQ(census({"event_add_tag", "event_wait"}, "event_wait#1:arg2[4]=258"),
              "census event 1 1 0\n");
    EXPECT_EQ(census({"event_add_tag", "event_wait"}), "census event 1 0 1\n");
}

TEST_F(keltrace, census_tells_what_deregistration_had_to_release)
{
    EXPECT_EQ(census({"register_client", "get_packet", "register_tag", "get_buffer_list",
                      "deregister_client"},
                     "register_client#1:arg1=257"),
              "census client 1 1 0\ncensus packet 1 0 0\nswept packet 1\n"
              "census buffer 1 0 0\nswept buffer 1\ncensus tag 1 0 0\nswept tag 1\n");
}

TEST_F(keltrace, census_counts_what_lists_give)
{
    EXPECT_EQ(census({"get_packet_list", "get_buffer_list"}),
              "census packet 1 0 1\ncensus buffer 1 0 1\n");
}

TEST_F(keltrace, census_counts_what_the_system_gives)
{
    EXPECT_EQ(census({"malloc_kept", "malloc", "pthread_create", "open", "open64"}),
              "census packet 1 0 1\ncensus memory 2 1 1\ncensus thread 1 1 0\n"
              "census descriptor 2 1 1\n");
}

TEST_F(keltrace, names_the_calls_of_what_is_left_and_swept)
{
    EXPECT_EQ(left({"get_packet", "get_buffer", "free_bufchain"},
                   "get_packet#1:result=0x101 get_buffer#1:result=0x101"),
              "keltrace: left packet 0x101 by 1 t1 kel_get_packet(client=0x101, group=0x102, "
              "size=259, contiguous=1, error=&)\n");
    EXPECT_THAT(left({"register_client", "register_tag", "deregister_client"},
                     "register_client#1:arg1=257"),
                MatchesRegex("keltrace: swept tag 0x[0-9a-f]+ by 2 t1 kel_register_tag\\(.*\\)\n"));
    // Under the name that a chain has in the end, by the call that it is of.
    EXPECT_THAT(left({"get_buffer", "buf_trim_head"},
                     "get_buffer#1:result=0x200 buf_trim_head#1:arg1=0x102"),
                StartsWith("keltrace: left buffer 0x102 by 1 t1 kel_get_buffer("));
    EXPECT_EQ(left({"malloc_kept", "open"}), "")
        << "the system's own objects are not the library's";
}

TEST_F(keltrace, traces_each_call_with_what_it_stored)
{
    EXPECT_EQ(trace({"get_packet", "set_data", "get_data", "register_client", "metadata_init",
                     "buf_trim_head", "bufgroup_get_params", "get_ifid"},
                    "set_data#1:in2=0"),
              "1 t1 kel_get_packet(client=0x101, group=0x102, size=259, contiguous=1, error=&)"
              " = 0x5001 [error=0]\n"
              "2 t1 kel_set_data(packet=0x101, kind=258, offset=259,"
              " source=<41 42 43 44 45 46 47 48>, length=8) = 0 !set_data#1:in2=0\n"
              "3 t1 kel_get_data(packet=0x101, kind=258, offset=259, destination=&, length=8) = 0"
              " [destination=<61 62 63 64 65 66 67 68>, length=8]\n"
              "4 t1 kel_register_client(client=&, name=\"name\", role=259, depth=260) = 0"
              " [client=0x20]\n"
              "5 t1 kel_metadata_init(group=&) [group={mask 0x0 length 32 tag 0x0}]\n"
              "6 t1 kel_buf_trim_head(buffer=0x200, size=258) = 0 [buffer=0x201]\n"
              "7 t1 kel_bufgroup_get_params(client=0x101, group=0x102, mask=&, buffers=&, bytes=&)"
              " = 0 [mask=0x20, buffers={max 3 low 1 high 2}, bytes={max 3 low 1 high 2}]\n"
              "8 t1 kel_get_ifid(packet=0x101, kind=258, id=&) = 0 [id=0x40]\n");
}

TEST_F(keltrace, traces_refusals_by_name)
{
    EXPECT_EQ(trace({"append", "get_cause~2", "get_packet", "free_packet", "open"},
                    "append#1:error=EINVAL get_packet#1:error=ENOBUFS "
                    "free_packet#1:after=KEL_LOW_THRESHOLD_REACHED open#1:error=ENOENT",
                    "STUB_RESULT_get_cause=22"),
              "1 t1 kel_append(packet=0x101, buffer=0x102) = EINVAL !append#1:error=EINVAL\n"
              "2 t1 kel_get_cause(packet=0x101, cause=null) = EINVAL\n"
              "3 t1 kel_get_packet(client=0x101, group=0x102, size=259, contiguous=1, error=&) = 0"
              " [error=ENOBUFS] !get_packet#1:error=ENOBUFS\n"
              "4 t1 kel_free_packet(packet=0x101) = KEL_LOW_THRESHOLD_REACHED"
              " !free_packet#1:after=KEL_LOW_THRESHOLD_REACHED\n"
              "5 t1 open(\"/dev/null\", 0x2) = -1 ENOENT !open#1:error=ENOENT\n");
}

TEST_F(keltrace, traces_threads_and_the_start_of_calls_that_may_block)
{
    EXPECT_EQ(trace({"pthread_create", "event_wait", "sleep"}, "sleep#1:lost"),
              "1 t1 pthread_create() = 0\n"
              "2 t2 kel_recv(client=0x101) = 0x5001\n"
              "3 t1 kel_event_wait(client=0x101, event=&, timeout={0.000000 s}) ...\n"
              "3 t1 kel_event_wait(client=0x101, event=&, timeout={0.000000 s}) = 0"
              " [event={TAG flags 0x4 object 0x20 group_flags 0 context 0x1 0x2}]\n"
              "4 t1 sleep(1) ...\n"
              "4 t1 sleep(1) = 0 !sleep#1:lost\n");
}

TEST_F(keltrace, names_kinds_and_roles)
{
    EXPECT_EQ(trace({"get_offset", "get_ifid", "client_ha_role_notify"}, "get_offset#1:nothing"),
              "1 t1 kel_get_offset(packet=0x101, kind=258, offset=&) = 0 [offset=32]"
              " !get_offset#1:nothing\n"
              "2 t1 kel_get_ifid(packet=0x101, kind=258, id=&) = 0 [id=0x40]\n"
              "3 t1 kel_client_ha_role_notify(client=0x101, role=258) = 0\n");
}

TEST_F(keltrace, a_trace_may_go_to_standard_error)
{
    for (const char *setting : {"KELTRACE_TRACE=-", "KELTRACE_TRACE=2"}) {
        const auto result = run({"append"}, {setting});
        EXPECT_EQ(result.output, APPEND + std::string("append = 0\n"));
        EXPECT_EQ(result.errors, "1 t1 kel_append(packet=0x101, buffer=0x102) = 0\n");
    }
}

TEST_F(keltrace, the_ring_keeps_the_last_calls)
{
    const auto result = run({"append", "get_length", "recv"}, {"KELTRACE_RING=2"});
    EXPECT_EQ(result.errors, "keltrace: the last 2 of 3 calls\n"
                             "2 t1 kel_get_length(packet=0x101) = 7\n"
                             "3 t1 kel_recv(client=0x101) = 0x5001\n");
}

TEST_F(keltrace, the_ring_may_go_to_a_file)
{
    const auto result = run({"append"}, {"KELTRACE_RING_FILE=" + path("ring")});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(content(path("ring")), "keltrace: the last 1 of 1 calls\n"
                                     "1 t1 kel_append(packet=0x101, buffer=0x102) = 0\n");
}

TEST_F(keltrace, the_ring_is_written_when_the_program_crashes)
{
    const auto result = run({"append", "crash"}, {"KELTRACE_RING=4"});
    EXPECT_EQ(result.signal, SIGSEGV);
    EXPECT_EQ(result.errors, "keltrace: the last 1 of 1 calls\n"
                             "1 t1 kel_append(packet=0x101, buffer=0x102) = 0\n");
}

// The call in which the library dies is seen in the ring and in the trace.
TEST_F(keltrace, a_call_that_crashes_is_seen)
{
    const auto result =
        run({"get_length", "set_data"}, {"KELTRACE_FAULTS=set_data#1:in4=1", "KELTRACE_RING=1",
                                         "KELTRACE_TRACE=" + path("trace")});
    EXPECT_EQ(result.signal, SIGSEGV);
    EXPECT_EQ(result.errors, "keltrace: the last 1 of 2 calls\n"
                             "2 t1 kel_set_data(packet=0x101, kind=258, offset=259,"
                             " source=<41 42 43 44 45 46 47 48>, length=8) ... not returned\n");
    EXPECT_EQ(content(path("trace")),
              "1 t1 kel_get_length(packet=0x101) = 7\n"
              "2 t1 kel_set_data(packet=0x101, kind=258, offset=259,"
              " source=<41 42 43 44 45 46 47 48>, length=8) ... not returned\n");
}

TEST_F(keltrace, a_hang_is_seen_when_it_is_ended)
{
    tools::process_options options;
    options.arguments = {KELTRACE_SUBJECT, "append", "hang"};
    options.environment = {"LD_PRELOAD=" KELTRACE_LIBRARY, "KELTRACE_RING=2"};
    options.timeout = std::chrono::seconds(1);
    options.timeout_signal = SIGTERM;
    const auto result = tools::run_process(options);
    EXPECT_EQ(result.signal, SIGTERM);
    EXPECT_EQ(result.errors, "keltrace: the last 2 of 2 calls\n"
                             "1 t1 kel_append(packet=0x101, buffer=0x102) = 0\n"
                             "2 t1 select(0, no limit) ... not returned\n");
}

} // namespace

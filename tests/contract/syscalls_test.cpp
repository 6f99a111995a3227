// SPDX-License-Identifier: MIT
//
// What operations ask of the system in the steady state, counted: a hand-over makes no system
// call unless a signal is due, the data path makes none and asks for no memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/common/process.h"

namespace {

// The calls that the program made between its marks. The probes' own threads wait for each other by
// yielding, which does not count.
std::vector<std::string> calls_of(const std::string &program, const std::string &what,
                                  const testing::Matcher<std::string> &expected_output)
{
    const auto result =
        tools::run_process({.arguments = {"strace", "-f", "-qq", "--seccomp-bpf", "-e",
                                          "trace=!sched_yield", program, what},
                            // The leak checker is a tracer itself, and there can be only one.
                            .environment = {"ASAN_OPTIONS=detect_leaks=0"},
                            .timeout = std::chrono::seconds(100)});
    EXPECT_TRUE(result.started) << "strace cannot be run: " << result.errors;
    EXPECT_TRUE(result.exited_with(0)) << "strace cannot trace, or the probe failed:\n"
                                       << result.errors.substr(0, 2000);
    EXPECT_THAT(result.output, expected_output);

    std::vector<std::string> calls;
    int marks = 0;
    for (std::size_t begin = 0; begin < result.errors.size();) {
        const std::size_t end = std::min(result.errors.find('\n', begin), result.errors.size());
        const std::string line = result.errors.substr(begin, end - begin);
        begin = end + 1;
        const bool is_mark = line.find("getppid(") != std::string::npos;
        marks += is_mark;
        if (marks == 1 && !is_mark) calls.push_back(line);
    }
    EXPECT_EQ(marks, 2) << "the tracer did not see the marks";
    return calls;
}

constexpr std::size_t HANDOVERS = 500;

std::vector<std::string> calls_of_handover(const std::string &how)
{
    return calls_of(HANDOVER_PROBE, how, std::to_string(HANDOVERS) + " packets\n");
}

TEST(syscalls, deferred_packets_make_none)
{
    EXPECT_EQ(calls_of_handover("deferred"), std::vector<std::string>());
}

TEST(syscalls, packets_to_a_signalled_client_make_none)
{
    EXPECT_EQ(calls_of_handover("signalled"), std::vector<std::string>());
}

TEST(syscalls, due_signals_to_a_client_without_descriptor_make_none)
{
    EXPECT_EQ(calls_of_handover("unwatched"), std::vector<std::string>());
}

// One makes the descriptor readable and one ends that.
TEST(syscalls, due_signals_make_two_each)
{
    const std::vector<std::string> calls = calls_of_handover("due");
    EXPECT_EQ(calls.size(), 2 * HANDOVERS);
    const auto moves_mark = [](const std::string &call) {
        return call.find("SO_RCVLOWAT") != std::string::npos;
    };
    EXPECT_EQ(std::ranges::count_if(calls, moves_mark), std::ptrdiff_t{2 * HANDOVERS});
}

#ifdef OPERATION_PROBE
class steady_state : public testing::TestWithParam<const char *> {};

TEST_P(steady_state, makes_no_calls_and_no_allocations)
{
    EXPECT_EQ(calls_of(OPERATION_PROBE, GetParam(), "2000 times, 0 allocations\n"),
              std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(operations, steady_state,
                         testing::Values("get_and_free", "send_and_receive", "duplicate",
                                         "append_and_trim", "set_and_get_data", "set_and_get_tlv",
                                         "set_and_get_metadata"));

TEST(syscalls, registrations_make_none)
{
    EXPECT_EQ(calls_of(OPERATION_PROBE, "register_and_deregister",
                       testing::MatchesRegex("2000 times, [0-9]+ allocations\n")),
              std::vector<std::string>());
}
#endif

} // namespace

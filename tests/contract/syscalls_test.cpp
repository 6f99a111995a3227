// SPDX-License-Identifier: MIT
//
// Handing a packet over makes no system call unless a signal is due: a tracer counts.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/common/process.h"

namespace {

// The calls that handover_probe made between its marks.
std::vector<std::string> calls_of_handover(const std::string &how)
{
    const auto result =
        tools::run_process({.arguments = {"strace", "-f", "-qq", HANDOVER_PROBE, how},
                            // The leak checker is a tracer itself, and there can be only one.
                            .environment = {"ASAN_OPTIONS=detect_leaks=0"},
                            .timeout = std::chrono::seconds(100)});
    EXPECT_TRUE(result.started) << "strace cannot be run: " << result.errors;
    EXPECT_TRUE(result.exited_with(0)) << "strace cannot trace, or the probe failed:\n"
                                       << result.errors.substr(0, 2000);
    EXPECT_EQ(result.output, "2000 packets\n");

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

TEST(syscalls, deferred_packets_make_none)
{
    EXPECT_EQ(calls_of_handover("deferred"), std::vector<std::string>());
}

TEST(syscalls, packets_to_a_signalled_client_make_none)
{
    EXPECT_EQ(calls_of_handover("signalled"), std::vector<std::string>());
}

// That the tracer would have seen them.
TEST(syscalls, due_signals_make_some)
{
    EXPECT_GE(calls_of_handover("due").size(), 2000u);
}

} // namespace

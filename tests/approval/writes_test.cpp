// SPDX-License-Identifier: MIT
//
// A verdict line costs one system call when output goes to a pipe or a file: the verdict goes out
// with the next case's name. A tracer counts.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/tavor.h"
#include "tools/common/registry.h"

namespace {

std::size_t count_of_cases(const std::string &suite)
{
    const auto cases = tools::all_cases();
    return static_cast<std::size_t>(
        std::count_if(cases.begin(), cases.end(),
                      [&](const tools::test_case &listed) { return listed.suite == suite; }));
}

std::size_t count_of_writes(const std::vector<std::string> &arguments)
{
    std::vector<std::string> command = {"strace",    "-f", "-qq", "-e", "trace=write,writev",
                                        TAVOR_BINARY};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto result = tools::run_process({.arguments = command});
    EXPECT_TRUE(result.exited_with(0)) << result.errors.substr(0, 2000);
    std::size_t count = 0;
    for (const std::string &line : support::lines_of(result.errors)) {
        count += line.find("write(1, ") != std::string::npos ||
                 line.find("writev(1, ") != std::string::npos;
    }
    return count;
}

TEST(writes, are_one_a_verdict_line_and_one_for_the_end)
{
    for (const std::string suite : {"kel_buf", "kel_metadata", "kel_tlv"}) {
        // The case that names its caller prints in between, into the same buffer.
        EXPECT_EQ(count_of_writes({suite}), count_of_cases(suite) + 1) << suite;
        EXPECT_EQ(count_of_writes({"-t", suite}), count_of_cases(suite) + 1) << suite;
    }
}

TEST(writes, are_few_for_the_list)
{
    constexpr std::size_t BUFFER = 4096;
    const std::size_t size = support::run_tavor({"-g"}).output.size();
    EXPECT_LE(count_of_writes({"-g"}), size / BUFFER + 1);
}

} // namespace

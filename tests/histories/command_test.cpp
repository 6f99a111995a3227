// SPDX-License-Identifier: MIT
//
// kel-explore --threads as its users find it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tools/common/process.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

tools::process_result explore(const std::string &library, const std::vector<std::string> &arguments,
                              const std::vector<std::string> &environment = {})
{
    tools::process_options options;
    options.arguments = {KEL_EXPLORE, "--lib", library, "--threads", "4"};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.environment = environment;
    options.timeout = std::chrono::seconds(100);
    return run_process(options);
}

TEST(threads, of_a_right_library_find_nothing_whatever_it_chose)
{
    const auto run = explore(KEL_REFERENCE_LIBRARY, {"--sequences", "40"},
                             {"KEL_REFERENCE_OPTIONS=unheld_tag_error=22 unarmed_event_error=0"});
    EXPECT_TRUE(run.exited_with(0)) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("40 legal, 0 illegal, 0 undecided"));
}

TEST(threads, find_what_goes_wrong_when_calls_overlap)
{
    const support::scratch_folder scratch;
    const std::string file = scratch.file("threads.jsonl");
    const auto run =
        explore(RACY_LIBRARY, {"--sequences", "30", "--json", file},
                {"RACY_FAULT=loses", std::string("RACY_LIBRARY=") + KEL_REFERENCE_LIBRARY});
    EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    EXPECT_THAT(run.output, AllOf(HasSubstr("finding 1: kel_"), HasSubstr("in no order: expected"),
                                  HasSubstr("the contract: kelapi/")));
    std::ifstream in(file);
    std::string line;
    ASSERT_TRUE(std::getline(in, line));
    const auto first = nlohmann::json::parse(line);
    for (const char *each : {"operation", "n", "expected", "got", "clause", "calls", "sequence"}) {
        EXPECT_TRUE(first.contains(each)) << each;
    }
}

TEST(threads, refuse_what_they_cannot_do)
{
    EXPECT_TRUE(explore(KEL_REFERENCE_LIBRARY, {"--calls", "0"}).exited_with(2));
    EXPECT_TRUE(explore(KEL_REFERENCE_LIBRARY, {"--jobs", "2"}).exited_with(2));
    EXPECT_TRUE(explore(KEL_REFERENCE_LIBRARY, {"--resume", "x"}).exited_with(2));
    EXPECT_TRUE(explore("/dev/null", {"--sequences", "1"}).exited_with(2));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// kel-explore --threads as its users find it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tools/common/process.h"

namespace {

namespace fs = std::filesystem;
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

class kept_threads : public testing::Test {
protected:
    std::string content(const std::string &name) const
    {
        std::ifstream file(folder / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const support::scratch_folder scratch;
    const fs::path folder = scratch.path();
};

TEST_F(kept_threads, are_made_first_the_next_time)
{
    const std::vector<std::string> environment = {
        "RACY_FAULT=crashes", std::string("RACY_LIBRARY=") + KEL_REFERENCE_LIBRARY};
    const auto first = explore(
        RACY_LIBRARY, {"--sequences", "40", "--resume", folder / "c", "-o", folder}, environment);
    EXPECT_TRUE(first.exited_with(1)) << first.output << first.errors;
    EXPECT_THAT(content("1-threads-send.txt"), HasSubstr("crash SIGABRT"));
    const std::string kept = content("c/histories.txt");
    EXPECT_THAT(kept, testing::ContainsRegex("^1 [0-9]+ 4 8\n"));
    const auto again =
        explore(KEL_REFERENCE_LIBRARY, {"--sequences", "1", "--resume", folder / "c"});
    const auto count = 1 + std::ranges::count(kept, '\n');
    EXPECT_THAT(again.output, HasSubstr(std::to_string(count) + " legal, 0 illegal"));
}

// A fault that needs no second thread.
TEST_F(kept_threads, that_one_thread_shows_become_a_program)
{
    const auto run = explore(KEL_REFERENCE_LIBRARY, {"--sequences", "40", "-o", folder},
                             {"KEL_REFERENCE_FAULTS=recv#1+:newest"});
    EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    const bool has_program =
        std::ranges::any_of(fs::directory_iterator(folder),
                            [](const auto &each) { return each.path().extension() == ".c"; });
    EXPECT_TRUE(has_program);
}

TEST_F(kept_threads, need_numbers)
{
    std::ofstream(folder / "histories.txt") << "1 2 99 8\n";
    EXPECT_TRUE(
        explore(KEL_REFERENCE_LIBRARY, {"--sequences", "1", "--resume", folder}).exited_with(2));
}

TEST(threads, refuse_what_they_cannot_do)
{
    EXPECT_TRUE(explore(KEL_REFERENCE_LIBRARY, {"--calls", "0"}).exited_with(2));
    EXPECT_TRUE(explore(KEL_REFERENCE_LIBRARY, {"--jobs", "2"}).exited_with(2));
    EXPECT_TRUE(explore("/dev/null", {"--sequences", "1"}).exited_with(2));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// kel-explore as its users find it: what it finds in wrong libraries, that it finds nothing in
// right ones, and what it says and writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tests/support/stopping.h"
#include "tools/common/process.h"

namespace {

using testing::HasSubstr;
using testing::Not;

tools::process_result explore(const std::vector<std::string> &arguments,
                              const std::vector<std::string> &environment = {})
{
    tools::process_options options;
    options.arguments = {KEL_EXPLORE, "--jobs", "1"};
    if (std::ranges::find(arguments, "--lib") == arguments.end()) {
        options.arguments.insert(options.arguments.end(), {"--lib", KEL_REFERENCE_LIBRARY});
    }
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.environment = environment;
    options.timeout = std::chrono::seconds(100);
    return run_process(options);
}

class fault : public testing::TestWithParam<const char *> {};

TEST_P(fault, is_found)
{
    const auto run = explore({"--sequences", "6000", "--fail-fast"},
                             {std::string("KEL_REFERENCE_FAULTS=") + GetParam()});
    EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("finding 1: kel_"));
}

INSTANTIATE_TEST_SUITE_P(explore, fault,
                         testing::Values("trim_head#1+:keeps_offsets",
                                         "register_tag#1+:accepts_zero", "send#1+:keeps_holder",
                                         "free_tag#1+:stays_registered",
                                         "event_wait#1+:reports_again"));

class choice : public testing::TestWithParam<const char *> {};

TEST_P(choice, is_no_finding_and_is_told)
{
    const auto run =
        explore({"--sequences", "600"}, {std::string("KEL_REFERENCE_OPTIONS=") + GetParam()});
    EXPECT_TRUE(run.exited_with(0)) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(explore, choice,
                         testing::Values("piece_size=5462", "event_group_flags=2",
                                         "threshold_governs=1", "tlv_size_max=237",
                                         "data_kinds=1 own_tag_error=22 stale_client_error=1"));

// Its time is short, so that whoever looked at the clock alone would tell of hangs.
TEST(explore, finds_nothing_on_a_busy_machine)
{
    const support::stopping now_and_then(std::chrono::milliseconds(200));
    const auto run =
        explore({"--sequences", "40", "--timeout", "0.05", "--lib", PLANTED_LIBRARY},
                {"RACY_FAULT=is_slow", std::string("RACY_LIBRARY=") + KEL_REFERENCE_LIBRARY});
    EXPECT_TRUE(run.exited_with(0)) << run.output << run.errors;
    EXPECT_THAT(run.output, Not(HasSubstr("did not come again")));
}

tools::process_result explore_wrong(const char *fault)
{
    return explore(
        {"--sequences", "3000", "--timeout", "0.1", "--fail-fast", "--lib", PLANTED_LIBRARY},
        {std::string("RACY_FAULT=") + fault, std::string("RACY_LIBRARY=") + KEL_REFERENCE_LIBRARY});
}

TEST(explore, finds_a_library_that_changes_its_mind)
{
    const auto run = explore_wrong("changes_its_mind");
    EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("kel_deregister_tag, call 1 of it: expected ENOENT"));
    EXPECT_THAT(run.output, HasSubstr("got EINVAL"));
}

TEST(explore, finds_a_call_that_does_not_return)
{
    const auto run = explore_wrong("stops");
    EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("kel_set_cause, call 1 of it: expected 0, got hang"));
}

// All but the time that it took.
std::vector<std::string> lines_without_time(const std::string &path)
{
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        auto object = nlohmann::ordered_json::parse(line);
        object.erase("seconds");
        lines.push_back(object.dump());
    }
    return lines;
}

TEST(explore, makes_the_same_again)
{
    const support::scratch_folder scratch;
    const std::string path = scratch.file("again");
    for (const char *number : {"1", "2"}) {
        const auto run = explore({"--sequences", "1500", "--seed", "3", "--json", path + number},
                                 {"KEL_REFERENCE_FAULTS=free_packet#1+:wrong_error"});
        EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    }
    const auto lines = lines_without_time(path + "1");
    EXPECT_EQ(lines, lines_without_time(path + "2"));
    ASSERT_GE(lines.size(), 2U);
    const auto finding = nlohmann::json::parse(lines.front());
    for (const char *key : {"operation", "n", "expected", "got", "clause", "calls", "sequence"}) {
        EXPECT_TRUE(finding.contains(key)) << key;
    }
    const auto summary = nlohmann::json::parse(lines.back());
    EXPECT_EQ(summary["sequences"], 1500);
}

TEST(explore, keeps_findings_and_makes_them_first)
{
    const support::scratch_folder scratch;
    const std::string folder = scratch.path();
    const std::vector<std::string> fault = {"KEL_REFERENCE_FAULTS=free_packet#1+:wrong_error"};
    const auto first = explore({"--sequences", "1500", "--resume", folder + "/corpus", "-o",
                                folder + "/found", "--fail-fast"},
                               fault);
    EXPECT_TRUE(first.exited_with(1)) << first.output << first.errors;
    EXPECT_FALSE(std::filesystem::is_empty(folder + "/found"));
    const auto again =
        explore({"--sequences", "1", "--resume", folder + "/corpus", "--fail-fast"}, fault);
    EXPECT_TRUE(again.exited_with(1)) << again.output << again.errors;
}

TEST(explore, refuses_what_is_no_library)
{
    tools::process_options options;
    options.arguments = {KEL_EXPLORE, "--lib", "/nonexistent", "--sequences", "1"};
    EXPECT_TRUE(run_process(options).exited_with(2));
    EXPECT_TRUE(explore({"--sequences", "1"}, {"KEL_REFERENCE_LIST=faults"}).exited_with(2));
}

} // namespace

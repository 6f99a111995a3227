// SPDX-License-Identifier: MIT
//
// tavor-more lists its cases as tavor does, and each passes on every legal library and leaves
// nothing behind.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tests/support/tavor.h"
#include "tools/campaign/experiment.h"
#include "tools/common/registry.h"
#include "tools/sequence/oracle.h"

namespace {

using namespace std::chrono_literals;

std::span<const tools::test_case> cases()
{
    return tools::cases_of(tools::TAVOR_MORE);
}

tools::process_result run_more(const std::vector<std::string> &arguments,
                               const std::string &library_options = "")
{
    std::vector<std::string> command = {TAVOR_MORE_BINARY};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return tools::run_process({.arguments = command,
                               .environment = {"KEL_REFERENCE_OPTIONS=" + library_options},
                               .timeout = 60s});
}

TEST(more, lists_its_cases_in_table_order)
{
    const auto guide = run_more({"-g"});
    EXPECT_TRUE(guide.exited_with(0));
    std::vector<std::string> expected;
    for (const tools::test_case &each : cases()) {
        expected.push_back(std::string(each.name) + " -> [" + std::to_string(expected.size()) +
                           "] ");
    }
    EXPECT_EQ(support::lines_of(guide.output), expected);
}

TEST(more, usage_names_the_program)
{
    const auto usage = run_more({"-h"});
    EXPECT_TRUE(usage.exited_with(0));
    EXPECT_EQ(usage.output.substr(0, usage.output.find(" [")), "Usage: tavor-more");
}

// Nothing of the library's, no memory, threads or descriptors; nothing is left to a client's
// deregistration either.
TEST(more, cases_leave_nothing)
{
    campaign::setting where;
    where.tavor = TAVOR_MORE_BINARY;
    where.shim = KELTRACE_LIBRARY;
    where.timeout = 60s;
    where.has_reference = true;
    for (const tools::test_case &each : cases()) {
        const campaign::observation seen = observe(where, {std::string(each.name), ""});
        EXPECT_EQ(seen.judged, campaign::verdict::pass) << each.name << ": " << seen.message;
        EXPECT_EQ(seen.left, std::vector<std::string>{}) << each.name;
    }
}

// Each open choice taken the other way, and all at once.
std::vector<std::string> legal_libraries(const std::vector<sequence::option> &choices)
{
    std::vector<std::string> libraries = {""};
    std::string all_first;
    std::string all_last;
    for (const sequence::option &choice : choices) {
        for (const std::string &value : choice.others) {
            libraries.push_back(choice.name + "=" + value);
        }
        all_first += choice.name + "=" + choice.others.front() + " ";
        all_last += choice.name + "=" + choice.others.back() + " ";
    }
    libraries.push_back(all_first);
    libraries.push_back(all_last);
    return libraries;
}

// Half of the open choices taken another way.
std::string random_library(const std::vector<sequence::option> &choices, std::mt19937 &random)
{
    std::string library;
    for (const sequence::option &choice : choices) {
        const std::size_t pick = random() % (2 * choice.others.size());
        if (pick < choice.others.size()) library += choice.name + "=" + choice.others[pick] + " ";
    }
    return library;
}

TEST(more, accepts_every_legal_library)
{
    const std::string number = std::to_string(cases().size());
    const auto choices = sequence::options_of(KEL_REFERENCE_LIBRARY);
    EXPECT_GT(choices.size(), 40u);
    std::vector<std::string> libraries = legal_libraries(choices);
    std::mt19937 random(22);
    for (int mixture = 0; mixture < 100; mixture++) {
        libraries.push_back(random_library(choices, random));
    }
    for (const std::string &library : libraries) {
        const auto run = run_more({}, library);
        EXPECT_TRUE(run.exited_with(0)) << library << ": " << run.errors;
        EXPECT_NE(run.output.find("Number of tests passed:  " + number +
                                  "\n         Number of tests failed:   0\nCongratulations!\n"),
                  std::string::npos)
            << library << '\n'
            << run.output;
    }
}

// With its state in a folder of its own.
class companion : public testing::Test {
protected:
    tools::process_result tavor_run(std::vector<std::string> arguments,
                                    std::vector<std::string> environment = {}) const
    {
        arguments.insert(arguments.begin(), TAVOR_RUN);
        arguments.insert(arguments.end(), {"--tavor", TAVOR_MORE_BINARY});
        environment.push_back("XDG_STATE_HOME=" + folder.string());
        return tools::run_process(
            {.arguments = arguments, .environment = environment, .timeout = 60s});
    }

    const support::scratch_folder scratch;
    const std::filesystem::path folder = scratch.path();
};

TEST_F(companion, runs_all_cases)
{
    const auto run = tavor_run({"run"});
    EXPECT_TRUE(run.exited_with(0)) << run.output << run.errors;
    EXPECT_NE(run.output.find(std::to_string(cases().size()) + " passed"), std::string::npos)
        << run.output;
}

TEST_F(companion, names_the_check_that_failed)
{
    const auto run = tavor_run({"kel_more_dyn_tag", "--trace", "0"},
                               {"KEL_REFERENCE_FAULTS=free_tag#1+:stays_registered"});
    EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    EXPECT_NE(run.output.find("the freed tag is still the client's"), std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("more/dyn_tag.cpp:"), std::string::npos) << run.output;
}

TEST_F(companion, lists_its_cases)
{
    const auto list = tavor_run({"list", "0"});
    EXPECT_EQ(list.output,
              "0\t" + std::string(cases()[0].suite) + "\t" + std::string(cases()[0].name) + "\n");
}

TEST_F(companion, judges_its_log)
{
    const std::filesystem::path log = folder / "log";
    std::ofstream(log) << run_more({}).output;
    EXPECT_TRUE(tavor_run({"report", log}).exited_with(0));
}

TEST_F(companion, knows_no_case_of_tavor)
{
    const auto refused = tavor_run({"kel_buf_append"});
    EXPECT_TRUE(refused.exited_with(3));
    EXPECT_NE(refused.errors.find("kel_buf_append"), std::string::npos) << refused.errors;
}

} // namespace

// SPDX-License-Identifier: MIT
//
// Selection of cases and the run modes.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/tavor.h"

namespace {

using support::lines_of;
using support::run_tavor;

// The names of the verdict lines, cut as they are printed.
std::vector<std::string> names_in(const std::string &output)
{
    std::vector<std::string> names;
    for (const std::string &line : lines_of(output)) {
        if (line.starts_with("kel_")) {
            names.push_back(line.substr(0, line.find(' ')));
        }
    }
    return names;
}

std::vector<std::string> all_names()
{
    std::vector<std::string> names;
    for (const std::string &line : lines_of(run_tavor({"-g"}).output)) {
        names.push_back(line.substr(0, line.find(' ')));
    }
    return names;
}

// What the summary says was run.
std::string tests_run(const std::string &output)
{
    const std::string words = "Number of tests run:    ";
    const std::size_t at = output.find(words);
    return at == std::string::npos ? "" : output.substr(at + words.size(), 3);
}

const std::vector<std::string> REG_CLIENT = {
    "kel_reg_client_null_client_handle",        "kel_reg_client_reg_dereg_client",
    "kel_reg_client_reg_dereg_client_null_nam", "kel_reg_client_getfd_client",
    "kel_reg_client_getfd_null_client",         "kel_reg_client_reg_dereg_mul_client",
};

TEST(selection, order_of_names_does_not_matter)
{
    const auto result = run_tavor({"kel_reg_tag_invalid_tag", "kel_reg_client"});
    std::vector<std::string> expected = REG_CLIENT;
    expected.push_back("kel_reg_tag_invalid_tag");
    EXPECT_EQ(names_in(result.output), expected);
}

TEST(selection, suite_and_one_of_its_tests_run_the_suite_once)
{
    const auto result = run_tavor({"kel_reg_client", "kel_reg_client_getfd_client"});
    EXPECT_EQ(names_in(result.output), REG_CLIENT);
}

TEST(selection, suite_name_is_no_prefix)
{
    const auto result = run_tavor({"kel_send"});
    EXPECT_EQ(names_in(result.output),
              (std::vector<std::string>{"kel_send_null_client_send", "kel_send_null_buf_send",
                                        "kel_send_zero_byte_buf_send"}));
}

TEST(selection, unknown_names_are_ignored)
{
    const auto result = run_tavor({"no_such_test", "KEL_REG_CLIENT"});
    EXPECT_EQ(names_in(result.output), std::vector<std::string>{});
    EXPECT_EQ(tests_run(result.output), "  0");
    EXPECT_NE(result.output.find("Congratulations!"), std::string::npos);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(result.exited_with(0));
}

TEST(selection, options_may_follow_names)
{
    const auto result = run_tavor({"kel_reg_client_getfd_client", "-t"});
    EXPECT_EQ(lines_of(result.output).size(), 1u);
    const auto posix =
        run_tavor({"kel_reg_client_getfd_client", "-t"}, {.environment = {"POSIXLY_CORRECT=1"}});
    EXPECT_EQ(tests_run(posix.output), "  1") << "there -t is a name that matches nothing";
}

TEST(option_order, guide_and_help_act_where_they_stand)
{
    const std::string guide = run_tavor({"-g"}).output;
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"-g", "-x"}, {"-g", "-h"}, {"-t", "-g"}, {"-f", "-g", "-s"}}) {
        const auto result = run_tavor(arguments);
        EXPECT_EQ(result.output, guide) << arguments[0] << arguments[1];
        EXPECT_EQ(result.errors, "");
        EXPECT_TRUE(result.exited_with(0));
    }
    EXPECT_TRUE(run_tavor({"-x", "-g"}).exited_with(1));
    EXPECT_TRUE(run_tavor({"-h", "-x"}).exited_with(0));
}

TEST(modes, stop_after_the_first_failure)
{
    const auto result = run_tavor({"-f", "kel_reg_client"}, {.faults = "getfd#1:result=-1"});
    EXPECT_EQ(names_in(result.output),
              std::vector<std::string>(REG_CLIENT.begin(), REG_CLIENT.begin() + 4));
    EXPECT_TRUE(result.exited_with(0));
    const auto all = run_tavor({"kel_reg_client"}, {.faults = "getfd#1:result=-1"});
    EXPECT_EQ(names_in(all.output), REG_CLIENT) << "without -f the run goes on";
}

TEST(modes, stop_flag_without_a_failure_runs_everything)
{
    const auto result = run_tavor({"-f", "kel_reg_client"});
    EXPECT_EQ(names_in(result.output), REG_CLIENT);
}

TEST(modes, loop_runs_until_interrupted)
{
    const auto result =
        run_tavor({"-l", "kel_reg_client"}, {.stop_after = "PASS\n", .stop_after_count = 14});
    const std::vector<std::string> names = names_in(result.output);
    ASSERT_GE(names.size(), 14u);
    for (std::size_t i = 0; i < names.size(); i++) {
        EXPECT_EQ(names[i], REG_CLIENT[i % REG_CLIENT.size()]);
    }
    EXPECT_EQ(std::stoul(tests_run(result.output)), names.size());
    EXPECT_TRUE(result.output.ends_with("Congratulations!\n"));
    EXPECT_TRUE(result.exited_with(0));
}

TEST(modes, loop_ends_at_the_first_failure_when_told)
{
    const auto result = run_tavor({"-l", "-f", "kel_reg_client"}, {.faults = "getfd#4:result=7"});
    // The third pass's registered client: getfd is called twice a pass.
    EXPECT_EQ(names_in(result.output).size(), REG_CLIENT.size() + 5);
    EXPECT_TRUE(result.exited_with(0));
}

// The rows that an unseeded random draws, in order, of which some are enabled.
std::vector<std::string> drawn_names(const std::string &suite, std::size_t count)
{
    const std::vector<std::string> names = all_names();
    std::vector<std::string> drawn;
    srandom(1); // the seed of a program that sets none
    while (drawn.size() < count) {
        const std::string &name = names[static_cast<std::size_t>(random()) % names.size()];
        if (name.starts_with(suite + "_")) {
            drawn.push_back(name.substr(0, 40));
        }
    }
    return drawn;
}

void expect_random_run(const std::vector<std::string> &arguments)
{
    const auto result = run_tavor(arguments, {.stop_after = "PASS\n", .stop_after_count = 30});
    const std::vector<std::string> names = names_in(result.output);
    ASSERT_GE(names.size(), 30u);
    EXPECT_EQ(names, drawn_names("kel_reg_tag", names.size()));
    EXPECT_TRUE(result.output.ends_with("Congratulations!\n"));
    EXPECT_TRUE(result.exited_with(0));
}

TEST(modes, random_order_is_the_same_in_every_run)
{
    expect_random_run({"-r", "kel_reg_tag"});
}

TEST(modes, random_wins_over_loop)
{
    expect_random_run({"-r", "-l", "kel_reg_tag"});
}

TEST(modes, interrupt_lets_the_running_case_complete)
{
    // Two cases of a second each: the first is interrupted in its wait.
    const auto result = run_tavor({"kel_event_wait_interrupt", "kel_reg_tag"},
                                  {.stop_after = "kel_event_wait_interrupt"});
    EXPECT_EQ(names_in(result.output), std::vector<std::string>{"kel_event_wait_interrupt"});
    EXPECT_NE(result.output.find(support::padded("kel_event_wait_interrupt", 40) + " PASS\n"),
              std::string::npos)
        << result.output;
    EXPECT_EQ(tests_run(result.output), "  1");
    EXPECT_TRUE(result.exited_with(0));
}

// The case sleeps five times, of which the first is left.
TEST(modes, interrupt_does_not_shorten_a_wait)
{
    const auto result = run_tavor({"kel_bufgroup_get_bufcount_bytag"},
                                  {.faults = "sleep#2+:lost", .stop_after = "bytag"});
    EXPECT_EQ(names_in(result.output), std::vector<std::string>{"kel_bufgroup_get_bufcount_bytag"});
    EXPECT_NE(result.output.find(" PASS\n"), std::string::npos) << result.output;
    EXPECT_GE(result.wall_time, std::chrono::seconds(2));
    EXPECT_TRUE(result.exited_with(0));
}

// The helper's first clear comes before the wait.
TEST(modes, a_main_thread_held_up_before_its_wait_is_interrupted)
{
    const auto result =
        run_tavor({"kel_event_wait_interrupt"}, {.faults = "event_wait#1:delay=1500"});
    EXPECT_NE(result.output.find(" PASS\n"), std::string::npos) << result.output;
}

} // namespace

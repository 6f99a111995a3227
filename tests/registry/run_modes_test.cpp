// SPDX-License-Identifier: MIT
//
// When the run modes look at a request to stop: after each row, so that the first is run whatever
// came before it. The runner is linked with a table of this test's own.
#include "runner/tests.h" // first: it undefines TEST

#include <gtest/gtest.h>

#include "runner/run.h"

namespace {

int calls;

const char *passing_case()
{
    calls++;
    return nullptr;
}

const char *failing_case()
{
    calls++;
    return "failed";
}

} // namespace

test_entry all_tests[test_count] = {};
uint32_t number_of_tests = 3;
int32_t skip_test = 0;
int32_t alt_output_mode = 0;

void enable_test(uint32_t row)
{
    all_tests[row].enabled = 1;
}

namespace {

class run_modes : public testing::TestWithParam<void (*)(int)> {
protected:
    run_modes()
    {
        calls = 0;
        results = {};
        for (uint32_t row = 0; row < number_of_tests; row++) {
            all_tests[row] = {1, "kel_case", "kel", passing_case};
        }
    }
};

TEST_P(run_modes, run_the_first_case_before_a_stop)
{
    results.stop_requested = 1;
    GetParam()(1);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(results.tests_run, 1u);
}

TEST_P(run_modes, stop_after_the_first_failure)
{
    for (uint32_t row = 0; row < number_of_tests; row++) all_tests[row].function = failing_case;
    GetParam()(0);
    EXPECT_EQ(calls, 1);
}

INSTANTIATE_TEST_SUITE_P(all, run_modes,
                         testing::Values(run_tests_once, run_tests_loop, run_tests_random));

TEST_F(run_modes, once_ends_with_the_table)
{
    run_tests_once(1);
    EXPECT_EQ(calls, 3);
}

} // namespace

// SPDX-License-Identifier: MIT
//
// Selection of cases, the verdict lines and the run modes.
#include "runner/run.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "runner/tests.h"

test_results results;

namespace {

bool is_named(const test_entry &entry, const char *name)
{
    return strcmp(entry.suite_name, name) == 0 || strcmp(entry.test_name, name) == 0;
}

// Asked after each row, never before the first.
bool run_is_over(int continue_flag)
{
    return (results.tests_failed != 0 && !continue_flag) || results.stop_requested;
}

} // namespace

void enable_tests(int count, char *const names[])
{
    for (uint32_t row = 0; row < number_of_tests; row++) {
        if (count == 0) {
            enable_test(row);
        }
        for (int i = 0; i < count; i++) {
            if (is_named(all_tests[row], names[i])) {
                enable_test(row);
            }
        }
    }
}

void run_test(uint32_t row)
{
    const test_entry &entry = all_tests[row];

    if (!entry.enabled) {
        return;
    }
    printf("%-40.40s ", entry.test_name);
    if (alt_output_mode) {
        printf(" 0 ");
    }
    // The name of the running case shows, even if it never returns.
    fflush(stdout);
    skip_test = 0;
    const char *message = entry.function();
    if (message) {
        printf("FAIL : %-83.83s\n", message);
        results.tests_failed++;
    } else {
        puts(skip_test ? "IGNORE" : "PASS");
        results.tests_passed++;
    }
    results.tests_run++;
}

void run_single_test(int number)
{
    if (number < 0 || static_cast<uint32_t>(number) >= number_of_tests) {
        printf("Invalid test number %d \n", number);
        return;
    }
    const test_entry &entry = all_tests[number];
    printf("Executing test Suite: %s, Test Case %s", entry.suite_name, entry.test_name);
    fflush(stdout);
    const char *message = entry.function();
    if (message) {
        printf("FAILED : %s\n", message);
    } else {
        puts("PASSED ");
    }
}

void run_tests_once(int continue_flag)
{
    for (uint32_t row = 0; row < number_of_tests; row++) {
        run_test(row);
        if (run_is_over(continue_flag)) return;
    }
}

void run_tests_loop(int continue_flag)
{
    uint32_t row = 0;

    do {
        run_test(row);
        row = (row + 1) % number_of_tests;
    } while (!run_is_over(continue_flag));
}

void run_tests_random(int continue_flag)
{
    // Never seeded, so that every random run can be repeated.
    do {
        run_test(static_cast<uint32_t>(random()) % number_of_tests);
    } while (!run_is_over(continue_flag));
}

void sig_handler(int)
{
    results.stop_requested = 1;
}

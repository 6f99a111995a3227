// SPDX-License-Identifier: MIT
//
// Selecting cases, running them, and what is printed about it, all on standard output.
// Everything here is called from the main thread.
#pragma once

#include <stdint.h>

struct test_results {
    uint32_t tests_run;
    uint32_t tests_passed; // ignored cases included
    uint32_t tests_failed;
    volatile uint32_t stop_requested; // set by the handler of SIGINT
};

extern test_results results;

void print_usage();

// The line of column titles and its rule.
void print_header();

// Every row, enabled or not, with its number.
void test_guide();

// Enables the rows whose suite or test name is among `names`; without names every row. A
// name that matches nothing is ignored.
void enable_tests(int count, char *const names[]);

// Runs the row if it is enabled, prints its verdict line and counts it.
void run_test(uint32_t row);

// Runs one row whether or not it is enabled. It is not counted, and skip_test is left
// alone, so that an ignored case shows as passed.
void run_single_test(int number);

// The three modes end after the case during which SIGINT arrived, and, unless
// `continue_flag`, after the first case that fails. The first ends after the last row, too.
void run_tests_once(int continue_flag);
void run_tests_loop(int continue_flag);
void run_tests_random(int continue_flag);

void print_results();

// Handler of SIGINT: lets the running case complete.
void sig_handler(int signal_number);

// SPDX-License-Identifier: MIT
//
// The texts of the program's frame: usage, header, test guide and summary.
#include <stdio.h>

#include "runner/run.h"
#include "runner/tests.h"

#ifndef TAVOR_PROGRAM
#define TAVOR_PROGRAM "tavor"
#endif

const char *usage = "Usage: " TAVOR_PROGRAM " [-f] [-l] [-r] suitelist\n"
                    "       -f Stop after first failed test.\n"
                    "       -l Run all tests in a loop.\n"
                    "       -r Run all tests in a random order.\n"
                    "suitelist The list of test suites to run.\n"
                    "          An empty list means all test suites\n"
                    "       -t Alternate output format (for ZEB integration)\n";

namespace {

constexpr int HEADER_RULE_LENGTH = 75;
constexpr int SUMMARY_RULE_LENGTH = 74; // sic: one less

void print_rule(int length)
{
    for (int column = 0; column < length; column++) {
        putchar('=');
    }
    putchar('\n');
}

} // namespace

void print_usage()
{
    printf("%s", usage);
}

void print_header()
{
    printf("%-41s%-9s%s\n", "Name", "Verdict", "Info");
    print_rule(HEADER_RULE_LENGTH);
}

void test_guide()
{
    for (uint32_t row = 0; row < number_of_tests; row++) {
        printf("%s -> [%u] \n", all_tests[row].test_name, row);
    }
}

void print_results()
{
    if (alt_output_mode) {
        return;
    }
    print_rule(SUMMARY_RULE_LENGTH);
    printf("Summary: Number of tests run:    %3u\n", results.tests_run);
    printf("         Number of tests passed: %3u\n", results.tests_passed);
    printf("         Number of tests failed: %3u\n", results.tests_failed);
    if (results.tests_failed == 0) {
        puts("Congratulations!");
    }
}

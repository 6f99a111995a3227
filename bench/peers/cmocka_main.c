/* SPDX-License-Identifier: MIT
 *
 * Runs the cmocka peer: all suites, or the case that is named; -g lists the cases. */
#include <setjmp.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <cmocka.h>

#define SUITE(name) int run_##name(void);
#include "suites.def"
#undef SUITE

static void list_cases(void)
{
#define TEST(suite, name) puts(#suite "_" #name);
#include "runner/test_list.def"
#undef TEST
}

int main(int argc, char *argv[])
{
    int failures = 0;

    if (argc > 1 && strcmp(argv[1], "-g") == 0) {
        list_cases();
        return 0;
    }
    if (argc > 1) cmocka_set_test_filter(argv[1]);
#define SUITE(name) failures += run_##name();
#include "suites.def"
#undef SUITE
    return failures != 0;
}

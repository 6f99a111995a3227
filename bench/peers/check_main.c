/* SPDX-License-Identifier: MIT
 *
 * Runs the Check peer without its fork for each case: all suites, or the case that is named; -g
 * lists the cases. */
#include <stdio.h>
#include <string.h>

#include "check_suite.h"

static void list_cases(void)
{
#define TEST(suite, name) puts(#suite "_" #name);
#include "runner/test_list.def"
#undef TEST
}

int main(int argc, char *argv[])
{
    if (argc > 1 && strcmp(argv[1], "-g") == 0) {
        list_cases();
        return 0;
    }
    SRunner *runner = srunner_create(NULL);
#define SUITE(name) srunner_add_suite(runner, name##_suite());
#include "suites.def"
#undef SUITE
    srunner_set_fork_status(runner, CK_NOFORK);
    srunner_run(runner, NULL, argc > 1 ? argv[1] : NULL, CK_VERBOSE);
    const int failures = srunner_ntests_failed(runner);
    srunner_free(runner);
    return failures != 0;
}

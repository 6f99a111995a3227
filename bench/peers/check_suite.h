/* SPDX-License-Identifier: MIT
 *
 * Check selects whole "test cases", so each case is one with a single test. */
#pragma once

#include <check.h>

#define ADD_CASE(suite, function)                                                                  \
    do {                                                                                           \
        TCase *single = tcase_create(#function);                                                   \
        tcase_add_test(single, function);                                                          \
        suite_add_tcase(suite, single);                                                            \
    } while (0)

#define SUITE(name) Suite *name##_suite(void);
#include "suites.def"
#undef SUITE

// SPDX-License-Identifier: MIT
//
// The registry of test cases and what cases and runner share: the registry row, the forms
// that define a case, and the globals through which a case reports.
//
// A case is listed once in its program's list and defined with TEST_CASE(suite, name). The
// compiler refuses a case that is defined but not listed, listed twice, or defined out of
// table order; the linker one that is listed but not defined.
#pragma once

#include <stdint.h>

// The list that the program is built from: tavor's own, unless the build names another.
#ifndef TAVOR_TEST_LIST
#define TAVOR_TEST_LIST "runner/test_list.def"
#define TAVOR_TEST_COUNT 458
#endif

// Null: passed, or ignored when skip_test is set. Else the reason of the failure, which is
// never freed.
using test_function = const char *(*)();

struct test_entry {
    uint32_t enabled;      // 1: selected for this run
    const char *test_name; // suite name + "_" + case name
    const char *suite_name;
    test_function function;
};

static_assert(sizeof(void *) != 4 || sizeof(test_entry) == 16, "four words on 32-bit targets");

// Numbers of the rows: row_<suite>_<case>.
enum test_row : uint32_t {
#define TEST(suite, name) row_##suite##_##name,
#include TAVOR_TEST_LIST
#undef TEST
    test_count
};

#ifdef TAVOR_TEST_COUNT
static_assert(test_count == TAVOR_TEST_COUNT, "the registry's size is part of the interface");
#endif

#define TEST(suite, name) const char *suite##name();
#include TAVOR_TEST_LIST
#undef TEST

// A row's number, its index, is part of the interface. Only `enabled` is ever written.
extern test_entry all_tests[test_count];
extern uint32_t number_of_tests;

// Where a located message is formatted; the next one overwrites it.
constexpr uint32_t ERROR_MSG_SIZE = 128;
extern char error_msg[ERROR_MSG_SIZE];

// The message last published by a case; null when its last check passed.
extern const char *api_msg;

// Set to 1 by a case that declines to run; reset by the runner before each case.
extern int32_t skip_test;

// 1 while the runner prints the ZEB format.
extern int32_t alt_output_mode;

// 1 makes the receiving thread of the event suite print what it finds wrong.
extern int32_t recv_debug;

// The usage text.
extern const char *usage;

// Build identification, filled by the build, found by searching the binary for the markers.
constexpr uint32_t BUILD_RECORD_SIZE = 200;
extern char tgt_data[BUILD_RECORD_SIZE];   // "@@TGT@@" and the build target's path
extern char tree_loc[BUILD_RECORD_SIZE];   // "@@TREE@@" and the location of the sources
extern char image_name[BUILD_RECORD_SIZE]; // "@@IMAGE@@" and the image's name

// Selects a row. `row` must be a valid number.
void enable_test(uint32_t row);

// Is written once in a file, before its cases, and names the first of them.
#define TEST_FILE(suite, name)                                                                     \
    namespace {                                                                                    \
    constexpr uint32_t first_row_of_file = row_##suite##_##name;                                   \
    constexpr uint32_t counter_of_file = __COUNTER__ + 1;                                          \
    }

// Defines a case without a frame: fixtures/frame.h has the form that cases have.
#define TEST_CASE(suite, name)                                                                     \
    static_assert(row_##suite##_##name == first_row_of_file + __COUNTER__ - counter_of_file,       \
                  "cases are defined in table order");                                             \
    const char *suite##name()

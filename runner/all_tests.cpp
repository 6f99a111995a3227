// SPDX-License-Identifier: MIT
//
// The registry's rows and the globals that cases and runner share.
#include "runner/tests.h"

test_entry all_tests[test_count] = {
#define TEST(suite, name) {0, #suite "_" #name, #suite, suite##name},
#include TAVOR_TEST_LIST
#undef TEST
};

uint32_t number_of_tests = test_count;

char error_msg[ERROR_MSG_SIZE];
const char *api_msg = nullptr;
int32_t skip_test = 0;
int32_t alt_output_mode = 0;
int32_t recv_debug = 0;

void enable_test(uint32_t row)
{
    all_tests[row].enabled = 1;
}

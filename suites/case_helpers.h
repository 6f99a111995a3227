// SPDX-License-Identifier: MIT
//
// What cases of several suites need beside the fixtures.
#pragma once

#include <stdint.h>

#include "runner/tests.h"

// An error variable before a call that must store into it: no call stores this value.
constexpr uint32_t ERROR_NOT_STORED = 0xffffffff;

// The whole of a case that always declines to run.
inline const char *skip_case()
{
    skip_test = 1;
    return nullptr;
}

// SPDX-License-Identifier: MIT
//
// A table of cases without a framework: names and function pointers.
#pragma once

struct table_row {
    const char *name; // null behind the last row of a suite
    const char *(*function)();
};

#define SUITE(name) extern const table_row name##_rows[];
#include "suites.def"
#undef SUITE

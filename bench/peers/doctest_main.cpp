// SPDX-License-Identifier: MIT
//
// doctest's own code and main function.
#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

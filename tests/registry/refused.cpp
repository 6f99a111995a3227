// SPDX-License-Identifier: MIT
//
// Definitions of cases that the compiler must refuse, chosen by a macro; without any they
// are right.
#include "runner/tests.h"

TEST_FILE(kel_buf, get_tag_null_buf)

#ifdef OUT_OF_ORDER
TEST_CASE(kel_buf, get_bufmem_start)
{
    return nullptr;
}
#endif

TEST_CASE(kel_buf, get_tag_null_buf)
{
    return nullptr;
}

#ifndef OUT_OF_ORDER
TEST_CASE(kel_buf, get_bufmem_start)
{
    return nullptr;
}
#endif

#ifdef DEFINED_TWICE
TEST_CASE(kel_buf, get_bufmem_start)
{
    return nullptr;
}
#endif

#ifdef UNLISTED
TEST_CASE(kel_buf, no_such_case)
{
    return nullptr;
}
#endif

// SPDX-License-Identifier: MIT
//
// Operations on handles whose insides are damaged. Nothing outside the library can damage them,
// so the cases keep their places and always decline to run; no library operation is called.
#include "runner/tests.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_corrupt, buf_free_chain)

TEST_CASE(kel_corrupt, buf_free_chain)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, buf_free)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, buf_free_pkt)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, free_pkt)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, send_pkt)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, recv_pkt)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, free_buf)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, send_buf)
{
    return skip_case();
}

TEST_CASE(kel_corrupt, recv_buf)
{
    return skip_case();
}

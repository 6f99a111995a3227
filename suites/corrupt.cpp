// SPDX-License-Identifier: MIT
//
// Operations on handles whose insides are damaged. Nothing outside the library can damage them,
// so the cases keep their places and always decline to run; no library operation is called.
#include "suites/case_helpers.h"

TEST_FILE(kel_corrupt, buf_free_chain)

CASE(kel_corrupt, buf_free_chain, with_nothing, skip_case())
CASE(kel_corrupt, buf_free, with_nothing, skip_case())
CASE(kel_corrupt, buf_free_pkt, with_nothing, skip_case())
CASE(kel_corrupt, free_pkt, with_nothing, skip_case())
CASE(kel_corrupt, send_pkt, with_nothing, skip_case())
CASE(kel_corrupt, recv_pkt, with_nothing, skip_case())
CASE(kel_corrupt, free_buf, with_nothing, skip_case())
CASE(kel_corrupt, send_buf, with_nothing, skip_case())
CASE(kel_corrupt, recv_buf, with_nothing, skip_case())

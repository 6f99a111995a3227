// SPDX-License-Identifier: MIT
//
// Buffers filled with the pattern, for the two files of the buffer suite.
#pragma once

#include <stdint.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "suites/case_helpers.h"

// Fills a buffer of `size` bytes, at most STANDARD_SIZE, with the pattern. The source is wiped
// after the call: a library that keeps its address instead of copying is caught. The source is
// static, else the compiler would leave the wiping out.
inline uint32_t fill_buffer(kel_buffer buffer, uint32_t size, uint32_t seed)
{
    static uint8_t pattern[STANDARD_SIZE];

    set_data(pattern, static_cast<int32_t>(size), seed);
    const uint32_t error = kel_buf_set_data(buffer, 0, pattern, size);
    memset(pattern, 0, size);
    return error;
}

// Gets a buffer of `size` bytes and fills it.
inline uint32_t get_filled_buffer(kel_client client, uint32_t size, uint32_t seed,
                                  kel_buffer *buffer)
{
    if (uint32_t error = get_buffer(client, size, buffer)) return error;
    return fill_buffer(*buffer, size, seed);
}

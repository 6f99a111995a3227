// SPDX-License-Identifier: MIT
//
// What the two files of the buffer suite share: buffers filled with the pattern.
#pragma once

#include <stdint.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "suites/case_helpers.h"

// Fills a buffer of `size` bytes, at most STANDARD_SIZE, with the pattern. What it was filled from
// is wiped then: a library that keeps the address instead of copying is caught. It is static, else
// the compiler would take the wiping out.
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

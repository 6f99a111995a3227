// SPDX-License-Identifier: MIT
//
// What the two files of the buffer suite share: the forms that define its cases, its sizes and
// seeds, and buffers filled with the pattern.
#pragma once

#include <stdint.h>
#include <string.h>

#include "fixtures/fixtures.h"
#include "fixtures/frame.h"
#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "runner/tests.h"
#include "suites/case_helpers.h"

#define BUF_CASE(name) CASE_STEPS(kel_buf, name, run_client_steps, held_objects)
#define CLIENTLESS_CASE(name) CASE_STEPS(kel_buf, name, run_steps, held_objects)

constexpr uint32_t BUFFER_SIZE = 1500;
constexpr uint32_t JUMBO_SIZE = 9000;
constexpr uint32_t CHAIN_SIZE = 65536; // more than one buffer can hold

constexpr uint32_t FIRST_SEED = 0x12345678;
constexpr uint32_t SECOND_SEED = 0x23456789;
constexpr uint32_t THIRD_SEED = 0x3456789a;

// Fills a buffer of `size` bytes, at most BUFFER_SIZE, with the pattern. What it was filled from is
// wiped then: a library that keeps the address instead of copying is caught. It is static, else the
// compiler would take the wiping out.
inline uint32_t fill_buffer(kel_buffer buffer, uint32_t size, uint32_t seed)
{
    static uint8_t pattern[BUFFER_SIZE];

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

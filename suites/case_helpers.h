// SPDX-License-Identifier: MIT
//
// Constants and functions that cases of several suites need beside the fixtures.
#pragma once

#include <stdint.h>
#include <string.h>

#include "fixtures/frame.h"
#include "kelapi/bufgroup.h"

// Sizes of packets and buffers.
constexpr uint32_t SMALL_SIZE = 512;
constexpr uint32_t STANDARD_SIZE = DEFAULT_PACKET_SIZE;
constexpr uint32_t JUMBO_SIZE = 9000;
constexpr uint32_t CHAIN_SIZE = 65536; // more than one buffer can hold

constexpr uint32_t TLV_SIZE = 228;

// Seeds of the data pattern.
constexpr uint32_t PATTERN_A = 0x12345678;
constexpr uint32_t PATTERN_B = 0x23456789;
constexpr uint32_t PATTERN_C = 0x3456789a;

// Sets both records of a group. The records that are passed are wiped after the call: a library
// that keeps their address is caught.
inline uint32_t set_thresholds(kel_client client, kel_bufgroup group,
                               const kel_bufgroup_thresholds &buffers,
                               const kel_bufgroup_thresholds &bytes)
{
    static kel_bufgroup_thresholds passed[2];

    passed[0] = buffers;
    passed[1] = bytes;
    const uint32_t error = kel_bufgroup_set_params(
        client, group, KEL_BUFGROUP_BUFFERS | KEL_BUFGROUP_BYTES, &passed[0], &passed[1]);
    memset(passed, 0, sizeof(passed));
    return error;
}

// The whole of a case that always declines to run.
inline const char *skip_case()
{
    skip_test = 1;
    return nullptr;
}

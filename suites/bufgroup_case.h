// SPDX-License-Identifier: MIT
//
// What the two buffer-group suites share: what a case with several clients holds, the frame
// that releases it, and the steps that take a group of either kind across its thresholds.
#pragma once

#include <stdint.h>

#include "fixtures/frame.h"
#include "kelapi/types.h"

constexpr uint32_t MAX_CLIENTS = 5;
constexpr uint32_t PACKETS = 10;
constexpr uint32_t NAMES = 10;
constexpr uint32_t ELEMENT_SIZE = 512;

// 0 is nothing. Released in this order: packets, the buffer, groups, the tag of the first
// client, clients.
struct held_groups {
    kel_packet packets[PACKETS];
    kel_buffer buffer;
    kel_bufgroup groups[MAX_CLIENTS][NAMES]; // by the client that registered them
    kel_tag tag;
    kel_client clients[MAX_CLIENTS];
};

const char *run_group_steps(const char *(*steps)(held_groups &held));

// Two clients share the group that `register_group` gives each; its limits hold for both.
const char *threshold_steps(held_groups &held,
                            uint32_t (*register_group)(kel_client client, kel_bufgroup *group));

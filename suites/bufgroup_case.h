// SPDX-License-Identifier: MIT
//
// The frame of cases with several clients, and the steps that take a group of either kind across
// its thresholds, for the two buffer-group suites.
#pragma once

#include <stdint.h>

#include "fixtures/frame.h"
#include "kelapi/types.h"

constexpr uint32_t MAX_CLIENTS = 5;
constexpr uint32_t PACKETS = 10;
constexpr uint32_t NAMES = 10;

// 0 is nothing. Released in this order: packets, the buffer, groups, the tag of the first
// client, clients.
struct held_groups {
    kel_packet packets[PACKETS];
    kel_buffer buffer;
    kel_bufgroup groups[MAX_CLIENTS][NAMES]; // by the client that registered them
    kel_tag tag;
    kel_client clients[MAX_CLIENTS];
};

void release_groups(held_groups &held);

// The cases register their clients themselves.
constexpr case_frame<held_groups> with_groups = {nullptr, release_groups};

// Two clients share the group that `register_group` gives each; its limits hold for both.
const char *threshold_steps(held_groups &held,
                            uint32_t (*register_group)(kel_client client, kel_bufgroup *group));

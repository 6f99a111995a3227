/* SPDX-License-Identifier: MIT */
/*
 * What lives in the reference library at this moment. Not part of the libkel interface.
 *
 * With KEL_REFERENCE_CENSUS=path (or "-" for standard error) the census is written when
 * the process exits, a line "name count" each, with what a client's deregistration had to
 * release told apart from what the program released itself.
 */
#pragma once

#include "kelapi/types.h"

typedef struct kel_reference_census {
    uint32_t clients;
    uint32_t packets;
    uint32_t buffers;
    uint32_t bufgroups;
    uint32_t tags;           /* registrations */
    uint32_t allocated_tags; /* dynamic */
    uint32_t tlvs;
    uint32_t events; /* armed or pending */
    uint32_t regions;
    uint32_t subregions;
    uint64_t arena_bytes;                /* in use */
    uint32_t released_by_deregistration; /* packets, buffers, groups, tags and events */
} kel_reference_census;

/* Fills `census`. Safe from any thread. */
KEL_API void kel_reference_take_census(kel_reference_census *census);

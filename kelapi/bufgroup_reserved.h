/* SPDX-License-Identifier: MIT */
/*
 * Reserved buffer groups, whose memory is set aside at registration as elements of one
 * size, and the operations that take many packets or buffers in one call. A reserved group
 * is deregistered, limited and counted like any other (bufgroup.h). A contiguous
 * allocation from it takes one element, others as many as they need; ENOMEM is the error
 * when none is left or one is too small.
 */
#ifndef KELAPI_BUFGROUP_RESERVED_H
#define KELAPI_BUFGROUP_RESERVED_H

#include "kelapi/types.h"

/* The most packets or buffers that one call gives. */
#define KEL_LIST_MAX 16u

/* One packet asked for; the fields are the arguments of kel_get_packet_with_tlv. */
typedef struct kel_packet_request {
    kel_client client;
    kel_bufgroup group;
    uint32_t size; /* bytes */
    uint8_t flag;  /* reserved: 0 */
    uint8_t padding[3];
    uint32_t tlv;      /* TLV number, 0 for none */
    uint32_t tlv_size; /* bytes */
} kel_packet_request;

/* The result of one request. */
typedef struct kel_packet_result {
    kel_packet packet; /* 0 when none was given */
    uint32_t error;    /* why */
} kel_packet_result;

/* Argument of kel_get_packet_list: requests by the caller, the rest by the library. */
typedef struct kel_packet_list {
    uint16_t count; /* of requests, at most KEL_LIST_MAX */
    uint16_t padding;
    kel_packet_request requests[KEL_LIST_MAX];
    kel_packet_result results[KEL_LIST_MAX];
    uint16_t allocated; /* packets given */
} kel_packet_list;

KEL_STATIC_ASSERT(sizeof(kel_packet_request) == 24, "a packet request");
KEL_STATIC_ASSERT(sizeof(kel_packet_result) == 8, "a packet result");
KEL_STATIC_ASSERT(offsetof(kel_packet_list, requests) == 4, "a packet list");
KEL_STATIC_ASSERT(offsetof(kel_packet_list, results) == 388, "a packet list");
KEL_STATIC_ASSERT(offsetof(kel_packet_list, allocated) == 516, "a packet list");

/* Result of kel_get_buffer_list. */
typedef struct kel_buffer_list {
    kel_buffer buffers[KEL_LIST_MAX]; /* 0 where none was given */
    uint16_t allocated;               /* buffers given */
} kel_buffer_list;

KEL_STATIC_ASSERT(offsetof(kel_buffer_list, allocated) == 64, "a buffer list");

/*
 * Registers the client with the reserved group called `name`, making it with
 * `element_count` elements of `element_size` bytes when no client has it, and stores its
 * handle through `group`. The elements of a group that there is stay as they are.
 * `head_room` bytes are set aside in front of each element. With `no_poison` 1 the memory
 * of freed elements is left as it was.
 * Errors: EINVAL for an unknown client, a null `group`, a null or empty name, a size or
 * count of 0, and the name of a regular group; ENOMEM when the memory cannot be had.
 */
KEL_API uint32_t kel_register_reserved_bufgroup(kel_client client, kel_bufgroup *group,
                                                const char *name, uint32_t element_size,
                                                uint32_t element_count, uint32_t head_room,
                                                uint32_t no_poison);

/*
 * Serves the requests in order. A request that cannot be met gets no packet, and the
 * others are served all the same: that is no error of the call. Each packet given is the
 * caller's to free.
 * Errors: EINVAL for a null list or more than KEL_LIST_MAX requests.
 */
KEL_API uint32_t kel_get_packet_list(kel_packet_list *list);

/*
 * Takes `count` buffers of `size` bytes, or as many as there are, which is no error of the
 * call. Each buffer given is the caller's to free.
 * Errors: EINVAL for an unknown client or group, a null `list`, or more than KEL_LIST_MAX.
 */
KEL_API uint32_t kel_get_buffer_list(kel_client client, kel_bufgroup group, uint32_t size,
                                     uint8_t contiguous, uint16_t count, kel_buffer_list *list);

#endif

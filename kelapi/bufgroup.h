/* SPDX-License-Identifier: MIT */
/*
 * Buffer groups and accounting. A group is a named pool that packets and buffers are taken
 * from; clients that register the same name share it. It lives as long as a
 * client is registered with it.
 *
 * Counts are kept by client (what it obtained and has not freed, wherever that is), by
 * group, and by tag (packets that carry it), each in buffers and in bytes of data asked
 * for.
 *
 * EINVAL is the error for an unknown client or group and for a null pointer where one is
 * required.
 */
#ifndef KELAPI_BUFGROUP_H
#define KELAPI_BUFGROUP_H

#include "kelapi/types.h"

/* Bits of a mask that says which threshold records are set. */
#define KEL_BUFGROUP_BUFFERS 1u
#define KEL_BUFGROUP_BYTES 2u

/*
 * Thresholds, in buffers or in bytes, with max > high > low. Beyond max allocations are
 * refused; the allocation that reaches high and the free that comes down to low succeed
 * with a notice.
 */
typedef struct kel_bufgroup_thresholds {
    uint32_t max;
    uint32_t low;
    uint32_t high;
} kel_bufgroup_thresholds;

KEL_STATIC_ASSERT(sizeof(kel_bufgroup_thresholds) == 12, "three words");

/*
 * Registers the client with the group called `name`, making it when no client has it, and
 * stores its handle through `group`. Undone by kel_deregister_bufgroup.
 * Errors: EINVAL, also for a null or empty name and the name of a reserved group; ENOMEM.
 */
KEL_API uint32_t kel_register_bufgroup(kel_client client, kel_bufgroup *group, const char *name);

/*
 * Ends the client's registration, of a reserved group too. One that was registered more
 * than once by the client has to be deregistered as often.
 * Errors: EINVAL, also for a group that the client has not registered.
 */
KEL_API uint32_t kel_deregister_bufgroup(kel_client client, kel_bufgroup group);

/*
 * Sets the records that `mask` names (KEL_BUFGROUP_BUFFERS, KEL_BUFGROUP_BYTES); the other
 * one's pointer may be null.
 * Errors: EINVAL, also for a group that the client has not registered and for other bits.
 */
KEL_API uint32_t kel_bufgroup_set_params(kel_client client, kel_bufgroup group, uint32_t mask,
                                         const kel_bufgroup_thresholds *buffers,
                                         const kel_bufgroup_thresholds *bytes);

/*
 * Stores which records have been set, and the records; one that is not set reads 0.
 * Errors: EINVAL, also for a group that the client has not registered.
 */
KEL_API uint32_t kel_bufgroup_get_params(kel_client client, kel_bufgroup group, uint32_t *mask,
                                         kel_bufgroup_thresholds *buffers,
                                         kel_bufgroup_thresholds *bytes);

/* Stores how many buffers and bytes the client has obtained and not freed. Errors: EINVAL. */
KEL_API uint32_t kel_get_bufcount_byclient(kel_client client, uint32_t *buffers, uint32_t *bytes);

/*
 * Stores how many buffers and bytes are taken from the group, by any client.
 * Errors: EINVAL, also for a group that the client has not registered.
 */
KEL_API uint32_t kel_get_count_bygroup(kel_client client, kel_bufgroup group, uint32_t *buffers,
                                       uint32_t *bytes);

/*
 * Stores how many buffers and bytes are in packets that carry the tag: those that the
 * client obtained, or with client 0 all.
 * Errors: EINVAL, also for tag 0.
 */
KEL_API uint32_t kel_get_count_bytag(kel_client client, kel_tag tag, uint32_t *buffers,
                                     uint32_t *bytes);

#endif

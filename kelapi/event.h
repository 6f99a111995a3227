/* SPDX-License-Identifier: MIT */
/*
 * Events. A client arms an event and waits for it with kel_event_wait, or with select on
 * the exceptional condition of its descriptor (kel_getfd). A reported event is disarmed.
 *
 *   tag             the queue that receives the tag has room: at once, or when it has
 *                   room again after being full.
 *   buffer group    the group's usage crosses a threshold: group flags 1 for coming down
 *                   to the low one, 2 for reaching the high one, 3 for both.
 *   tag registered  a client registers the tag, or has done so already.
 *
 * EINVAL is the error for an unknown client and for every invalid argument.
 */
#ifndef KELAPI_EVENT_H
#define KELAPI_EVENT_H

#include <sys/time.h>

#include "kelapi/types.h"

/* Values of kel_event.type. */
#define KEL_EVENT_NONE 0u /* only in results: the time-out passed */
#define KEL_EVENT_ALL 1u  /* only for removal */
#define KEL_EVENT_TAG 2u
#define KEL_EVENT_BUFGROUP 3u
#define KEL_EVENT_TAG_REGISTERED 4u

/* Values of kel_event.group_flags, combined by OR. */
#define KEL_EVENT_GROUP_LOW 1u
#define KEL_EVENT_GROUP_HIGH 2u

typedef struct kel_event {
    uint32_t type;
    uint32_t flags;       /* 0 */
    uint32_t context1;    /* the caller's, returned with the event */
    uint32_t context2;    /* the caller's, returned with the event */
    uint32_t object;      /* the tag or the buffer group */
    uint32_t group_flags; /* for a buffer group; else 0 */
} kel_event;

KEL_STATIC_ASSERT(sizeof(kel_event) == 24, "the event record");

/*
 * Arms the event described. A tag event needs a tag that some client holds; a
 * tag-registered event takes any tag. One that is armed or pending already is armed afresh,
 * with the new contexts.
 * Errors: EINVAL.
 */
KEL_API uint32_t kel_event_add(kel_client client, const kel_event *event);

/*
 * Disarms the event of that type, object and group flags, pending or not, or all with
 * KEL_EVENT_ALL.
 * Errors: EINVAL; ENOENT for an event that is not armed.
 */
KEL_API uint32_t kel_event_remove(kel_client client, const kel_event *event);

/* Arms a tag event. Errors: EINVAL, also for a tag that no client holds. */
KEL_API uint32_t kel_event_add_tag(kel_client client, kel_tag tag, uint32_t context1,
                                   uint32_t context2);

/* Disarms a tag event. Errors: EINVAL; ENOENT for an event that is not armed. */
KEL_API uint32_t kel_event_remove_tag(kel_client client, kel_tag tag);

/* Arms a buffer-group event. Errors: EINVAL, also for a group not registered. */
KEL_API uint32_t kel_event_add_bufgroup(kel_client client, kel_bufgroup group, uint32_t group_flags,
                                        uint32_t context1, uint32_t context2);

/* Disarms the buffer-group event with these flags. Errors: EINVAL; ENOENT if not armed. */
KEL_API uint32_t kel_event_remove_bufgroup(kel_client client, kel_bufgroup group,
                                           uint32_t group_flags);

/*
 * Disarms all of the client's events; a thread that waits in kel_event_wait for the client
 * returns EINTR.
 * Errors: EINVAL.
 */
KEL_API uint32_t kel_event_clear(kel_client client);

/*
 * Waits until one of the client's events fires and stores it in `event`, or until
 * `timeout` has passed and stores type KEL_EVENT_NONE. A null time-out waits without
 * limit; a zero one polls. What is left of the time may be stored there. May block one thread while
 * others use the same client. Errors: EINVAL; EINTR when kel_event_clear or the client's
 * deregistration ended the wait.
 */
KEL_API uint32_t kel_event_wait(kel_client client, kel_event *event, struct timeval *timeout);

#endif

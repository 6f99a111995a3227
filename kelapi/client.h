/* SPDX-License-Identifier: MIT */
/*
 * Clients, tags and transport. A client owns a receive queue, a descriptor that signals
 * waiting packets, and tags. A packet is delivered to the client that registered the
 * packet's tag, the sender itself included.
 */
#ifndef KELAPI_CLIENT_H
#define KELAPI_CLIENT_H

#include "kelapi/types.h"

/* The first dynamic tag: those below are static and chosen by applications. */
#define KEL_FIRST_DYNAMIC_TAG 0x20000u

/*
 * From now on invalid handles and arguments are reported through results and never end
 * the process. The result means nothing. Called once, before other operations.
 */
KEL_API uint32_t kel_nocrash_set(void);

/*
 * Registers a client and stores its handle through `client`, for the caller to release
 * with kel_deregister_client. `name` is descriptive, may be null and need not be unique.
 * `role` is KEL_ROLE_ALWAYS, KEL_ROLE_ACTIVE or KEL_ROLE_STANDBY (role.h). `depth` is the
 * receive queue's depth in packets; fewer than 8 count as 8.
 * On failure nothing is registered. Errors: EINVAL for an unknown role or a null `client`;
 * ENOMEM when no further client can be made.
 */
KEL_API uint32_t kel_register_client(kel_client *client, const char *name, uint32_t role,
                                     uint32_t depth);

/*
 * Releases the client and all that it still holds: its tags, registered or allocated, the
 * packets in its queue, its packets, chains of buffers, groups and armed events. Its
 * buffers that others have put into a packet or a chain stay there. A thread that waits for the
 * client's events is woken. The handle is refused from then on.
 * Errors: EINVAL for a client that is not registered.
 */
KEL_API uint32_t kel_deregister_client(kel_client client);

/*
 * The client's descriptor, greater than 0 and always the same, or -1 for a client that is
 * not registered and when the system grants no descriptor. In the sense of select it is
 * readable while signalled packets wait, and shows an exceptional condition while an event
 * is pending. It belongs to the library: callers neither read nor close it.
 */
KEL_API int32_t kel_getfd(kel_client client);

/*
 * Claims packets that carry `tag` for the client. role.h says who may share a tag.
 * Errors: EINVAL for a client that is not registered, for tag 0 and for a dynamic tag that
 * is not allocated; EEXIST for a tag that the client or, unless shared, another client
 * holds; EACCES for another client's dynamic tag that nobody holds; ENOSPC for a shared
 * tag that has all the holders it may have.
 */
KEL_API uint32_t kel_register_tag(kel_client client, kel_tag tag);

/*
 * Gives up a tag that the client registered. Packets already queued stay queued.
 * Errors: EINVAL for a client that is not registered and for tag 0; EACCES for a tag that
 * others hold, who keep it; ENOENT for a tag that nobody holds.
 */
KEL_API uint32_t kel_deregister_tag(kel_client client, kel_tag tag);

/* 1 if the client, or with client 0 any client, registered `tag`; else 0. */
KEL_API uint8_t kel_is_tag_registered(kel_client client, kel_tag tag);

/*
 * Allocates a dynamic tag, KEL_FIRST_DYNAMIC_TAG or above, and stores it through `tag`. It
 * is the client's until kel_free_tag or the client's deregistration, and must still be
 * registered to receive packets. `name` is descriptive and may be null.
 * Errors: EINVAL for a client that is not registered or a null `tag`; ENOSPC when no tag
 * is left.
 */
KEL_API uint32_t kel_alloc_tag(kel_client client, kel_tag *tag, const char *name);

/*
 * Frees a dynamic tag of the client, deregistering it first where it is registered.
 * Errors: EINVAL for a client that is not registered, a static tag, or a number that is
 * not allocated; EACCES for another client's tag.
 */
KEL_API uint32_t kel_free_tag(kel_client client, kel_tag tag);

/*
 * Queues the packet to the client that holds its tag; any client may send it. On success
 * the packet belongs to the receiver; on failure it remains the sender's.
 * Errors: EINVAL for a client that is not registered, an unknown packet, one that waits in
 * a queue and one of length 0; ENOENT when nobody receives the tag; EAGAIN when the
 * receiver's queue is full (a tag event, event.h, tells when there is room).
 */
KEL_API uint32_t kel_send(kel_client client, kel_packet packet);

/*
 * Takes the oldest packet out of the client's queue. Returns its handle, for the caller to
 * free, or 0 when nothing waits or the client is not registered. Never blocks.
 */
KEL_API kel_packet kel_recv(kel_client client);

/* 1 when the client's queue is empty, 0 when not, EINVAL for a client not registered. */
KEL_API uint32_t kel_queue_is_empty(kel_client client);

/*
 * With `flag` 1 the packet, when queued, does not signal its receiver by itself: the
 * receiver is signalled when its threshold is reached or after its signal interval. With
 * `flag` 0 the packet signals again.
 * Errors: EINVAL for an unknown packet.
 */
KEL_API uint32_t kel_pkt_no_sig_required(kel_packet packet, uint8_t flag);

/*
 * Sets how many waiting packets make deferred signals due at once. By default that is the
 * queue's depth less a quarter of it. Packets that wait already count.
 * Errors: EINVAL for a client that is not registered and for 0 packets.
 */
KEL_API uint32_t kel_set_sig_threshold(kel_client client, uint32_t packets);

/*
 * Sets after how many milliseconds without a further send deferred packets are signalled.
 * The default is short enough for a signal within 30 ms. Packets that wait already are
 * signalled by the new interval, counted from the last send.
 * Errors: EINVAL for a client that is not registered.
 */
KEL_API uint32_t kel_set_client_signal_interval(kel_client client, uint32_t milliseconds);

#endif

/* SPDX-License-Identifier: MIT */
/*
 * Packets: a header with metadata (metadata.h) and TLVs (tlv.h), and a chain of buffers
 * (buf.h). A bare header has no chain: its length and its buffer count are 0. A packet's
 * length is the sum of its buffers' data lengths.
 *
 * All sizes, lengths and offsets are in bytes. EINVAL is the error for an unknown packet,
 * buffer, client or group and for a null pointer where one is required.
 *
 * Offsets (OFFSET_NETWORK, OFFSET_TRANSPORT, OFFSET_APP) count from the start of the data:
 * growing at the front moves them up by the growth, trimming there moves them down and
 * stops at 0; operations at the end leave them alone. OFFSET_DATA is moved by none of them.
 * A packet trimmed to nothing has all four offsets 0.
 */
#ifndef KELAPI_PACKET_H
#define KELAPI_PACKET_H

#include "kelapi/types.h"

/*
 * Obtains a packet of `size` bytes, without head room and with undefined content, charged
 * to the client and to `group` (0: the client's default memory). With `contiguous` 1 its
 * data is in one buffer; with 0 it may be spread over a chain. Returns the handle, for
 * the caller to free or send.
 * Errors: EINVAL; ENOMEM for more than a buffer, or with `contiguous` 0 a chain, can hold;
 * ENOBUFS beyond the group's maximum; ENOMEM when the memory cannot be had. Notice:
 * KEL_HIGH_THRESHOLD_REACHED.
 */
KEL_API kel_packet kel_get_packet(kel_client client, kel_bufgroup group, uint32_t size,
                                  uint8_t contiguous, uint32_t *error);

/* Obtains a bare packet header; 0 when the client is unknown or none is left. */
KEL_API kel_packet kel_get_pkthdr(kel_client client);

/*
 * As kel_get_packet, contiguous where that is possible, with TLV number `tlv` of
 * `tlv_size` bytes allocated on it (`tlv` 0: none). `flag` is reserved: pass 0.
 * Errors: EINVAL; ENOSPC for a TLV that is too large; the others of kel_get_packet.
 */
KEL_API kel_packet kel_get_packet_with_tlv(kel_client client, kel_bufgroup group, uint32_t size,
                                           uint8_t flag, uint32_t tlv, uint32_t tlv_size,
                                           uint32_t *error);

/* As kel_get_pkthdr, with TLV number `tlv` of `tlv_size` bytes allocated on it. */
KEL_API kel_packet kel_get_pkthdr_with_tlv(kel_client client, uint32_t tlv, uint32_t tlv_size);

/*
 * Frees the packet, its chain and its TLVs. A packet that waits in a queue is taken out of
 * it.
 * Errors: EINVAL for a packet that never was; EPERM for one already freed.
 * Notice: KEL_LOW_THRESHOLD_REACHED.
 */
KEL_API uint32_t kel_free_packet(kel_packet packet);

/* Frees a packet header, and what it carries. Errors and notice: as kel_free_packet. */
KEL_API uint32_t kel_free_pkthdr(kel_packet packet);

/* The first buffer of the packet's chain; 0 without a chain and for an unknown packet. */
KEL_API kel_buffer kel_get_buf_head(kel_packet packet);

/*
 * Adds the chain of `buffer` at the end of the packet, whose property it becomes. It stays
 * charged to the client that obtained it.
 * Errors: EINVAL, also for a buffer that already belongs to a packet.
 */
KEL_API uint32_t kel_append(kel_packet packet, kel_buffer buffer);

/* As kel_append, in front of the packet's first buffer. The offsets stay as they are. */
KEL_API uint32_t kel_prepend(kel_packet packet, kel_buffer buffer);

/* The number of buffers of the packet's chain; all bits set for an unknown packet. */
KEL_API uint32_t kel_get_buf_count(kel_packet packet);

/*
 * Brings the packet's data into one buffer, charged to the packet's holder. A packet with
 * one buffer or none is left as it is. Thresholds of the group (bufgroup.h) see the usage
 * before and after, and nothing between.
 * Errors: EINVAL; ENOMEM when one buffer cannot hold the data; ENOBUFS.
 */
KEL_API uint32_t kel_coalesce(kel_packet packet);

/*
 * Makes head room: moves the head buffer's data start forward by `size`, so that its data
 * length and the packet's length fall by as much. Once in a packet's life, and in that of
 * its head buffer (kel_buf_reserve_space). Offsets stay.
 * Errors: EINVAL, also for a packet without a chain and for a second call; ENOSPC when
 * `size` is not smaller than the packet's length or exceeds the head buffer's.
 */
KEL_API uint32_t kel_reserve_space(kel_packet packet, uint32_t size);

/* Stores the head room of the head buffer. Errors: EINVAL, also without a chain. */
KEL_API uint32_t kel_head_space(kel_packet packet, uint32_t *size);

/*
 * Grows the packet by `size` bytes at the front: within the head buffer where its head
 * room suffices, else by a new head buffer.
 * Errors: EINVAL, also without a chain; ENOMEM; ENOBUFS.
 */
KEL_API uint32_t kel_add_head(kel_packet packet, uint32_t size);

/* Grows the packet by `size` bytes at the end. Errors: as kel_add_head. */
KEL_API uint32_t kel_add_tail(kel_packet packet, uint32_t size);

/*
 * Removes `size` bytes from the front; buffers that become empty are freed. Trimming the
 * whole length leaves a packet without a chain.
 * Errors: EINVAL, also without a chain; ERANGE when `size` exceeds the packet's length.
 */
KEL_API uint32_t kel_trim_head(kel_packet packet, uint32_t size);

/* As kel_trim_head, at the end. */
KEL_API uint32_t kel_trim_tail(kel_packet packet, uint32_t size);

/*
 * Copies `length` bytes from `source` into the packet at `offset` from the offset of kind
 * `kind` (OFFSET_DATA: the start of the data), across buffers.
 * Errors: EINVAL, also for an unknown kind; ENOSPC, with nothing written, when they reach
 * beyond the packet.
 */
KEL_API uint32_t kel_set_data(kel_packet packet, uint32_t kind, uint32_t offset, const void *source,
                              uint32_t length);

/*
 * Copies up to *length bytes from `offset` from the offset of kind `kind` to
 * `destination`, and stores the number copied in *length.
 * Errors: EINVAL, also for an unknown kind; ENOSPC when fewer than asked are left: those
 * are copied.
 */
KEL_API uint32_t kel_get_data(kel_packet packet, uint32_t kind, uint32_t offset, void *destination,
                              uint32_t *length);

/*
 * Makes a packet of `length` bytes (KEL_COPY_ALL: to the end) from `offset` from the
 * offset of kind `kind`, with the source's metadata and TLVs, charged to the source's
 * holder and group. The duplicate's offsets are the source's less the position copied from, at
 * least 0; its OFFSET_DATA is 0 unless that position is the front. Returns the handle, for the
 * caller to free.
 * Errors: EINVAL, also for an unknown kind, a stretch that is empty or leaves the packet,
 * and a packet without a chain; ENOMEM; ENOBUFS. Notice: KEL_HIGH_THRESHOLD_REACHED.
 */
KEL_API kel_packet kel_duplicate(kel_packet packet, uint32_t kind, uint32_t offset, uint32_t length,
                                 uint32_t *error);

#endif

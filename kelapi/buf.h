/* SPDX-License-Identifier: MIT */
/*
 * Single buffers, chains of buffers, and the buffer memory as a whole.
 *
 * A buffer has memory of a fixed capacity, a data start in it, a data length, head room
 * (the space before the data start) and a link to the next buffer of its chain. Operations
 * that take the head of a chain act on the whole chain from that buffer on;
 * kel_buf_get_length, kel_buf_set_length, kel_buf_get_dptr, kel_buf_reserve_space and
 * kel_buf_get_paddr concern the one buffer named.
 *
 * All sizes, lengths and offsets are in bytes. EINVAL is the error for an unknown buffer,
 * client or group and for a null pointer where one is required.
 */
#ifndef KELAPI_BUF_H
#define KELAPI_BUF_H

#include "kelapi/types.h"

/* One buffer of a chain in physical memory. */
typedef struct kel_iovec {
    kel_u64_aligned4 iov_base; /* physical address of the data, never 0 */
    uint32_t iov_len;          /* data length in bytes */
} kel_iovec;

KEL_STATIC_ASSERT(sizeof(kel_iovec) == 12, "a physical-address entry has no padding");

/* Stores where the buffer memory starts and how long it is. Errors: EINVAL. */
KEL_API uint32_t kel_get_bufmem_start(uint64_t *start, uint32_t *length);

/*
 * Stores the buffer memory's physical address, its address in the caller's and in the
 * kernel's address space, and its length. None of them is 0. Errors: EINVAL.
 */
KEL_API uint32_t kel_get_bufmem_info(uint64_t *bpa_paddr, uint64_t *bpa_vaddr, uint64_t *bpa_kvaddr,
                                     uint32_t *length);

/*
 * Obtains `size` bytes, without head room and with undefined content, charged to the
 * client and to `group` (0: the client's default memory). With `contiguous` 1 they are one
 * buffer; with 0 they may be a chain, whose data lengths add up to `size`. Returns the
 * handle of the head, for the caller to free.
 * Errors: EINVAL; ENOMEM for more than a buffer, or with `contiguous` 0 a chain, can hold;
 * ENOBUFS beyond the group's maximum; ENOMEM when the memory cannot be had. Notice:
 * KEL_HIGH_THRESHOLD_REACHED.
 */
KEL_API kel_buffer kel_get_buffer(kel_client client, kel_bufgroup group, uint32_t size,
                                  uint8_t contiguous, uint32_t *error);

/*
 * Frees one buffer. A buffer of a chain is taken out of the chain first.
 * Errors: EINVAL for a buffer that never was; EPERM for one already freed, and for one
 * that belongs to a packet.
 */
KEL_API uint32_t kel_free_buffer(kel_buffer buffer);

/* Frees the buffer and every buffer after it. Errors: as kel_free_buffer. */
KEL_API uint32_t kel_free_bufchain(kel_buffer buffer);

/*
 * Links the chain of `added` after the last buffer of the chain of `buffer`; from then on
 * it is freed with that chain. Where two clients' buffers are linked, the chain goes with
 * the client that obtained its first buffer; each buffer stays charged to its own.
 * Errors: EINVAL, also when `added` belongs to a packet and when both are the same chain.
 */
KEL_API uint32_t kel_buf_append(kel_buffer buffer, kel_buffer added);

/* The next buffer of the chain; 0 after the last and for an unknown buffer. */
KEL_API kel_buffer kel_buf_get_next(kel_buffer buffer);

/* The number of buffers from this one to the end of its chain; 0 for an unknown buffer. */
KEL_API uint32_t kel_buf_get_buf_count(kel_buffer buffer);

/*
 * Stores the address of the byte at `offset` from the data start, and the number of bytes
 * from there to the end of the buffer's data. A negative offset reaches into the head
 * room. The address is valid until the buffer changes.
 * Errors: EINVAL, also for an offset beyond the data or before the head room.
 */
KEL_API uint32_t kel_buf_get_dptr(kel_buffer buffer, int32_t offset, void **data, uint32_t *length);

/* Stores the buffer's data length. Errors: EINVAL. */
KEL_API uint32_t kel_buf_get_length(kel_buffer buffer, uint32_t *length);

/*
 * Sets the buffer's data length, at most its capacity less its head room.
 * Errors: EINVAL; ENOSPC beyond that.
 */
KEL_API uint32_t kel_buf_set_length(kel_buffer buffer, uint32_t length);

/*
 * Makes head room: moves the data start forward by `size`, so that the data length falls
 * by as much. Once in a buffer's life.
 * Errors: EINVAL, also for a second reservation; ENOSPC when `size` is not smaller than
 * the data length.
 */
KEL_API uint32_t kel_buf_reserve_space(kel_buffer buffer, uint32_t size);

/*
 * Copies `length` bytes from `source` into the chain's data from `offset` on.
 * Errors: EINVAL; ENOSPC, with nothing written, when they reach beyond the data.
 */
KEL_API uint32_t kel_buf_set_data(kel_buffer buffer, uint32_t offset, const void *source,
                                  uint32_t length);

/*
 * Copies up to *length bytes of the chain's data from `offset` on to `destination`.
 * Errors: EINVAL; ENOSPC when fewer are left: those are copied and counted in *length.
 */
KEL_API uint32_t kel_buf_get_data(kel_buffer buffer, uint32_t offset, void *destination,
                                  uint32_t *length);

/*
 * Removes `size` bytes from the front of the chain. Buffers that become empty are freed;
 * *buffer becomes the new head, or 0 when nothing is left.
 * Errors: EINVAL; ERANGE when `size` exceeds the chain's length.
 */
KEL_API uint32_t kel_buf_trim_head(kel_buffer *buffer, uint32_t size);

/* As kel_buf_trim_head, at the end of the chain: the head remains while data is left. */
KEL_API uint32_t kel_buf_trim_tail(kel_buffer *buffer, uint32_t size);

/* Trims `size` bytes at the head, or -`size` bytes at the tail. Errors: as the trims. */
KEL_API uint32_t kel_buf_adj(kel_buffer *buffer, int32_t size);

/*
 * Grows the chain by `size` bytes at the front, out of the head room where that suffices,
 * else by a new head, which *buffer then names. The new head is charged to the client and
 * the group of the buffer, in a packet to the packet's holder and group.
 * Errors: EINVAL; ENOMEM; ENOBUFS.
 */
KEL_API uint32_t kel_buf_add_head(kel_buffer *buffer, uint32_t size);

/*
 * Grows the chain by `size` bytes at the end, out of the room left in the last buffer,
 * else by further buffers, charged as in kel_buf_add_head. The head does not change.
 * Errors: EINVAL; ENOMEM; ENOBUFS.
 */
KEL_API uint32_t kel_buf_add_tail(kel_buffer buffer, uint32_t size);

/* Stores the physical address of the buffer's data and its length. Errors: EINVAL. */
KEL_API uint32_t kel_buf_get_paddr(kel_buffer buffer, uint64_t *address, uint32_t *length);

/*
 * Fills `entries` with the chain's buffers, in order. *count holds the entries available
 * before, the entries filled after the call.
 * Errors: EINVAL; ENOSPC when the chain has more buffers than *count.
 */
KEL_API uint32_t kel_buf_get_paddr_iov(kel_buffer buffer, kel_iovec *entries, uint32_t *count);

/*
 * Copies `length` bytes of the chain from `offset` on (KEL_COPY_ALL: to the end) into a
 * new chain of as few buffers as possible. Returns its head, for the caller to free,
 * charged to the client and the group of the source.
 * Errors: EINVAL, also for a stretch that is empty or leaves the chain; ENOMEM; ENOBUFS.
 * Notice: KEL_HIGH_THRESHOLD_REACHED.
 */
KEL_API kel_buffer kel_buf_duplicate(kel_buffer buffer, uint32_t offset, uint32_t length,
                                     uint32_t *error);

#endif

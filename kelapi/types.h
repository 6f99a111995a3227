/* SPDX-License-Identifier: MIT */
/*
 * Types shared by every family of the libkel interface: handles, notices and the
 * conventions that hold for all operations.
 *
 * Results. Unless an operation says otherwise it returns an error number: 0 for success or
 * a standard Linux errno value, compared by value. Operations that create a packet, a
 * buffer or a duplicate return its handle, 0 on failure, and store the error number
 * through their last argument, 0 on success, on every call; that argument may be null.
 * Where several errors apply, the one that the operation lists first is returned.
 *
 * Handles are opaque 32-bit numbers; 0 names nothing. Every operation accepts 0, a handle
 * that never existed and a stale one for any handle: it fails with its error and touches
 * no memory through the handle.
 *
 * A failing operation leaves its objects as they were, and what the caller passed remains
 * the caller's.
 *
 * Threads. Every operation may be called from any thread. Operations on different
 * objects run concurrently without locking by the caller; a packet or buffer chain is
 * used by one thread at a time.
 */
#ifndef KELAPI_TYPES_H
#define KELAPI_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KEL_EXTERN_C extern "C"
#define KEL_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define KEL_EXTERN_C extern
#define KEL_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#define KEL_API KEL_EXTERN_C __attribute__((visibility("default")))

typedef uint32_t kel_client;   /* an attachment of a process to the library */
typedef uint32_t kel_packet;   /* a packet, or a bare packet header */
typedef uint32_t kel_buffer;   /* a buffer; as an argument usually the head of a chain */
typedef uint32_t kel_bufgroup; /* a buffer group; 0 is the client's default memory */
typedef uint32_t kel_tag;      /* the number that claims packets for a client; never 0 */

/* A 64-bit field of a record that is exchanged with the library: aligned to 4 bytes. */
typedef uint64_t kel_u64_aligned4 __attribute__((aligned(4)));

/* A packet handle that names nothing, now and ever. */
#define KEL_BAD_HANDLE 0xfedcba98u

/* As a byte count of a duplicate: everything to the end. */
#define KEL_COPY_ALL 0xf0000000u

/*
 * Notices. They are given in the place of an error number, but the operation has done its work: an
 * allocation that brought a buffer group to its high threshold, a free that brought it down to its
 * low threshold.
 */
#define KEL_HIGH_THRESHOLD_REACHED 0x801Au
#define KEL_LOW_THRESHOLD_REACHED 0x801Bu

#endif

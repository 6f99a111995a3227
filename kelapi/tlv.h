/* SPDX-License-Identifier: MIT */
/*
 * TLVs: small typed data blocks that are kept with a packet or a bare packet header, apart
 * from its data, in the order in which they were allocated. Each has an id, unique on its
 * packet and never 0, a size in bytes that is fixed when it is allocated, and a 16-bit
 * version; version 0 is none. They are freed with their packet.
 *
 * EINVAL is the error for an unknown packet and for a null pointer; ENOENT for an id that
 * is not allocated on the packet, after the arguments have been checked.
 *
 * Bounds of versions are words, whose low 16 bits are compared as versions.
 */
#ifndef KELAPI_TLV_H
#define KELAPI_TLV_H

#include "kelapi/types.h"

/*
 * Allocates a TLV at the end of the packet's list, its content undefined.
 * Errors: EINVAL, also for id 0; EEXIST for an id in use; ENOSPC for a size that is not
 * offered.
 */
KEL_API uint32_t kel_tlv_alloc(kel_packet packet, uint32_t id, uint32_t size);

/* Frees a TLV; its id may be allocated again. Errors: EINVAL; ENOENT. */
KEL_API uint32_t kel_tlv_free(kel_packet packet, uint32_t id);

/*
 * Copies the TLV's data to `destination`. *length holds its capacity before and the TLV's
 * size after the call.
 * Errors: EINVAL; ENOENT, *length untouched; ENOSPC for a capacity below the size.
 */
KEL_API uint32_t kel_tlv_getdata(kel_packet packet, uint32_t id, void *destination,
                                 uint32_t *length);

/*
 * Copies `length` bytes into the TLV's data; size and version stay.
 * Errors: EINVAL; ENOENT; ENOSPC for more than the TLV's size.
 */
KEL_API uint32_t kel_tlv_setdata(kel_packet packet, uint32_t id, const void *source,
                                 uint32_t length);

/* Stores the id of the first TLV, 0 if there is none. Errors: EINVAL. */
KEL_API uint32_t kel_tlv_get_head(kel_packet packet, uint32_t *id);

/*
 * Replaces *id by the id of the TLV after it, 0 after the last.
 * Errors: EINVAL; ENOENT for an id that is not on the list.
 */
KEL_API uint32_t kel_tlv_get_next(kel_packet packet, uint32_t *id);

/* Sets the TLV's version. Errors: EINVAL, also for version 0; ENOENT. */
KEL_API uint32_t kel_tlv_version_set(kel_packet packet, uint32_t id, uint16_t version);

/* Stores the TLV's version. Errors: EINVAL; ENOENT. */
KEL_API uint32_t kel_tlv_version_get(kel_packet packet, uint32_t id, uint16_t *version);

/*
 * Succeeds when the TLV's version lies within the bounds, both inclusive.
 * Errors: EINVAL, also for a highest version that is 0 or below the lowest; ENOENT;
 * ERANGE.
 */
KEL_API uint32_t kel_tlv_version_check(kel_packet packet, uint32_t id, uint32_t lowest,
                                       uint32_t highest);

/* kel_tlv_setdata and kel_tlv_version_set in one call. Errors: as those. */
KEL_API uint32_t kel_tlv_set_versioned_data(kel_packet packet, uint32_t id, const void *source,
                                            uint32_t length, uint16_t version);

/*
 * kel_tlv_getdata for a TLV whose version lies within the bounds, both inclusive. Unlike
 * in kel_tlv_version_check a bound of 0 is no bound. The version is stored through
 * `version` unless that is null.
 * Errors: EINVAL, also for a lowest version above a highest that is not 0; ENOENT; ERANGE;
 * ENOSPC.
 */
KEL_API uint32_t kel_tlv_get_versioned_data(kel_packet packet, uint32_t id, void *destination,
                                            uint32_t *length, uint32_t lowest, uint32_t highest,
                                            uint16_t *version);

#endif

/* SPDX-License-Identifier: MIT */
/*
 * The region device: memory regions and subregions are declared and queried with ioctl
 * requests on a character device, opened for reading and writing. Every request takes the
 * address of a record in the caller's memory and fails with -1 and the reason in errno:
 * EFAULT for an address that cannot be read, EINVAL for an id that is not registered.
 */
#ifndef KELAPI_REGION_H
#define KELAPI_REGION_H

#include "kelapi/types.h"

#define KEL_DEVICE "/dev/kel"

/* Request numbers. */
#define KEL_IOCTL_REGISTER_CLIENT 0x806u
#define KEL_IOCTL_ADD_REGION 0x830u         /* kel_region_desc */
#define KEL_IOCTL_DELETE_REGION 0x831u      /* record whose first word is a region id */
#define KEL_IOCTL_ADD_SUBREGION 0x832u      /* kel_subregion_desc */
#define KEL_IOCTL_DELETE_SUBREGION 0x833u   /* record whose first word is a subregion id */
#define KEL_IOCTL_GET_REGION_INFO 0x836u    /* kel_region_desc, its id given, the rest filled */
#define KEL_IOCTL_GET_SUBREGION_INFO 0x837u /* kel_subregion_desc, likewise */

#define KEL_REGION_NAME_SIZE 32u

typedef struct kel_region_desc {
    uint32_t id;
    uint32_t memory_type;
    uint32_t size; /* bytes */
    uint32_t reserved[2];
    char name[KEL_REGION_NAME_SIZE]; /* padded with zeros */
} kel_region_desc;

KEL_STATIC_ASSERT(sizeof(kel_region_desc) == 52, "the region descriptor");

typedef struct kel_subregion_desc {
    uint32_t id;
    uint32_t parent; /* id of the region it lies in */
    uint32_t size;   /* bytes */
    uint32_t parameters[2];
    uint32_t reserved[2];
    char name[KEL_REGION_NAME_SIZE]; /* padded with zeros */
} kel_subregion_desc;

KEL_STATIC_ASSERT(sizeof(kel_subregion_desc) == 60, "the subregion descriptor");

#endif

/* SPDX-License-Identifier: MIT
 *
 * What a trivial case does with its memory, the same for all peers. */
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define WORK_SIZE 64

void work_fill(unsigned char *memory, size_t size, unsigned seed);

/* 1 when the memory holds what work_fill left there, else 0. */
int work_is_filled(const unsigned char *memory, size_t size, unsigned seed);

#ifdef __cplusplus
}
#endif

/* SPDX-License-Identifier: MIT
 *
 * The work of the trivial cases. */
#include "bench/peers/work.h"

void work_fill(unsigned char *memory, size_t size, unsigned seed)
{
    for (size_t i = 0; i < size; i++) {
        memory[i] = (unsigned char)(seed + i);
    }
}

int work_is_filled(const unsigned char *memory, size_t size, unsigned seed)
{
    for (size_t i = 0; i < size; i++) {
        if (memory[i] != (unsigned char)(seed + i)) return 0;
    }
    return 1;
}

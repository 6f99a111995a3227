/* SPDX-License-Identifier: MIT */
/* Sees the installed headers. */
#include "kelapi/kel.h"

uint32_t length_of(kel_packet packet);

uint32_t length_of(kel_packet packet)
{
    return kel_get_length(packet);
}

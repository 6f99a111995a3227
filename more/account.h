// SPDX-License-Identifier: MIT
//
// Judging what a client is charged for.
#pragma once

#include <stdint.h>

#include "kelapi/bufgroup.h"

// A count that no query stores.
constexpr uint32_t NOT_COUNTED = 0xffffffff;

// The client must be charged for `buffers` buffers, whatever their size.
inline const char *judge_client_buffers(kel_client client, uint32_t buffers)
{
    uint32_t counted = NOT_COUNTED;
    uint32_t bytes = NOT_COUNTED;

    if (kel_get_bufcount_byclient(client, &counted, &bytes)) {
        return "kel_get_bufcount_byclient failed";
    }
    return counted == buffers ? nullptr : "wrong buffer count of the client";
}

// The client must be charged for `buffers` buffers with `bytes` bytes in all.
inline const char *judge_client_count(kel_client client, uint32_t buffers, uint32_t bytes)
{
    uint32_t counted = NOT_COUNTED;
    uint32_t counted_bytes = NOT_COUNTED;

    if (const char *message = judge_client_buffers(client, buffers)) return message;
    if (kel_get_bufcount_byclient(client, &counted, &counted_bytes)) {
        return "kel_get_bufcount_byclient failed";
    }
    return counted_bytes == bytes ? nullptr : "wrong byte count of the client";
}

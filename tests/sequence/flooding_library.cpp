// SPDX-License-Identifier: MIT
//
// A libkel whose kel_get_length prints so many bytes as FLOODING_BYTES says, else without end, and
// does not return. All else is done by the library that it is linked with, or preloaded before.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "kelapi/kel.h"

extern "C" uint32_t kel_get_length(kel_packet)
{
    static constexpr char LINE[] = "kel: no length, no length, no length, no length, no length\n";
    const char *const wanted = std::getenv("FLOODING_BYTES");
    const std::size_t most = wanted == nullptr ? SIZE_MAX : std::strtoul(wanted, nullptr, 10);
    for (std::size_t printed = 0; printed < most; printed += sizeof LINE - 1) {
        if (write(STDOUT_FILENO, LINE, sizeof LINE - 1) < 0) _exit(1);
    }
    while (true) pause();
}

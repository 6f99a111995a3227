// SPDX-License-Identifier: MIT
//
// The counts, the plan, and the way to the functions behind the shim.
#include "tools/keltrace/state.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <dlfcn.h>
#include <unistd.h>

namespace keltrace {

constinit std::array<std::atomic<std::uint64_t>, OPERATION_COUNT> call_counts{};
constinit fault_plan *plan = nullptr;

void *next_function(std::atomic<void *> &found, const char *name)
{
    void *function = found.load(std::memory_order_relaxed);
    if (function != nullptr) return function;
    function = dlsym(RTLD_NEXT, name);
    if (function == nullptr) {
        dprintf(STDERR_FILENO, "keltrace: no library has %s\n", name);
        _exit(2);
    }
    found.store(function, std::memory_order_relaxed);
    return function;
}

void pause_for(std::uint64_t milliseconds)
{
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000 * 1000000)};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

} // namespace keltrace

// SPDX-License-Identifier: MIT
//
// What the shim stands before: the operations of libkel and, beside them, the calls to the system
// that it knows.
#pragma once

#include <array>
#include <cstddef>

#include "tools/common/interface.h"

namespace keltrace {

using namespace interface;

// What tavor takes from the system, and can be refused or told otherwise.
#define KELTRACE_SYSTEM_CALLS(CALL)                                                                \
    CALL(malloc)                                                                                   \
    CALL(calloc)                                                                                   \
    CALL(pthread_create)                                                                           \
    CALL(select)                                                                                   \
    CALL(open)                                                                                     \
    CALL(ioctl)                                                                                    \
    CALL(sleep)                                                                                    \
    CALL(gettimeofday)

enum class operation : unsigned {
#define OPERATION(name, ...) name,
#include "kelapi/operations.def"
#define KELTRACE_CALL(name) system_##name,
    KELTRACE_SYSTEM_CALLS(KELTRACE_CALL)
#undef KELTRACE_CALL
};

inline constexpr std::size_t OPERATION_COUNT = std::size(OPERATIONS)
#define KELTRACE_CALL(name) +1
    KELTRACE_SYSTEM_CALLS(KELTRACE_CALL)
#undef KELTRACE_CALL
    ;

inline constexpr auto OPERATION_INFO = [] {
    std::array<operation_info, OPERATION_COUNT> all{};
    std::size_t filled = 0;
    for (const operation_info &each : OPERATIONS) all[filled++] = each;
#define KELTRACE_CALL(name) all[filled++] = {#name, #name, true, result_kind::nothing, 0, {}};
    KELTRACE_SYSTEM_CALLS(KELTRACE_CALL)
#undef KELTRACE_CALL
    return all;
}();

constexpr const operation_info &info(operation which)
{
    return OPERATION_INFO[static_cast<std::size_t>(which)];
}

} // namespace keltrace

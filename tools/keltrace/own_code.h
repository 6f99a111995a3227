// SPDX-License-Identifier: MIT
//
// Whether a call comes from the main program's own code. Calls that libkel and the C library make
// for themselves pass through the shim untouched and uncounted.
#pragma once

#include <atomic>
#include <cstdint>

namespace keltrace {

namespace own_code {

// Empty until the shim has been set up, so that nothing counts before main.
extern std::atomic<std::uintptr_t> begin;
extern std::atomic<std::uintptr_t> end;

// Finds the main program; from here on its calls count.
void find();

} // namespace own_code

inline bool is_own_code(const void *return_address)
{
    const auto address = reinterpret_cast<std::uintptr_t>(return_address);
    return address < own_code::end.load(std::memory_order_acquire) &&
           address >= own_code::begin.load(std::memory_order_relaxed);
}

} // namespace keltrace

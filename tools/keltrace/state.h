// SPDX-License-Identifier: MIT
//
// What all calls share: the counts and the plan. Everything is in place before main, and nothing
// is torn down, since other threads may still call while the process ends.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <span>

#include "tools/keltrace/fault_plan.h"

namespace keltrace {

extern std::array<std::atomic<std::uint64_t>, OPERATION_COUNT> call_counts;

// Null: no faults.
extern fault_plan *plan;

// Counts a call of tavor's own and returns its number, from 1.
inline std::uint64_t count_call(operation which)
{
    auto &count = call_counts[static_cast<std::size_t>(which)];
    return count.fetch_add(1, std::memory_order_relaxed) + 1;
}

inline std::span<fault *const> faults_of(operation which)
{
    if (plan == nullptr) return {};
    return plan->by_operation[static_cast<std::size_t>(which)];
}

// The function of that name behind the shim; looked up once. Ends the process when there is none.
void *next_function(std::atomic<void *> &found, const char *name);

void pause_for(std::uint64_t milliseconds);

} // namespace keltrace

// SPDX-License-Identifier: MIT
//
// Carries out a plan on a library with threads of this process, and records the history.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "tools/histories/history.h"
#include "tools/histories/plan.h"
#include "tools/sequence/library.h"

namespace histories {

// Where the calls of a plan are, for the process that watches. Thread 0 is the first one.
struct progress {
    struct of_thread {
        // Of the planned steps those whose calls have begun.
        std::array<std::atomic<bool>, std::size_t{CALLS_MAX} * STEPS_A_CALL> are_begun;
        std::atomic<sequence::operation> operation; // of the last call
        std::atomic<bool> is_calling;
    };
    std::atomic<std::uint64_t> moves; // changes with every call
    std::array<of_thread, THREADS_MAX + 1> threads;
};

// When all threads have ended, the first one empties the queues, frees what is left, asks for all
// counts and ends the clients: what was lost, or counted wrongly, shows there.
history record(const sequence::library &tested, const plan &planned, progress &shown);

} // namespace histories

// SPDX-License-Identifier: MIT
//
// What the two processes of a lane share with the one that started them: two batches that go round
// between them, and where the calls have come to. Nothing here asks the system for every call.
#pragma once

#include <semaphore.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "tools/explore/batch.h"
#include "tools/explore/recorder.h"

namespace explore {

// The call whose answer was not the expected one.
struct difference_report {
    std::uint32_t slot = 0;
    std::uint32_t sequence = 0; // of the batch
    std::uint32_t call = 0;     // of the sequence
};

struct exchange {
    static constexpr std::size_t SLOTS = 2;
    // Of each operation and part the first few differences are reported, the others counted.
    static constexpr std::uint32_t REPORTED = 3;
    static constexpr std::size_t PARTS = 16;

    sem_t free_slots;
    sem_t filled_slots;
    sem_t taken_reports;
    std::array<batch, SLOTS> slots;

    // The maker's.
    std::atomic<bool> is_stopped; // no further batch is wanted
    std::atomic<bool> is_made;    // all batches are
    std::atomic<std::uint64_t> reached_count;
    std::array<std::uint64_t, 4096> reached; // operation and error

    // Where the calls are: `moves` changes with each.
    std::atomic<std::uint64_t> moves;
    std::atomic<std::uint32_t> slot;
    std::atomic<std::uint32_t> sequence;
    std::atomic<std::uint32_t> call;
    std::atomic<bool> is_calling;  // a call of the library is under way
    std::atomic<bool> is_in_batch; // the slot is not given back yet
    std::atomic<std::uint64_t> sequences_done;
    std::atomic<std::uint64_t> calls_done;
    std::atomic<std::uint64_t> differences;
    std::atomic<bool> wants_replacement;
    std::atomic<bool> is_done;
    std::atomic<bool> is_refused; // the library cannot be loaded
    std::atomic<bool> is_started; // it has been

    std::atomic<bool> has_report;
    difference_report report;
    std::array<std::array<std::uint32_t, PARTS>, OPERATION_COUNT> reported;
};

// Memory that children share; zeros. Lives until the process ends.
exchange &make_exchange();

} // namespace explore

// SPDX-License-Identifier: MIT
//
// Waiting for the library's lock.

#include "reference/mutex.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

namespace kel_reference {

namespace {

constexpr int YIELDS = 100; // some 30 microseconds while nobody else wants the processor

bool membarrier(int command)
{
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

void futex(std::atomic<std::uint32_t> &word, int operation, std::uint32_t value)
{
    static_assert(sizeof word == sizeof value);
    syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
}

mutex::barriers offered(mutex::barriers wanted)
{
    const bool by_waiters = wanted == mutex::barriers::by_waiters &&
                            membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
    return by_waiters ? wanted : mutex::barriers::by_releases;
}

} // namespace

mutex::mutex(barriers wanted) : barriers_are_made(offered(wanted)) {}

// What is done under the lock mostly takes less time than to fall asleep and be woken.
bool mutex::yield_and_lock()
{
    for (int turn = 0; turn < YIELDS; turn++) {
        std::this_thread::yield();
        if (word.load(std::memory_order_relaxed) == FREE && try_lock()) return true;
    }
    return false;
}

// A release either was over before the barrier, and is seen here, or sees the mark. A waiter that
// was woken sets the mark again: there may be others.
void mutex::wait_and_lock()
{
    if (yield_and_lock()) return;
    while (true) {
        const std::uint32_t wakes_before = wakes.load();
        is_awaited.store(true);
        if (barriers_are_made == barriers::by_waiters) {
            membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
        } else {
            std::atomic_thread_fence(std::memory_order_seq_cst);
        }
        if (try_lock()) return;
        futex(wakes, FUTEX_WAIT, wakes_before);
    }
}

// The mark goes before the count, so that one that is set meanwhile and lost is made up for: its
// waiter finds another count than it read before setting it, and does not sleep.
void mutex::wake_one()
{
    is_awaited.store(false);
    wakes.fetch_add(1);
    futex(wakes, FUTEX_WAKE, 1);
}

} // namespace kel_reference

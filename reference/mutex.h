// SPDX-License-Identifier: MIT
//
// The library's lock, made for being free when it is taken. Of the two atomic exchanges that a
// mutex of the C library costs, the release needs its one only to see whether somebody waits.
// Here the release stores and looks, and the barrier between the two, without which each could
// miss the other, is made by the one who is about to wait: the system has all running threads of
// the process pass one (membarrier). Where it does not offer that, each release makes its own.
//
// Meets Lockable. It is not recursive, and not to be destroyed while a thread may use it.
#pragma once

#include <atomic>
#include <cstdint>

namespace kel_reference {

class mutex {
public:
    enum class barriers { by_waiters, by_releases };

    // By releases where the system does not offer the other.
    explicit mutex(barriers wanted = barriers::by_waiters);
    mutex(const mutex &) = delete;
    mutex &operator=(const mutex &) = delete;

    void lock()
    {
        if (!try_lock()) wait_and_lock();
    }

    bool try_lock()
    {
        std::uint32_t expected = FREE;
        return word.compare_exchange_strong(expected, TAKEN, std::memory_order_acquire,
                                            std::memory_order_relaxed);
    }

    void unlock()
    {
        word.store(FREE, std::memory_order_release);
        if (barriers_are_made == barriers::by_waiters) {
            std::atomic_signal_fence(std::memory_order_seq_cst);
        } else {
            std::atomic_thread_fence(std::memory_order_seq_cst);
        }
        if (is_awaited.load(std::memory_order_relaxed)) wake_one();
    }

private:
    static constexpr std::uint32_t FREE = 0;
    static constexpr std::uint32_t TAKEN = 1;

    bool yield_and_lock();
    void wait_and_lock();
    void wake_one();

    std::atomic<std::uint32_t> word = FREE;
    std::atomic<std::uint32_t> wakes = 0; // so far; what waiters sleep on
    std::atomic<bool> is_awaited = false; // by one who sleeps, or is about to, and was not woken
    const barriers barriers_are_made;
};

} // namespace kel_reference

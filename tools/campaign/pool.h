// SPDX-License-Identifier: MIT
//
// The same work for many things, several at once.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace campaign {

// What only waits needs no processor: so many runs may do so beside those that compute.
constexpr std::size_t WAITING_RUNS = 64;

// The idle ones. No std::counting_semaphore: giving one back there wakes every thread that waits
// for one, and dozens do.
class processors {
public:
    explicit processors(std::size_t count) : idle(count) {}

    void acquire()
    {
        std::unique_lock lock(access);
        one_is_idle.wait(lock, [this] { return idle != 0; });
        idle--;
    }

    void release()
    {
        {
            const std::lock_guard lock(access);
            idle++;
        }
        one_is_idle.notify_one();
    }

private:
    std::mutex access;
    std::condition_variable one_is_idle;
    std::size_t idle;
};

// A processor, held while a run computes.
class processor {
public:
    explicit processor(processors &of) : all(of) { all.acquire(); }
    processor(const processor &) = delete;
    processor &operator=(const processor &) = delete;
    ~processor() { give_back(); }

    // Early, for good.
    void give_back()
    {
        if (held) {
            all.release();
        }
        held = false;
    }

private:
    processors &all;
    bool held = true;
};

// Calls work(i, processor) for each i below `count`, in order, on as many threads as there are idle
// processors, and on further ones as processors are given back. Once a call returns false or
// throws, no further ones begin; the first exception is thrown on when all have ended.
template <typename Work> void in_parallel(std::size_t count, processors &idle, const Work &work)
{
    std::atomic<std::size_t> next{0};
    std::atomic<bool> stopped{false};
    std::exception_ptr first_error;
    std::once_flag has_failed;
    std::vector<std::jthread> pool;
    for (std::size_t i = 0; i < std::min(count, WAITING_RUNS); i++) {
        pool.emplace_back([&] {
            try {
                while (!stopped) {
                    processor held(idle);
                    const std::size_t at = next++;
                    if (at >= count || stopped || !work(at, held)) {
                        stopped = true;
                    }
                }
            } catch (...) {
                stopped = true;
                std::call_once(has_failed, [&] { first_error = std::current_exception(); });
            }
        });
    }
    pool.clear(); // waits for all
    if (first_error) {
        std::rethrow_exception(first_error);
    }
}

} // namespace campaign

// SPDX-License-Identifier: MIT
//
// The same work for many things, several at once.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace campaign {

// Calls work(i) for each i below `count`, in order, on so many threads. Once a call returns false
// or throws, no further ones begin; the first exception is thrown on when all have ended.
template <typename Work> void in_parallel(std::size_t count, unsigned at_once, const Work &work)
{
    std::atomic<std::size_t> next{0};
    std::atomic<bool> stopped{false};
    std::exception_ptr first_error;
    std::once_flag has_failed;
    std::vector<std::jthread> pool;
    for (unsigned i = 0; i < std::max(1u, at_once); i++) {
        pool.emplace_back([&] {
            try {
                for (std::size_t at = next++; at < count && !stopped; at = next++) {
                    if (!work(at)) {
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

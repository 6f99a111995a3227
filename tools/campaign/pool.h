// SPDX-License-Identifier: MIT
//
// The same work for many things, several at once.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace campaign {

// Calls work(i) for each i below `count`, in order, on so many threads. Once a call returns false,
// no further ones begin.
template <typename Work> void in_parallel(std::size_t count, unsigned at_once, const Work &work)
{
    std::atomic<std::size_t> next{0};
    std::atomic<bool> stopped{false};
    std::vector<std::jthread> pool;
    for (unsigned i = 0; i < std::max(1u, at_once); i++) {
        pool.emplace_back([&] {
            for (std::size_t at = next++; at < count && !stopped; at = next++) {
                if (!work(at)) {
                    stopped = true;
                }
            }
        });
    }
}

} // namespace campaign

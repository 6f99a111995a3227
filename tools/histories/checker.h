// SPDX-License-Identifier: MIT
//
// Whether the answers of a history are those of some order of its calls in which no call comes
// before one that had returned before it began. The order is searched for by depth, as Wing and
// Gong do, with memory of where the search has been, as Lowe does. A step of the model is the call
// made on the reference library; to go back, the calls before are made again.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "tools/histories/history.h"
#include "tools/sequence/comparison.h"
#include "tools/sequence/library.h"

namespace histories {

enum class outcome { legal, illegal, undecided };

// A call that does not fit after the longest legal path, with the answer that would.
struct misfit {
    std::size_t call = 0;
    sequence::answer expected{};
    sequence::difference difference{};
};

struct verdict {
    histories::outcome outcome = outcome::undecided;
    std::vector<std::size_t> path{}; // legal: the order; else the longest legal one
    std::vector<misfit> misfits{};   // illegal: each call that could come next
    std::size_t calls = 0;           // that were made on the model
};

// Not to be used by two threads at a time.
class checker {
public:
    // The library is the reference library in this process, under the profile of the one under
    // test; it has no other user.
    explicit checker(const sequence::library &model);
    ~checker();
    checker(const checker &) = delete;
    checker &operator=(const checker &) = delete;

    // Undecided when the search has used up `limit` of this process's processor time.
    verdict check(const history &whole, std::chrono::milliseconds limit);

private:
    const sequence::library &model_;
    std::uint64_t awake_ = 0; // a client: the library's daemon lives as long as there is one
};

} // namespace histories

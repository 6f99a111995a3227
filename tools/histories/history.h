// SPDX-License-Identifier: MIT
//
// A history: what several threads called at the same time, what they were answered, and which call
// had returned before which began.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sequence/sequence.h"

namespace histories {

// Moments of one counter that all threads share: every begin and every end has its own.
struct interval {
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
};

// The first thread is alone before the others begin and after they have ended.
inline constexpr std::uint16_t FIRST_THREAD = 1;

struct history {
    sequence::call_sequence made;  // in the order in which the calls returned
    std::vector<interval> times{}; // one a call
};

// From one process to another of the same program. A message that is no history throws
// std::runtime_error.
std::string to_message(const history &whole);
history from_message(std::string_view message);

} // namespace histories

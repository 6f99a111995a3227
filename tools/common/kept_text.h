// SPDX-License-Identifier: MIT
//
// Text that may become too long to be kept whole.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace tools {

// So much of what a case prints is kept, bytes.
inline constexpr std::size_t KEPT_OUTPUT = 1 << 20;

// Keeps its beginning and its end, each up to half of the limit.
class kept_text {
public:
    explicit kept_text(std::size_t limit) : half(limit / 2) {}

    void append(std::string_view piece)
    {
        const std::string_view first = piece.substr(0, half - head.size());
        head += first;
        tail += piece.substr(first.size());
        // Seldom, as each time all that is kept is moved.
        if (tail.size() / 2 > half) {
            forget_middle();
        }
    }

    bool empty() const { return head.empty(); }

    // With a line in between that says how much is missing. A smaller limit shortens what was kept.
    std::string take(std::size_t limit = SIZE_MAX)
    {
        half = std::min(half, limit / 2);
        if (head.size() > half) {
            tail.insert(0, head, half);
            head.resize(half);
        }
        if (tail.size() > half) {
            forget_middle();
        }
        return left_out == 0
                   ? head + tail
                   : head + "\n[" + std::to_string(left_out) + " bytes left out]\n" + tail;
    }

private:
    void forget_middle()
    {
        const std::size_t surplus = tail.size() - half;
        tail.erase(0, surplus);
        left_out += surplus;
    }

    std::size_t half;
    std::string head;
    std::string tail;
    std::size_t left_out = 0;
};

} // namespace tools

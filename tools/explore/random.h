// SPDX-License-Identifier: MIT
//
// Random numbers that a seed decides, the same on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace explore {

// splitmix64: the state is the seed, so that each sequence can have a generator of its own.
class random_numbers {
public:
    explicit random_numbers(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next()
    {
        std::uint64_t mixed = state_ += 0x9e3779b97f4a7c15;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
        return mixed ^ (mixed >> 31);
    }

    // From 0 to count - 1; 0 when there is nothing to choose from.
    std::uint32_t below(std::uint64_t count)
    {
        return count == 0 ? 0 : static_cast<std::uint32_t>((next() >> 32) * count >> 32);
    }

    bool chance(std::uint32_t percent) { return below(100) < percent; }

    template <typename type> type one_of(std::initializer_list<type> all)
    {
        return all.begin()[below(all.size())];
    }

private:
    std::uint64_t state_;
};

} // namespace explore

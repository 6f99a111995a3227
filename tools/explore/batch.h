// SPDX-License-Identifier: MIT
//
// Many sequences in memory that two processes share: one writes them with the right answers, the
// other makes their calls on the library under test. Calls are kept compactly, without a single
// allocation; convert.h makes sequences for people of them.
#pragma once

#include <semaphore.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "tools/sequence/sequence.h"

namespace explore {

using sequence::scalar;

// One argument. Records and bytes stand in the batch's pools.
struct flat_argument {
    sequence::value_kind kind = sequence::value_kind::absent;
    std::uint32_t begin = 0; // in the pool
    std::uint32_t count = 0; // of scalars or bytes
    scalar one{};
};

struct flat_call {
    sequence::operation operation = 0;
    std::uint32_t arguments = 0; // the first one's index in the pool
    std::uint32_t expected = 0;  // the answer's first scalar in the pool
    std::uint32_t expected_count = 0;
};

// Of an expected answer: the result, then what is stored, in the order of the parameters. What the
// two numbers mean follows from the place:
//   handle   name: the variable; number: IS_NEW when this call gives it
//   address  name: where it belongs to; number: the distance from the first one there
//   data     name: where it begins in the pool of bytes; number: how many, HAS_MASK
//   others   the number
constexpr std::uint64_t IS_NEW = 1;
// After the data stand as many bytes: those that are not 0 mean nothing.
constexpr std::uint64_t HAS_MASK = std::uint64_t{1} << 63;

// Where an answer gives a name: the place as sequence::call::names counts them. Addresses get their
// variables when the sequence is written down.
struct flat_name {
    std::uint32_t call = 0;
    std::uint16_t place = 0;
    sequence::role what = sequence::role::number;
    std::int32_t name = sequence::NO_VARIABLE;
};

struct flat_sequence {
    std::uint64_t index = 0; // in the whole run
    std::uint32_t begin = 0; // of its calls
    std::uint32_t count = 0;
    std::uint32_t names_begin = 0;
    std::uint32_t names_count = 0;
};

constexpr std::size_t BATCH_SEQUENCES = 128;

// A pool that is filled from its begin.
template <typename type, std::size_t size> struct pool {
    std::array<type, size> items;
    std::uint32_t used;

    std::uint32_t add(const type &one)
    {
        items[used] = one;
        return used++;
    }
    std::size_t left() const { return size - used; }
};

struct batch {
    std::uint32_t sequence_count;
    std::array<flat_sequence, BATCH_SEQUENCES> sequences;
    pool<flat_call, 32768> calls;
    pool<flat_argument, 131072> arguments;
    pool<scalar, 262144> scalars;
    pool<flat_name, 65536> names;
    pool<std::uint8_t, std::size_t{16} << 20> bytes;

    void clear()
    {
        sequence_count = calls.used = arguments.used = scalars.used = names.used = bytes.used = 0;
    }
    // Whether there is room for another sequence, however large.
    bool has_room() const
    {
        return sequence_count < BATCH_SEQUENCES && calls.left() > 1024 && arguments.left() > 8192 &&
               scalars.left() > 65536 && names.left() > 8192 &&
               bytes.left() > (std::size_t{8} << 20);
    }
    std::span<const flat_argument> arguments_of(const flat_call &made, std::size_t count) const
    {
        return std::span(arguments.items).subspan(made.arguments, count);
    }
};

} // namespace explore

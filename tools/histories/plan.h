// SPDX-License-Identifier: MIT
//
// What the threads of a history are to call: drawn from a seed, and only what the contract promises
// to threads. A packet, a buffer or a dynamic tag stands in a slot of the one thread that has it;
// clients, queues, tags, roles, groups and events are shared. A step whose slots do not hold what
// it needs when its turn comes is left out: what is there depends on the answers before.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/sequence/sequence.h"

namespace histories {

struct shape {
    unsigned threads = 4;
    unsigned calls = 8; // of each
};

inline constexpr unsigned THREADS_MAX = 8;
inline constexpr unsigned CALLS_MAX = 32;

// Steps are left out when their slots do not hold what they need.
inline constexpr unsigned STEPS_A_CALL = 4;

inline constexpr std::size_t PACKET_SLOTS = 3;
inline constexpr std::size_t BUFFER_SLOT = PACKET_SLOTS;
inline constexpr std::size_t TAG_SLOT = PACKET_SLOTS + 1;
inline constexpr std::size_t SLOTS = PACKET_SLOTS + 2;
inline constexpr int NO_SLOT = -1;

// An argument that is what a slot holds.
struct slot_use {
    std::size_t argument;
    std::size_t slot;
};

struct step {
    sequence::call made{};
    std::vector<slot_use> uses{};
    int fills = NO_SLOT;   // with what the call gives; it must be empty
    int empties = NO_SLOT; // once the call has succeeded
    // Before the call: turns of an empty loop, and a meeting with steps of other threads.
    std::uint32_t turns = 0;
    int meeting = -1;
};

using slot_names = std::array<sequence::variable, SLOTS>;

struct plan {
    std::vector<sequence::variable_info> variables{};
    std::vector<sequence::call> before{}; // by the first thread
    std::vector<std::vector<step>> threads{};
    std::vector<slot_names> held{}; // by each thread when it begins
    std::size_t meetings = 0;       // of two steps each
    std::size_t calls = 0;          // that each thread makes; it has more steps than that
    std::vector<sequence::variable> clients{};
    std::vector<sequence::variable> groups{}; // that all clients have registered
    std::vector<std::uint64_t> tags{};        // static ones
    bool has_events = false;
};

plan make_plan(std::uint64_t seed, std::uint64_t index, const shape &asked);

// The client that the thread allocates its dynamic tag for.
sequence::variable tag_owner(const plan &whole, std::size_t thread);

// A call of that name with numbers, variables, or nothing for what is only written.
sequence::call call_of(std::string_view operation, std::vector<sequence::value> arguments);
sequence::value named(sequence::variable name);
sequence::value number(std::uint64_t one);

} // namespace histories

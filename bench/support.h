// SPDX-License-Identifier: MIT
//
// What the benchmarks of the library share.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

#include "kelapi/kel.h"

namespace library_bench {

constexpr kel_tag TAG = 1000;
constexpr std::uint32_t SIZE = 1500;

// A client that receives its own packets.
class client {
public:
    explicit client(kel_tag tag = TAG);
    client(const client &) = delete;
    client &operator=(const client &) = delete;
    ~client();
    operator kel_client() const { return handle; }
    // Has its descriptor made, which shows signals from then on.
    bool has_descriptor() const;
    // A packet that comes back when it is sent.
    kel_packet new_packet(std::uint32_t size = SIZE) const;

private:
    kel_client handle = 0;
    kel_tag tag = 0;
};

void require(benchmark::State &state, bool holds, const char *what);

// Copies SIZE bytes as a program does whose compiler does not know how many.
void copy(char *destination, const char *source);

// Adds a column: what an iteration costs in copies of SIZE bytes. To be made right before the
// iterations; a copy is timed at that moment, too.
class copies_column {
public:
    explicit copies_column(benchmark::State &measured);
    copies_column(const copies_column &) = delete;
    copies_column &operator=(const copies_column &) = delete;
    ~copies_column();

private:
    benchmark::State &state;
    double copy_seconds;
    double begin;
};

// The operations that several benchmarks repeat.
void get_and_free(benchmark::State &state, kel_client owner, std::uint32_t size = SIZE);
void send_and_receive(benchmark::State &state, kel_client owner, kel_packet packet);

// Runs the benchmarks beside a client that lives from the first to the last. With a client
// there is the daemon's thread, and in a process with two threads the C library's locks are real
// ones: measuring its peers without would favour them.
int run(int count, char **arguments);

} // namespace library_bench

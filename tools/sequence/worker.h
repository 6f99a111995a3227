// SPDX-License-Identifier: MIT
//
// A sequence made on a library in processes of their own: whatever the library does there is an
// answer.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/sequence/sequence.h"

namespace sequence {

// A library, and what its environment is to say.
struct library_setup {
    std::string path;                       // a file, or a folder that has libkel.so
    std::vector<std::string> environment{}; // "NAME=value"; "NAME" alone: not set
};

// How long the call is told to wait; 0 where it is not, or without an end.
std::chrono::milliseconds told_time(const call &made);

// For this process; before the library is opened, and while there is no other thread.
void set_environment(const library_setup &setup);

struct limits {
    // How long a call may take beside the time that it is told to wait.
    std::chrono::milliseconds call{2000};
};

// What to make: the calls before `end`.
struct job {
    library_setup setup;
    std::size_t end = ~std::size_t{0};
    const call_sequence *made = nullptr; // null: the one that is given for all jobs
};

// The answers of one job, as far as it came: none of calls that had not begun when one hung or
// crashed. Those that waited beside it, or when a job ended before the sequence does, are
// unreturned.
using answers = std::vector<answer>;

// Makes the sequence once for each job, many at a time. Throws tools::usage_error when a library
// cannot be opened. Called by one thread at a time, from a process that has no other.
std::vector<answers> run_all(const call_sequence &made, const std::vector<job> &jobs,
                             const limits &allowed = {});
// Each job has a sequence of its own.
std::vector<answers> run_all(const std::vector<job> &jobs, const limits &allowed = {});

answers run_one(const call_sequence &made, const job &what, const limits &allowed = {});

// What the library prints on standard output while it is loaded.
std::string printed_when_loaded(const library_setup &setup);

} // namespace sequence

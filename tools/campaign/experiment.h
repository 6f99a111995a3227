// SPDX-License-Identifier: MIT
//
// One run of one case under given faults, in a process of its own, and what became of it.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/tavor_output/table.h"

namespace campaign {

// Where the programs are and how long a run may take.
struct setting {
    std::string tavor;
    std::string shim;                    // libkeltrace.so
    std::string library_path;            // folder of libkel.so; empty: as tavor finds it by itself
    std::string options;                 // the reference library's open choices
    std::chrono::milliseconds timeout{}; // as run_watch has it
    bool has_reference = false;          // the library is the reference library, which reports, too
};

struct experiment {
    std::string test;
    std::string faults; // the shim's and the library's
};

using tavor_output::verdict;

struct observation {
    std::optional<verdict> judged{};
    std::string message;        // of a failure, as shown
    bool fault_was_hit = false; // a call that it names was made
    bool fault_fired = false;   // and something was done to it
    int signal = 0;
    int exit_status = 0;
    bool timed_out = false;
    std::vector<std::string> left;         // what the run did not release: "kind count"
    std::map<std::string, unsigned> calls; // of each operation
    std::string errors;                    // standard error
    std::chrono::microseconds wall_time{};
};

// `waits` is called once the run waits instead of computing, if it ever does. Throws
// std::runtime_error when a report of a run that ended by itself is missing or cut, and
// tools::interrupted.
observation observe(const setting &where, const experiment &what,
                    const std::function<void()> &waits = {});

// The shim's trace of a faultless run of the case.
std::string trace_of(const setting &where, const std::string &test);

// The environment and the command that repeat the experiment, as a line for the shell.
std::string repeat_line(const setting &where, const experiment &what);

} // namespace campaign

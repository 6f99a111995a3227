// SPDX-License-Identifier: MIT
//
// Runs another program, collects what it prints and tells how it ended.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

struct process_options {
    std::vector<std::string> arguments{};   // the program first; looked up in PATH
    std::vector<std::string> environment{}; // "NAME=value", added to this process's own
    std::chrono::milliseconds timeout{0};   // 0: none. After it the process group is killed,
    int timeout_signal = 0;                 // first with this signal, where it is not 0
    // Asked all the while, a moment after which it is ended in the same way; it may move.
    std::function<std::chrono::steady_clock::time_point()> deadline{};
    // Asked with the process's id about fifty times a second; true ends it in the same way.
    std::function<bool(pid_t)> is_over{};
    // Called with each piece of standard output as it comes; true asks for `stop_signal`.
    std::function<bool(std::string_view)> on_output{};
    // Sent when this program is asked to stop soon (see interrupt.h); asked to stop now, or with 0
    // here, it ends the process as after a time-out.
    int stop_signal = 0;
    // Of longer output and errors beginning and end are kept, this many bytes of each stream.
    std::size_t kept = SIZE_MAX;
};

struct process_result {
    std::string output; // standard output
    std::string errors; // standard error
    int exit_status = -1;
    int signal = 0; // that ended it, else 0
    bool timed_out = false;
    bool interrupted = false; // ended because this program was asked to stop
    bool started = false;     // false: no such program, or no resources; `errors` tells
    std::chrono::microseconds wall_time{0};
    std::chrono::microseconds cpu_time{0};
    long peak_memory_kib = 0;

    bool exited_with(int status) const { return started && signal == 0 && exit_status == status; }
};

// The program gets /dev/null as standard input and a process group of its own. It is killed when
// the thread that follows it dies, for instance with this program. Safe to call from several
// threads at once.
process_result run_process(const process_options &options);

// The same for a program without which there is no going on: throws tools::interrupted when this
// program was asked to stop, and std::runtime_error when the other cannot be started.
process_result required_process(const process_options &options);

// The signal's name, such as "SIGSEGV".
std::string signal_name(int signal);

// An argument vector as a line for the shell.
std::string shell_line(const std::vector<std::string> &environment,
                       const std::vector<std::string> &arguments);

// The texts as an argument or environment vector with its null at the end; as long as they live.
std::vector<char *> pointers_to(std::vector<std::string> &texts);

} // namespace tools

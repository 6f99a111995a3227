// SPDX-License-Identifier: MIT
//
// Starts tavor: on this machine, or through a command on another one.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/common/process.h"
#include "tools/tavor-run/run/identity.h"

namespace tavor_run {

struct launch_options {
    std::string tavor = "tavor";
    std::string through{};        // a shell command; tavor's command line is put behind it
    std::string library_folder{}; // where libkel.so is looked for first
    std::string shim{};           // libkeltrace.so, empty: none
    unsigned traced_calls = 12;
    bool census = false; // the shim tells which objects are left
};

struct command {
    std::vector<std::string> environment{};
    std::vector<std::string> arguments{};
};

class launcher {
public:
    explicit launcher(launch_options how);

    // tavor with these arguments, with the shim in front of the library where `traced`.
    command tavor(const std::vector<std::string> &arguments, bool traced = false) const;

    // As it is typed into a shell, with the settings that are in this process's environment.
    std::string shell_text(const command &what) const;

    // Fills in what is to be run in `process`, and runs it.
    tools::process_result run(const command &what, tools::process_options process = {}) const;

    // On this machine, not through a command.
    bool is_here() const { return options.through.empty(); }
    bool can_trace() const
    {
        return !options.shim.empty() && (options.traced_calls > 0 || options.census);
    }

    program_identity identify() const;

private:
    std::string command_line(const command &what) const;
    std::string answer_of(const command &question) const;
    std::string bytes_of(const std::string &path) const;

    launch_options options;
};

} // namespace tavor_run

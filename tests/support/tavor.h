// SPDX-License-Identifier: MIT
//
// Running tavor from a test.
#pragma once

#include <string>
#include <vector>

#include "tools/common/process.h"

namespace support {

struct run_options {
    std::string faults{}; // for the shim; without any the shim is not loaded
    std::vector<std::string> environment{};
    std::string stop_after{}; // SIGINT once standard output holds this ...
    int stop_after_count = 1; // ... so many times
};

// Runs tavor with these arguments against the reference library.
tools::process_result run_tavor(const std::vector<std::string> &arguments,
                                const run_options &options = {});

// Runs a program; the environment is added to this process's own.
tools::process_result run(const std::string &program, const std::vector<std::string> &words,
                          const std::vector<std::string> &environment = {});

// The lines of a text, without their ends.
std::vector<std::string> lines_of(const std::string &text);

// The text cut or padded with blanks to `width`.
std::string padded(const std::string &text, std::size_t width);

} // namespace support

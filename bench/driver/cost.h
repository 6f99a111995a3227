// SPDX-License-Identifier: MIT
//
// What running a program costs, and figures of several runs.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace bench {

using command = std::vector<std::string>; // the program first; looked up in PATH

struct cost {
    double cpu = 0; // seconds, with all processes that it waited for
    double wall = 0;
};

// The mean of so many starts, one after the other, output to /dev/null. Throws std::runtime_error
// when one of them cannot be started or is killed; what exit status means is the caller's business:
// one of the peers returns the number of its cases.
cost cost_of(const command &program, unsigned starts = 1,
             const std::vector<std::string> &environment = {});

// What main has cost at each fflush and, last, at its end.
std::vector<cost> cost_at_flushes(const command &program, const std::filesystem::path &scratch);

// What main costs without the start of the process: the median of so many runs.
cost cost_of_main(const command &program, unsigned starts, const std::filesystem::path &scratch);

// The most memory, in KiB, that the program itself has held at a time.
double peak_memory_of(const command &program);

// Of one run that must end with status 0: else std::runtime_error with what it printed.
cost cost_of_success(const command &program);

// What it prints. Throws std::runtime_error when it does not end with status 0.
std::string output_of(const command &program, const std::vector<std::string> &environment = {});

struct summary {
    double median = 0;
    double least = 0;
    double most = 0;
};

summary summary_of(std::vector<double> values);

} // namespace bench

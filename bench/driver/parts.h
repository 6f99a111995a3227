// SPDX-License-Identifier: MIT
//
// The parts of the benchmark. Each prints a section of Markdown, and throws std::runtime_error when
// something that it measures does not do what it should.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace bench {

struct settings {
    unsigned repetitions = 5;
    unsigned starts = 100; // of a program that ends at once, for each repetition
    unsigned jobs = 2;
    bool all_peers = false;       // every framework, not cmocka alone
    std::filesystem::path folder; // for what is built to be measured
    std::vector<std::string> library_programs;
};

// Trivial cases under tavor's runner and under its peers.
void measure_runner(std::ostream &out, const settings &how);

// The real cases: a full run, and what each of them takes beside its waits.
void measure_cases(std::ostream &out, const settings &how);

// Runs of the fault campaign beside bare starts of a process.
void measure_campaign(std::ostream &out, const settings &how);

// A clean build of everything, and one after a suite was touched.
void measure_build(std::ostream &out, const settings &how);

// The programs that measure operations of the reference library.
void measure_library(std::ostream &out, const settings &how);

} // namespace bench

// SPDX-License-Identifier: MIT
//
// Results as JSON, an object a line: what other programs read, what later runs are compared
// with, and where the cases that failed last are remembered.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/tavor-run/results/results.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

// In the first line of each file.
constexpr int RESULTS_FORMAT = 1;

struct stored_run {
    std::string path{};
    std::string started{};
    program_identity identity{};
    std::vector<outcome> results{}; // of several runs of a case the worst
    std::optional<shard> part{};    // of the selection
    std::size_t planned = 0;        // results to come in all
    bool has_end = false;           // false: the run that wrote it was cut short
    int exit_status = ALL_PASSED;   // with which it ended
};

// A usage error when the file is not what it should be. A last line that is cut is left out.
stored_run read_results(const std::string &path);

// Cases that did neither pass nor decline, for another try.
std::vector<std::string> names_to_repeat(const stored_run &run);

// In the user's state folder; empty when there is none.
std::string default_results_path();

} // namespace tavor_run

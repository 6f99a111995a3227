// SPDX-License-Identifier: MIT
//
// The command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/campaign/experiment.h"
#include "tools/campaign/job_list.h"

namespace campaign {

enum class command { run, list_jobs, run_jobs, merge };

struct arguments {
    command wanted = command::run;
    std::string program; // this one, as it was called
    setting where;
    std::string pairs_folder;
    std::string explained_path;
    std::string matrix_path;
    std::string results_path;
    std::string job_list_path;
    std::vector<std::string> selected{}; // globs of case or suite names
    std::vector<std::string> ids{};      // of jobs to run
    std::vector<std::string> records{};  // files to merge
    shard part;
    unsigned jobs = 1;
    unsigned timeout_seconds = 30;
    bool exhaustive = false;
    bool resume = false;
    bool list = false;
    bool quiet = false;
    bool skip_green = false;
    bool fail_fast = false;
    bool ids_only = false;
    bool missing_only = false;
};

// Where it says all there is to say, or makes no sense: the exit status.
std::optional<int> parse_arguments(int argc, char **argv, arguments &given);

} // namespace campaign

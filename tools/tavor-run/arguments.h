// SPDX-License-Identifier: MIT
//
// What the command line says, and what it means.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/tavor-run/run/runner.h"

namespace tavor_run {

struct selection_arguments {
    std::vector<std::string> terms{};
    bool failed = false;
    std::string last{}; // the file of the last results; empty: the default one
    std::string shard{};
    std::string shuffle{}; // a seed, "random", or empty
};

struct launch_arguments {
    std::string tavor{}; // empty: beside this program, or in PATH
    std::string library_folder{};
    std::string shim{}; // empty: in the lib folder beside tavor
    std::string through{};
    unsigned traced_calls = 12;
    double timeout = 60;
    double timeout_scale = 1;
    unsigned print_limit = 16; // MiB; 0: no limit
    bool isolate = false;
    bool census = false;
    bool closed = false;
};

struct output_arguments {
    std::vector<std::string> outputs{}; // format:file
    bool quiet = false;
    std::string colour = "auto"; // always, never
    std::string baseline{};
    bool fixed_is_failure = false;
    std::string command_line{};
};

struct run_arguments {
    selection_arguments selection{};
    launch_arguments launch{};
    output_arguments output{};
    std::optional<unsigned> repeat{};
    bool until_fail = false;
    bool fail_fast = false;
    std::string bisected{};               // a case
    std::string debugged{};               // a case
    std::vector<std::string> libraries{}; // folders to bisect, the oldest first
};

struct report_arguments {
    std::string log{}; // "-": standard input
    std::vector<std::string> terms{};
    std::vector<std::string> foreign{}; // patterns of lines
    std::vector<std::string> strip{};   // patterns of what lines begin with
    bool any_order = false;
    std::string tavor{}; // that wrote the log
    output_arguments output{};
};

struct compare_arguments {
    std::vector<std::string> reports{}; // file or name=file
    std::vector<std::string> outputs{}; // format:file
    bool quiet = false;
    bool all = false;
};

struct history_arguments {
    std::vector<std::string> reports{}; // files and folders
    std::vector<std::string> outputs{}; // format:file
};

struct explain_arguments {
    launch_arguments launch{};
    std::string case_name{};
    std::string recording{}; // of a device without tools; empty: the case is run
    std::string reference{}; // empty: beside this program
    std::string output{};    // of reproduce
    bool json = false;
};

struct diagnose_arguments {
    std::vector<std::string> reports{}; // jsonl reports and logs of one library
    std::string table{};                // empty: the one that is installed
    bool json = false;
};

launch_options launch_options_of(const launch_arguments &given);
run_options run_options_of(const run_arguments &given);

// In table order. A usage error when nothing is left.
std::vector<int> selected_rows(const selection_arguments &given);

// The file of the last results; empty when there is no place for one.
std::string results_path(const selection_arguments &given);

// Drawn when the text is "random", none when it is empty.
std::optional<std::uint64_t> seed_of(const std::string &text);

// A usage error when the library is not from the folder that was named; where it must be a closed
// one, for the reference library, too, and when it cannot be told which one it is.
void check_library(const launch_arguments &given, const library_identity &library);

} // namespace tavor_run

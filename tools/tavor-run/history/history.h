// SPDX-License-Identifier: MIT
//
// Many results files over time: which cases are new failures, known, fixed, flaky or lost.
//
// Runs are in the order in which they started. Runs of the same library, program and machine share
// an environment. A device has a series of its own: a case is judged on each device by the device's
// newest environment, and the most urgent of these judgements is the case's.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tavor-run/results/results_file.h"

namespace tavor_run {

// The most urgent first.
enum class trend {
    new_failure, // good before the newest environment, bad since a run of it
    lost,        // without a verdict in the newest run: crashed, hung, damaged, not reached
    flaky,       // good and bad in one environment
    known,       // bad since an earlier environment
    fixed,       // bad before the newest environment, good in it
    good,
};

constexpr std::size_t TREND_COUNT = static_cast<std::size_t>(trend::good) + 1;

// "NEW", "LOST", "FLAKY", "KNOWN", "FIXED", "GOOD".
std::string_view name_of(trend which);

struct environment {
    std::string host{};
    std::string build_id{}; // of the library
    std::string tree{};     // of tavor
    std::string target{};
    std::string settings{}; // of library and shim, from the process's environment

    bool operator==(const environment &) const = default;
    std::string text() const; // for people
};

struct history_run {
    stored_run run{};
    std::size_t environment = 0; // index in history::environments
    tally counts{};
    double seconds = 0; // of all cases
};

struct case_trend {
    std::string name{};
    trend what = trend::good;
    std::size_t newest = 0; // the run that decided, an index in history::runs
    std::size_t since = 0;  // the first run of the present failures; for others the newest
    unsigned bad = 0;       // runs of the deciding environment in which it was bad ...
    unsigned judged = 0;    // ... of so many
    std::vector<const outcome *> results{}; // one a run; null: not in that run

    std::string last_message() const; // of the newest result that was not good
};

struct history {
    std::vector<environment> environments{}; // in the order of their first runs
    std::vector<history_run> runs{};         // the oldest first
    std::vector<case_trend> cases{};         // in table order; cases that are no more come last
    std::vector<std::string> skipped{};      // files of the folders that hold no results

    std::array<unsigned, TREND_COUNT> counts() const;
    // In the order of urgency.
    std::vector<const case_trend *> with(trend which) const;
};

// Reads files, and all *.jsonl of folders. A usage error when a file that was named cannot be read
// or holds no results, or when there is no run at all.
history read_history(const std::vector<std::string> &files_and_folders);

// The letter by which a result is shown; ' ' for null. LEGEND explains the letters.
char letter_of(const outcome *result);
constexpr std::string_view LEGEND =
    ". passed, - ignored, F failed, C crashed, H hung, O flooded, D damaged, U never ended, ? never seen, "
    "n not run";

// About twenty lines.
std::string text_of(const history &what);
// One page that needs nothing beside itself.
std::string html_of(const history &what);

} // namespace tavor_run

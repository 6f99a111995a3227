// SPDX-License-Identifier: MIT
//
// Running many experiments, several at once, with their results in a fixed order.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/campaign/records.h"
#include "tools/campaign/results.h"

namespace campaign {

struct task {
    std::string id;
    experiment what;
    const pair *expected = nullptr; // null: any message of the table is right
    const std::vector<pair> *pairs_of_case = nullptr;
    bool must_be_green = false;  // a faultless run
    bool must_be_missed = false; // a fault without effect
};

// Why a run may hang by its case's nature; empty when it may not.
using reason_to_hang = std::function<std::string(const experiment &)>;

struct task_options {
    unsigned jobs = 1; // runs that compute at once; those that wait are beside them
    bool show_progress = false;
    std::vector<std::string> exclusive{}; // tests of which one runs at a time
    reason_to_hang may_hang{};
    std::function<bool(const result &)> stop_at{}; // ends the run at the first such result
};

// Runs the tasks that the results file does not know yet. The results are in the order of
// the tasks, whichever ended first; where the run was stopped, without those not run.
std::vector<result> run_tasks(const setting &where, const std::vector<task> &tasks,
                              results_file &file, const task_options &options);

// Fills in why a hang is none to be looked at.
void explain(result &judged, const task &done, const reason_to_hang &may_hang);

// The task's result after a record of it: what was seen is the record's, the rest, such as the
// command that repeats it here, the task's.
result restored(const setting &where, const task &done, const result &recorded);

} // namespace campaign

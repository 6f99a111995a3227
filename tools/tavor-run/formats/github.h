// SPDX-License-Identifier: MIT
//
// What annotations and summary of a GitHub step have in common.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

struct told_cases {
    std::vector<const case_history *> bad{}; // the most telling first, known failures left out
    std::vector<const case_history *> fixed{};
};

// Points into `cases`.
told_cases told_cases_of(const std::vector<case_history> &cases);

// The file that GitHub shows below a step's log; empty where there is none.
std::string step_summary_path();

// Adds to that file when the run has ended, as Markdown.
std::unique_ptr<writer> make_github_summary(const std::string &path);

} // namespace tavor_run

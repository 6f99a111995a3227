// SPDX-License-Identifier: MIT
//
// What a campaign consists of, by its command line.
#pragma once

#include <string>
#include <vector>

#include "tools/campaign/arguments.h"
#include "tools/campaign/jobs.h"

namespace campaign {

// In table order. Throws std::runtime_error when there are none.
std::vector<std::string> selected_cases(const arguments &given);

std::vector<pair> selected_pairs(const arguments &given, const job_book &book);

// All jobs, those of the list if there is one, without regard to shards.
std::vector<task> selected_jobs(const arguments &given, const job_book &book);

} // namespace campaign

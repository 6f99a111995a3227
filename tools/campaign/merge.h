// SPDX-License-Identifier: MIT
//
// Putting together what was run in pieces, on whichever machines: records from any number of files,
// in any order, some of them twice. Only a job with one clear result has one here.
#pragma once

#include <string>
#include <vector>

#include "tools/campaign/campaign.h"
#include "tools/campaign/records.h"

namespace campaign {

struct merged {
    std::vector<result> results{};            // in the order of the tasks
    std::vector<std::string> missing{};       // ids of tasks without a record
    std::vector<std::string> contradicting{}; // id, outcomes and places
    std::vector<std::string> foreign{};       // place and reason
    std::vector<std::string> damaged{};       // places; no harm when nothing is missing

    bool is_whole() const { return missing.empty() && contradicting.empty() && foreign.empty(); }
};

// `expected` may lack the library; the records then need to agree on one.
merged merge_records(const setting &where, const std::vector<task> &tasks, const subject &expected,
                     const record_list &list);

// Says what keeps them from being whole, a line each, and sums it up.
void print_gaps(std::ostream &out, const merged &merging, std::size_t tasks);

} // namespace campaign

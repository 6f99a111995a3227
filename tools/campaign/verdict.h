// SPDX-License-Identifier: MIT
//
// What a campaign says at its end: the same, whether it was run here or merged.
#pragma once

#include <vector>

#include "tools/campaign/arguments.h"
#include "tools/campaign/jobs.h"
#include "tools/campaign/results.h"

namespace campaign {

bool is_finding(const result &judged, bool exhaustive);

// The hangs that are none to be looked at.
reason_to_hang expected_hangs(const arguments &given);

// Says which cases are green; false when one is not. A campaign on a red suite would prove nothing.
bool report_controls(const std::vector<result> &results);

// Findings, table and sum; returns the exit status.
int report_faults(const arguments &given, const job_book &book, const std::vector<result> &results);

} // namespace campaign

// SPDX-License-Identifier: MIT
//
// Reports and captured consoles as a diagnosis reads them.
#pragma once

#include <string>
#include <vector>

#include "tools/diagnosis/diagnosis.h"

namespace tavor_run {

// What the files tell of the cases, all of one library: jsonl reports, and logs ("-": standard
// input) in which any cases may be missing. Throws a usage_error when one cannot be read or tells
// of no case.
diagnosis::evidence log_of(const std::vector<std::string> &paths);

} // namespace tavor_run

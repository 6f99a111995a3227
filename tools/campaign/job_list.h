// SPDX-License-Identifier: MIT
//
// A campaign's jobs in a file: a first line "# 12 jobs", then an id a line. Made once, it is the
// same for all machines that take their part of it.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/campaign/jobs.h"
#include "tools/common/shard.h"

namespace campaign {

using tools::shard;

void write_job_list(std::ostream &out, const std::vector<task> &jobs);

// Throws std::runtime_error on an id that no job has or that stands there twice, and when lines
// are missing.
std::vector<task> read_job_list(const std::string &path, const job_book &book);

// The jobs of one part of several. Which part a job is in depends on its id and the number of
// parts only.
std::vector<task> jobs_of_shard(std::vector<task> jobs, const shard &part);

} // namespace campaign

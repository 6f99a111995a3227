// SPDX-License-Identifier: MIT
//
// Which cases, and in which order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/common/shard.h"

namespace tavor_run {

using tools::parse_shard;
using tools::shard;
using tools::usage_error;

// Rows in table order. A term is a case, a suite, a glob of either, a number, a range of numbers
// (10-20) or @file with terms; behind ! it takes away. Without a term that adds, all are there.
// A term that means nothing, and a selection that is empty, are usage errors.
std::vector<int> select_cases(const std::vector<std::string> &terms);

// Every count-th of the rows, so that the shards are about as long as each other.
std::vector<int> rows_of_shard(const std::vector<int> &rows, const shard &part);

// By a hash of seed and name: two cases keep their order whatever else is selected.
std::vector<int> shuffled(std::vector<int> rows, std::uint64_t seed);

// A process runs its cases in table order only: the longest ascending pieces of the order.
std::vector<std::vector<int>> ascending_groups(const std::vector<int> &rows);

// The shortest list of names that makes tavor run these rows and no others; empty for all.
std::vector<std::string> names_selecting(const std::vector<int> &rows);

} // namespace tavor_run

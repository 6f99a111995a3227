// SPDX-License-Identifier: MIT
//
// What kel-campaign can be asked to do. Each returns the exit status, and throws
// std::runtime_error when what it was given is wrong.
#pragma once

#include "tools/campaign/arguments.h"

namespace campaign {

constexpr int FOUND_SOMETHING = 1;
constexpr int INCOMPLETE = 2;
constexpr int USAGE_ERROR = 3;

int run_command(const arguments &given);
int jobs_command(const arguments &given);
int run_jobs_command(const arguments &given);
int merge_command(const arguments &given);

} // namespace campaign

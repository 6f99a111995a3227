// SPDX-License-Identifier: MIT
//
// kel-campaign: shows that every check of every case notices a library that is wrong. It
// runs each case under faults, each run in a process of its own, and judges the verdict by
// the table of (case, message) pairs.
#include <exception>
#include <iostream>

#include "tools/campaign/arguments.h"
#include "tools/campaign/commands.h"
#include "tools/common/shim.h"

namespace {

int carry_out(const campaign::arguments &given)
{
    switch (given.wanted) {
    case campaign::command::run:
        return run_command(given);
    case campaign::command::list_jobs:
        return jobs_command(given);
    case campaign::command::run_jobs:
        return run_jobs_command(given);
    case campaign::command::merge:
        return merge_command(given);
    }
    return campaign::USAGE_ERROR;
}

} // namespace

int main(int argc, char **argv)
{
    campaign::arguments given;
    if (const std::optional<int> status = parse_arguments(argc, argv, given)) {
        return *status;
    }
    try {
        given.where.shim = tools::required_shim(given.where.shim, given.where.tavor);
        return carry_out(given);
    } catch (const std::exception &error) {
        std::cerr << "kel-campaign: " << error.what() << '\n';
        return campaign::USAGE_ERROR;
    }
}

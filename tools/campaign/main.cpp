// SPDX-License-Identifier: MIT
//
// kel-campaign: shows that every check of every case notices a library that is wrong. It
// runs each case under faults, each run in a process of its own, and judges the verdict by
// the table of (case, message) pairs.
#include <stdexcept>

#include "tools/campaign/arguments.h"
#include "tools/campaign/commands.h"
#include "tools/common/interrupt.h"
#include "tools/common/loader.h"
#include "tools/common/program.h"
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
    return tools::run_program("kel-campaign", campaign::USAGE_ERROR, [&] {
        if (const std::optional<int> status = parse_arguments(argc, argv, given)) {
            return *status;
        }
        given.where.shim = tools::required_shim(given.where.shim, given.where.tavor);
        const std::string &folder = given.where.library_path;
        const std::string library = tools::loaded_library(given.where.tavor, folder);
        if (!folder.empty() && !tools::is_from(library, folder)) {
            throw std::runtime_error("--library-path: the loader takes " +
                                     (library.empty() ? "no library" : library));
        }
        given.where.has_reference = tools::is_reference_library(tools::read_bytes(library));
        tools::catch_interrupts();
        return carry_out(given);
    });
}

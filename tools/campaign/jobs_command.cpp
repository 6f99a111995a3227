// SPDX-License-Identifier: MIT
//
// The jobs, for whoever distributes them.
#include <iostream>

#include "tools/campaign/commands.h"
#include "tools/campaign/selection.h"
#include "tools/common/process.h"

namespace campaign {

namespace {

// What runs any job of this campaign, without the job's id.
std::vector<std::string> job_command(const arguments &given)
{
    std::vector<std::string> words = {given.program, "run-jobs"};
    const auto add = [&](const std::string &option, const std::string &value) {
        if (!value.empty()) {
            words.insert(words.end(), {option, value});
        }
    };
    add("--tavor", given.where.tavor);
    add("--shim", given.where.shim);
    add("--pairs", given.pairs_folder);
    add("--library-path", given.where.library_path);
    add("--options", given.where.options);
    add("--explained", given.explained_path);
    add("--timeout", std::to_string(given.timeout_seconds));
    add("--results", given.results_path);
    return words;
}

} // namespace

int jobs_command(const arguments &given)
{
    const job_book book(given.pairs_folder);
    const std::vector<task> jobs = jobs_of_shard(selected_jobs(given, book), given.part);
    if (given.ids_only) {
        write_job_list(std::cout, jobs);
        return 0;
    }
    std::vector<std::string> words = job_command(given);
    words.emplace_back();
    for (const task &listed : jobs) {
        words.back() = listed.id;
        std::cout << tools::shell_line({}, words) << '\n';
    }
    return 0;
}

} // namespace campaign

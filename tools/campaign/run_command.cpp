// SPDX-License-Identifier: MIT
//
// The campaign on this machine, or its part of it.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <iterator>

#include "tools/campaign/commands.h"
#include "tools/campaign/selection.h"
#include "tools/campaign/subject.h"
#include "tools/campaign/verdict.h"

namespace campaign {

namespace {

void print_pairs(const std::vector<pair> &pairs)
{
    for (const pair &shown : pairs) {
        std::cout << shown.place() << '\t' << shown.test << '\t' << shown.message << '\t'
                  << shown.faults << '\n';
    }
}

task_options options_for(const arguments &given)
{
    task_options options;
    options.jobs = given.jobs;
    options.show_progress = !given.quiet && isatty(STDERR_FILENO) != 0;
    options.exclusive = timed_cases();
    options.may_hang = expected_hangs(given);
    if (given.fail_fast) {
        options.stop_at = [exhaustive = given.exhaustive](const result &judged) {
            return is_finding(judged, exhaustive);
        };
    }
    return options;
}

std::vector<result> run_timed(const arguments &given, const std::vector<task> &tasks,
                              results_file &file, const task_options &options)
{
    const auto started = std::chrono::steady_clock::now();
    std::vector<result> results = run_tasks(given.where, tasks, file, options);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    std::cerr << results.size() << " runs took " << took.count() << " s, "
              << static_cast<double>(results.size()) / took.count() << " a second\n";
    return results;
}

} // namespace

int run_command(const arguments &given)
{
    const job_book book(given.pairs_folder);
    if (given.list) {
        print_pairs(selected_pairs(given, book));
        return 0;
    }
    std::vector<task> tasks = selected_jobs(given, book);
    if (given.part.count > 1) {
        const std::size_t all = tasks.size();
        tasks = jobs_of_shard(std::move(tasks), given.part);
        std::cout << "shard " << given.part.index << "/" << given.part.count << ": " << tasks.size()
                  << " of " << all << " jobs\n";
    }
    results_file file(given.results_path,
                      given.resume ? results_file::mode::resumed : results_file::mode::anew,
                      subject_of(given.where, given.pairs_folder));
    const task_options options = options_for(given);
    std::vector<result> controls = run_timed(given, tasks, file, options);
    const auto first_fault = std::stable_partition(
        controls.begin(), controls.end(), [](const result &ended) { return is_control(ended.id); });
    const std::vector<result> results(std::make_move_iterator(first_fault),
                                      std::make_move_iterator(controls.end()));
    controls.erase(first_fault, controls.end());
    return report_controls(controls) ? report_faults(given, book, results) : FOUND_SOMETHING;
}

int run_jobs_command(const arguments &given)
{
    const job_book book(given.pairs_folder);
    std::vector<task> tasks;
    for (const std::string &id : given.ids) {
        tasks.push_back(book.named(id));
    }
    results_file file(given.results_path.empty() ? "-" : given.results_path,
                      results_file::mode::added_to, subject_of(given.where, given.pairs_folder));
    task_options options = options_for(given);
    options.show_progress = false;
    run_tasks(given.where, jobs_of_shard(std::move(tasks), given.part), file, options);
    return 0;
}

} // namespace campaign

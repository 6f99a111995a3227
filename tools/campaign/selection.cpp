// SPDX-License-Identifier: MIT
//
// Selecting cases, pairs and jobs.
#include "tools/campaign/selection.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "tools/common/registry.h"

namespace campaign {

namespace {

bool is_selected(const arguments &given, const std::string &test)
{
    const std::string suite = tools::suite_of(test);
    return given.selected.empty() ||
           std::any_of(given.selected.begin(), given.selected.end(), [&](const std::string &glob) {
               return fnmatch(glob.c_str(), test.c_str(), 0) == 0 ||
                      fnmatch(glob.c_str(), suite.c_str(), 0) == 0;
           });
}

std::vector<task> fault_jobs(const arguments &given, const job_book &book,
                             const std::vector<std::string> &cases)
{
    if (given.exhaustive) {
        return exhaustive_jobs(book, given.where, cases, given.jobs);
    }
    std::vector<task> jobs;
    for (const pair &shown : book.pairs()) {
        if (shown.unreachable.empty() && is_selected(given, shown.test)) {
            jobs.push_back(book.showing(shown));
        }
    }
    return jobs;
}

std::vector<task> listed_jobs(const arguments &given, const job_book &book)
{
    std::vector<task> jobs = read_job_list(given.job_list_path, book);
    std::erase_if(jobs, [&](const task &listed) {
        return !is_selected(given, listed.what.test) || (given.skip_green && is_control(listed));
    });
    return jobs;
}

} // namespace

std::vector<std::string> selected_cases(const arguments &given)
{
    std::vector<std::string> cases;
    for (const tools::test_case &candidate : tools::all_cases()) {
        if (is_selected(given, std::string(candidate.name))) {
            cases.emplace_back(candidate.name);
        }
    }
    if (cases.empty()) {
        throw std::runtime_error("nothing selected");
    }
    return cases;
}

std::vector<pair> selected_pairs(const arguments &given, const job_book &book)
{
    std::vector<pair> pairs;
    std::copy_if(book.pairs().begin(), book.pairs().end(), std::back_inserter(pairs),
                 [&](const pair &read) { return is_selected(given, read.test); });
    return pairs;
}

std::vector<task> selected_jobs(const arguments &given, const job_book &book)
{
    const std::vector<std::string> cases = selected_cases(given);
    if (!given.job_list_path.empty()) {
        return listed_jobs(given, book);
    }
    std::vector<task> jobs;
    if (!given.skip_green) {
        jobs = control_jobs(book, cases);
    }
    for (task &added : fault_jobs(given, book, cases)) {
        jobs.push_back(std::move(added));
    }
    return jobs;
}

} // namespace campaign

// SPDX-License-Identifier: MIT
//
// The table of what was run in pieces.
#include <algorithm>
#include <iostream>

#include "tools/campaign/commands.h"
#include "tools/campaign/merge.h"
#include "tools/campaign/selection.h"
#include "tools/campaign/verdict.h"

namespace campaign {

namespace {

struct parts {
    std::vector<result> controls;
    std::vector<result> faults;
    bool has_all_controls = true;
};

// The results are in the order of the tasks, some of which may have none.
parts split(const std::vector<task> &tasks, std::vector<result> results,
            const reason_to_hang &may_hang)
{
    parts made;
    auto next = results.begin();
    for (const task &wanted : tasks) {
        if (next == results.end() || next->id != wanted.id) {
            made.has_all_controls &= !is_control(wanted);
            continue;
        }
        explain(*next, wanted, may_hang);
        (is_control(wanted) ? made.controls : made.faults).push_back(std::move(*next++));
    }
    return made;
}

bool is_red(const result &control)
{
    return control.reached != outcome::caught;
}

// Where a control is red, a run ends there: no fault needs a result.
bool ends_at_controls(const merged &merging, const parts &have)
{
    return merging.foreign.empty() && merging.contradicting.empty() && have.has_all_controls &&
           std::any_of(have.controls.begin(), have.controls.end(), is_red);
}

int print_missing(merged merging, std::size_t tasks)
{
    for (const std::string &id : merging.missing) {
        std::cout << id << '\n';
    }
    merging.missing.clear();
    print_gaps(std::cerr, merging, tasks);
    return merging.is_whole() ? 0 : INCOMPLETE;
}

} // namespace

int merge_command(const arguments &given)
{
    const job_book book(given.pairs_folder);
    const std::vector<task> tasks = jobs_of_shard(selected_jobs(given, book), given.part);
    record_list list;
    for (const std::string &file : given.records) {
        read_records(file, list);
    }
    const merged merging =
        merge_records(given.where, tasks, subject_of(given.where, given.pairs_folder), list);
    if (given.missing_only) {
        return print_missing(merging, tasks.size());
    }
    parts have = split(tasks, merging.results, expected_hangs(given));
    if (ends_at_controls(merging, have)) {
        report_controls(have.controls);
        return FOUND_SOMETHING;
    }
    print_gaps(std::cerr, merging, tasks.size());
    if (!merging.is_whole()) {
        return INCOMPLETE;
    }
    report_controls(have.controls);
    return report_faults(given, book, have.faults);
}

} // namespace campaign

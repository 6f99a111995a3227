// SPDX-License-Identifier: MIT
//
// The campaign's jobs and their names. A job is one run of one case; its id says all about it, so
// that it is the same on every machine, in whatever order and selection.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/campaign/campaign.h"
#include "tools/campaign/pairs.h"

namespace campaign {

// Makes jobs after a table of pairs. They point into it and must not outlive it.
class job_book {
public:
    // Throws std::runtime_error on a bad table.
    explicit job_book(const std::filesystem::path &pairs_folder);
    job_book(const job_book &) = delete;
    job_book &operator=(const job_book &) = delete;

    const std::vector<pair> &pairs() const { return table; }

    task faultless(const std::string &test) const;
    task without_effect(const std::string &test) const;
    task showing(const pair &shown) const;
    task under_fault(const std::string &test, const std::string &fault) const;

    // The job of that id. Throws std::runtime_error when no job has it.
    task named(const std::string &id) const;

private:
    task fault_named(const std::string &id) const;

    std::vector<pair> table;
    std::map<std::string, std::vector<pair>> by_case;
    std::unordered_map<std::string, const pair *> by_id;
};

// Whether it belongs to the runs that must be green before any fault counts.
inline bool is_control(const task &candidate)
{
    return candidate.must_be_green || candidate.must_be_missed;
}

// Whether the id is that of a run that is to be green, and of one of those that must end as they
// should before any fault counts.
bool is_faultless(const std::string &id);
bool is_control(const std::string &id);

// Without faults every case must pass; with one that has no effect, too.
std::vector<task> control_jobs(const job_book &book, const std::vector<std::string> &cases);

// Every call of every case with every fault. Runs each case once, several at once, to know its
// calls.
std::vector<task> exhaustive_jobs(const job_book &book, const setting &where,
                                  const std::vector<std::string> &cases, unsigned at_once);

// Cases that give the library some milliseconds: one at a time on a machine.
const std::vector<std::string> &timed_cases();

} // namespace campaign

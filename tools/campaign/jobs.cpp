// SPDX-License-Identifier: MIT
//
// Making jobs, and finding them by their ids.
#include "tools/campaign/jobs.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "tools/campaign/plan.h"
#include "tools/campaign/pool.h"
#include "tools/common/registry.h"

namespace campaign {

namespace {

// How ids begin.
constexpr std::string_view FAULTLESS = "faultless ";
constexpr std::string_view WITHOUT_EFFECT = "without effect ";
constexpr std::string_view EVERY = "every ";

// It only sleeps between its steps, for ten seconds in all.
constexpr std::string_view SLEEPING_CASE = "kel_bufgroup_get_bufcount_bytag";

std::string without_sleep(const std::string &test)
{
    return test == SLEEPING_CASE ? "sleep#1+:lost" : "";
}

std::string id_of(const pair &shown)
{
    return "pair " + shown.test + " " + shown.faults + " " + shown.message;
}

[[noreturn]] void refuse(const std::string &id)
{
    throw std::runtime_error("no such job: " + id);
}

std::string case_behind(std::string_view beginning, const std::string &id)
{
    std::string test = id.substr(beginning.size());
    if (tools::case_number(test) < 0) {
        refuse(id);
    }
    return test;
}

} // namespace

job_book::job_book(const std::filesystem::path &pairs_folder) : table(read_pairs(pairs_folder))
{
    for (const pair &read : table) {
        if (tools::case_number(read.test) < 0) {
            throw std::runtime_error(read.place() + ": no such case: " + read.test);
        }
        by_case[read.test].push_back(read);
        if (!read.unreachable.empty()) {
            continue;
        }
        const auto [known, is_new] = by_id.emplace(id_of(read), &read);
        if (!is_new) {
            throw std::runtime_error(read.place() + ": the same pair as " + known->second->place());
        }
    }
}

bool is_faultless(const std::string &id)
{
    return id.starts_with(FAULTLESS);
}

bool is_control(const std::string &id)
{
    return is_faultless(id) || id.starts_with(WITHOUT_EFFECT);
}

task job_book::faultless(const std::string &test) const
{
    task made;
    made.id = std::string(FAULTLESS) + test;
    made.what = {test, without_sleep(test)};
    made.must_be_green = true;
    return made;
}

task job_book::without_effect(const std::string &test) const
{
    task made;
    made.id = std::string(WITHOUT_EFFECT) + test;
    made.what = {test, "nocrash_set#1:nothing"};
    made.must_be_missed = true;
    return made;
}

task job_book::showing(const pair &shown) const
{
    task made;
    made.id = id_of(shown);
    made.what = {shown.test, shown.faults};
    made.expected = &shown;
    return made;
}

task job_book::under_fault(const std::string &test, const std::string &fault) const
{
    static const std::vector<pair> NO_PAIRS;
    task made;
    made.id = std::string(EVERY) + test + " " + fault;
    made.what = {test, fault};
    if (const std::string added = without_sleep(test); !added.empty()) {
        made.what.faults += " " + added;
    }
    const auto pairs_of_case = by_case.find(test);
    made.pairs_of_case = pairs_of_case == by_case.end() ? &NO_PAIRS : &pairs_of_case->second;
    return made;
}

task job_book::fault_named(const std::string &id) const
{
    const std::string words = id.substr(EVERY.size());
    const std::size_t blank = words.find(' ');
    const std::string test = words.substr(0, blank);
    if (blank == std::string::npos || tools::case_number(test) < 0 ||
        !is_plannable(words.substr(blank + 1))) {
        refuse(id);
    }
    return under_fault(test, words.substr(blank + 1));
}

task job_book::named(const std::string &id) const
{
    if (is_faultless(id)) {
        return faultless(case_behind(FAULTLESS, id));
    }
    if (id.starts_with(WITHOUT_EFFECT)) {
        return without_effect(case_behind(WITHOUT_EFFECT, id));
    }
    if (id.starts_with(EVERY)) {
        return fault_named(id);
    }
    const auto shown = by_id.find(id);
    if (shown == by_id.end()) {
        refuse(id);
    }
    return showing(*shown->second);
}

std::vector<task> control_jobs(const job_book &book, const std::vector<std::string> &cases)
{
    std::vector<task> jobs;
    jobs.reserve(cases.size() + 1);
    for (const std::string &test : cases) {
        jobs.push_back(book.faultless(test));
    }
    jobs.push_back(book.without_effect(cases.front()));
    return jobs;
}

std::vector<task> exhaustive_jobs(const job_book &book, const setting &where,
                                  const std::vector<std::string> &cases, unsigned at_once)
{
    std::vector<observation> faultless(cases.size());
    processors idle(std::max(1U, at_once));
    in_parallel(cases.size(), idle, [&](std::size_t i, processor &held) {
        faultless[i] = observe(where, book.faultless(cases[i]).what, [&] { held.give_back(); });
        return true;
    });
    std::vector<task> jobs;
    for (std::size_t i = 0; i < cases.size(); i++) {
        if (faultless[i].timed_out) {
            throw std::runtime_error(cases[i] + ": its calls cannot be counted, it takes too long");
        }
        for (const std::string &fault : faults_for(faultless[i].calls, {})) {
            jobs.push_back(book.under_fault(cases[i], fault));
        }
    }
    return jobs;
}

const std::vector<std::string> &timed_cases()
{
    static const std::vector<std::string> CASES = {
        "kel_sendrecv_recv_no_sig",
        "kel_sendrecv_recv_no_sig_prog_thresh",
        "kel_sendrecv_recv_no_sig_flush",
    };
    return CASES;
}

} // namespace campaign

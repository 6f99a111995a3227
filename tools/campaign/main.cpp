// SPDX-License-Identifier: MIT
//
// kel-campaign: shows that every check of every case notices a library that is wrong. It
// runs each case under faults, each run in a process of its own, and judges the verdict by
// the table of (case, message) pairs.
#include <fnmatch.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

#include "tools/campaign/campaign.h"
#include "tools/campaign/explained.h"
#include "tools/campaign/matrix.h"
#include "tools/campaign/plan.h"
#include "tools/common/registry.h"
#include "tools/common/shim.h"

namespace {

struct arguments {
    campaign::setting where;
    std::string pairs_folder;
    std::string explained_path;
    std::string matrix_path;
    std::string results_path;
    std::vector<std::string> selected; // globs of case or suite names
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    unsigned timeout_seconds = 30;
    unsigned part = 1;
    unsigned parts = 1;
    bool exhaustive = false;
    bool resume = false;
    bool list = false;
    bool quiet = false;
    bool skip_green = false;
    bool fail_fast = false;
};

constexpr int FOUND_SOMETHING = 1;
constexpr int USAGE_ERROR = 3;

// Cases whose verdict depends on time that passes: they get the machine for themselves.
const std::vector<std::string> TIMED_CASES = {
    "kel_sendrecv_recv_no_sig",
    "kel_sendrecv_recv_no_sig_prog_thresh",
    "kel_sendrecv_recv_no_sig_flush",
    "kel_sendrecv_recv_no_sig_prog_flush",
};

// It only sleeps between its steps, for ten seconds in all.
constexpr std::string_view SLEEPING_CASE = "kel_bufgroup_get_bufcount_bytag";

bool is_selected(const arguments &given, const std::string &test)
{
    const std::string suite = tools::suite_of(test);
    return given.selected.empty() ||
           std::any_of(given.selected.begin(), given.selected.end(), [&](const std::string &glob) {
               return fnmatch(glob.c_str(), test.c_str(), 0) == 0 ||
                      fnmatch(glob.c_str(), suite.c_str(), 0) == 0;
           });
}

std::vector<campaign::pair> selected_pairs(const arguments &given)
{
    std::vector<campaign::pair> pairs;
    for (campaign::pair &read : campaign::read_pairs(given.pairs_folder)) {
        if (tools::case_number(read.test) < 0) {
            throw std::runtime_error(read.place() + ": no such case: " + read.test);
        }
        if (is_selected(given, read.test)) {
            pairs.push_back(std::move(read));
        }
    }
    return pairs;
}

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

// Without faults every case must pass; with one that has no effect, too.
std::vector<campaign::task> green_tasks(const std::vector<std::string> &cases)
{
    std::vector<campaign::task> tasks;
    for (const std::string &test : cases) {
        campaign::task faultless;
        faultless.id = "faultless " + test;
        faultless.what = {test, "", ""};
        faultless.must_be_green = true;
        tasks.push_back(faultless);
    }
    campaign::task without_effect;
    without_effect.id = "without effect " + cases.front();
    without_effect.what = {cases.front(), "nocrash_set#1:nothing", ""};
    without_effect.must_be_missed = true;
    tasks.push_back(without_effect);
    return tasks;
}

std::vector<campaign::task> pair_tasks(const std::vector<campaign::pair> &pairs)
{
    std::vector<campaign::task> tasks;
    for (const campaign::pair &shown : pairs) {
        if (!shown.unreachable.empty()) {
            continue;
        }
        campaign::task todo;
        todo.what = {shown.test, shown.shim_faults, shown.reference_faults};
        todo.id = "pair " + shown.test + " " + shown.shim_faults +
                  " ref:" + shown.reference_faults + " " + shown.message;
        todo.expected = &shown;
        tasks.push_back(todo);
    }
    return tasks;
}

using pairs_by_case = std::map<std::string, std::vector<campaign::pair>>;

std::vector<campaign::task> exhaustive_tasks(const arguments &given,
                                             const std::vector<std::string> &cases,
                                             pairs_by_case &by_case)
{
    std::vector<campaign::task> tasks;
    unsigned number = 0;
    for (const std::string &test : cases) {
        const campaign::observation census = campaign::observe(given.where, {test, "", ""});
        for (const std::string &fault : campaign::faults_for(census.calls, {})) {
            if (number++ % given.parts != given.part - 1) {
                continue;
            }
            campaign::task todo;
            todo.what = {test, fault, ""};
            if (test == SLEEPING_CASE) {
                todo.what.shim_faults += " sleep#1+:lost";
            }
            todo.id = "every " + test + " " + fault;
            todo.pairs_of_case = &by_case[test];
            tasks.push_back(todo);
        }
    }
    return tasks;
}

bool is_finding(const campaign::result &judged, bool exhaustive)
{
    if (!judged.explanation.empty()) {
        return false;
    }
    switch (judged.reached) {
    case campaign::outcome::caught:
        return false;
    case campaign::outcome::missed:
    case campaign::outcome::not_reached:
        return !exhaustive; // not every fault is against the contract, nor can each be reached
    default:
        return true;
    }
}

int report(const std::vector<campaign::result> &results, bool exhaustive)
{
    int findings = 0;
    for (const campaign::result &judged : results) {
        if (is_finding(judged, exhaustive)) {
            campaign::print_finding(std::cout, judged);
            findings++;
        }
    }
    campaign::print_table(std::cout, results);
    campaign::print_explained(std::cout, results);
    return findings;
}

// The faultless runs; a campaign on a red suite would prove nothing.
bool is_green(const arguments &given, const std::vector<std::string> &cases,
              campaign::results_file &file, const campaign::task_options &options)
{
    const auto tasks = green_tasks(cases);
    const auto results = campaign::run_tasks(given.where, tasks, file, options);
    int findings = 0;
    for (const campaign::result &judged : results) {
        if (judged.reached != campaign::outcome::caught) {
            campaign::print_finding(std::cout, judged);
            findings++;
        }
    }
    std::cout << "without faults: " << cases.size() - static_cast<std::size_t>(findings) << " of "
              << cases.size() << " cases are green and leave nothing\n";
    return findings == 0;
}

void write_matrix(const arguments &given, const std::vector<std::string> &cases,
                  const std::vector<campaign::result> &results)
{
    std::vector<campaign::provoked_error> errors;
    for (const std::string &test : cases) {
        std::istringstream trace(campaign::trace_of(given.where, test));
        for (campaign::provoked_error &found : campaign::errors_in_trace(test, trace)) {
            errors.push_back(std::move(found));
        }
    }
    std::ofstream file(given.matrix_path);
    campaign::print_matrix(file, results, errors);
}

void print_unreachable(const std::vector<campaign::pair> &pairs)
{
    for (const campaign::pair &shown : pairs) {
        if (!shown.unreachable.empty()) {
            std::cout << "no fault reaches " << shown.test << " \"" << shown.message
                      << "\": " << shown.unreachable << '\n';
        }
    }
}

int run(const arguments &given)
{
    const std::vector<campaign::pair> pairs = selected_pairs(given);
    const std::vector<std::string> cases = selected_cases(given);
    if (given.list) {
        for (const campaign::pair &shown : pairs) {
            std::cout << shown.place() << '\t' << shown.test << '\t' << shown.message << '\t'
                      << shown.shim_faults << '\t' << shown.reference_faults << '\n';
        }
        return 0;
    }
    campaign::results_file file(given.results_path, given.resume);
    campaign::task_options options{given.jobs, !given.quiet && isatty(STDERR_FILENO) != 0,
                                   TIMED_CASES};
    if (given.fail_fast) {
        options.stop_at = [&](const campaign::result &judged) {
            return is_finding(judged, given.exhaustive);
        };
    }
    if (!given.skip_green && !is_green(given, cases, file, options)) {
        return FOUND_SOMETHING;
    }

    pairs_by_case by_case;
    for (const campaign::pair &shown : pairs) {
        by_case[shown.test].push_back(shown);
    }
    const auto started = std::chrono::steady_clock::now();
    const auto tasks =
        given.exhaustive ? exhaustive_tasks(given, cases, by_case) : pair_tasks(pairs);
    const auto explanations = given.explained_path.empty()
                                  ? std::vector<campaign::explanation>{}
                                  : campaign::read_explanations(given.explained_path);
    options.explain = [&](campaign::result &judged) {
        judged.explanation = campaign::explanation_of(judged, explanations);
    };
    const auto results = campaign::run_tasks(given.where, tasks, file, options);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;

    const int findings = report(results, given.exhaustive);
    print_unreachable(pairs);
    if (!given.matrix_path.empty()) {
        write_matrix(given, cases, results);
    }
    std::cout << results.size() << " runs in " << took.count() << " s, "
              << static_cast<double>(results.size()) / took.count() << " a second, " << findings
              << " to be looked at\n";
    return findings == 0 ? 0 : FOUND_SOMETHING;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Runs cases of tavor under faults and shows that their checks bite."};
    arguments given;
    app.add_option("--tavor", given.where.tavor, "the program under test")->required();
    app.add_option("--shim", given.where.shim, "libkeltrace.so, unless it is in its usual place");
    app.add_option("--pairs", given.pairs_folder, "folder of the table of pairs")->required();
    app.add_option("--library-path", given.where.library_path, "folder of libkel.so");
    app.add_option("--options", given.where.options, "open choices of the reference library");
    app.add_option("--explained", given.explained_path, "hangs that lie in a case's nature");
    app.add_option("--matrix", given.matrix_path, "what the cases look at, as Markdown");
    app.add_option("--results", given.results_path, "results, a JSON object a line");
    app.add_flag("--resume", given.resume, "do not repeat what the results file holds");
    app.add_flag("--exhaustive", given.exhaustive, "every call with every fault");
    app.add_option("--jobs,-j", given.jobs, "runs at once")->check(CLI::Range(1, 256));
    app.add_option("--timeout", given.timeout_seconds, "seconds a run may take");
    app.add_option("--part", given.part, "of the exhaustive campaign, counted from 1");
    app.add_option("--parts", given.parts, "into which it is divided")->check(CLI::Range(1, 1000));
    app.add_flag("--list", given.list, "print the table of pairs and end");
    app.add_flag("--quiet", given.quiet, "no progress display");
    app.add_flag("--fail-fast", given.fail_fast, "stop at the first finding");
    app.add_flag("--skip-green", given.skip_green, "leave out the runs without faults");
    app.add_option("names", given.selected, "cases or suites; * and ? are wildcards");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : USAGE_ERROR;
    }
    given.where.timeout = std::chrono::seconds(given.timeout_seconds);
    try {
        given.where.shim = tools::required_shim(given.where.shim, given.where.tavor);
        return run(given);
    } catch (const std::exception &error) {
        std::cerr << "kel-campaign: " << error.what() << '\n';
        return USAGE_ERROR;
    }
}

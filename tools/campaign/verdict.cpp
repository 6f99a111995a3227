// SPDX-License-Identifier: MIT
//
// Reporting on standard output.
#include "tools/campaign/verdict.h"

#include <fstream>
#include <iostream>
#include <sstream>

#include "tools/campaign/commands.h"
#include "tools/campaign/explained.h"
#include "tools/campaign/matrix.h"
#include "tools/campaign/selection.h"

namespace campaign {

namespace {

void write_matrix(const arguments &given, const std::vector<result> &results)
{
    std::vector<provoked_error> errors;
    for (const std::string &test : selected_cases(given)) {
        std::istringstream trace(trace_of(given.where, test));
        for (provoked_error &found : errors_in_trace(test, trace)) {
            errors.push_back(std::move(found));
        }
    }
    std::ofstream file(given.matrix_path);
    print_matrix(file, results, errors);
}

void print_unreachable(const std::vector<pair> &pairs)
{
    for (const pair &shown : pairs) {
        if (!shown.unreachable.empty()) {
            std::cout << "no fault reaches " << shown.test << " \"" << shown.message
                      << "\": " << shown.unreachable << '\n';
        }
    }
}

} // namespace

bool is_finding(const result &judged, bool exhaustive)
{
    if (!judged.explanation.empty()) {
        return false;
    }
    switch (judged.reached) {
    case outcome::caught:
        return false;
    case outcome::missed:
    case outcome::not_reached:
        return !exhaustive; // not every fault is against the contract, nor can each be reached
    default:
        return true;
    }
}

reason_to_hang expected_hangs(const arguments &given)
{
    if (given.explained_path.empty()) {
        return [](const experiment &) { return std::string(); };
    }
    return [known = read_explanations(given.explained_path)](const experiment &what) {
        return explanation_of(what, known);
    };
}

bool report_controls(const std::vector<result> &results)
{
    std::size_t cases = 0;
    std::size_t green = 0;
    bool all_right = true;
    for (const result &judged : results) {
        const bool is_right = judged.reached == outcome::caught;
        const bool is_green_run = is_faultless(judged.id);
        cases += is_green_run ? 1U : 0U;
        green += is_green_run && is_right ? 1U : 0U;
        if (!is_right) {
            print_finding(std::cout, judged);
            all_right = false;
        }
    }
    if (!results.empty()) {
        std::cout << "without faults: " << green << " of " << cases
                  << " cases are green and leave nothing\n";
    }
    return all_right;
}

int report_faults(const arguments &given, const job_book &book, const std::vector<result> &results)
{
    int findings = 0;
    for (const result &judged : results) {
        if (is_finding(judged, given.exhaustive)) {
            print_finding(std::cout, judged);
            findings++;
        }
    }
    print_table(std::cout, results);
    print_explained(std::cout, results);
    print_unreachable(selected_pairs(given, book));
    if (!given.matrix_path.empty()) {
        write_matrix(given, results);
    }
    std::cout << results.size() << " runs, " << findings << " to be looked at\n";
    return findings == 0 ? 0 : FOUND_SOMETHING;
}

} // namespace campaign

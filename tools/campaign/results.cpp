// SPDX-License-Identifier: MIT
//
// Summing up results.
#include "tools/campaign/results.h"

#include <iomanip>
#include <map>
#include <ostream>

#include "tools/common/printable.h"
#include "tools/common/registry.h"

namespace campaign {

void print_table(std::ostream &out, const std::vector<result> &results)
{
    std::map<std::string, tally> suites;
    tally sum;
    for (const result &counted : results) {
        suites[tools::suite_of(counted.test)].add(counted.reached);
        sum.add(counted.reached);
    }
    const auto print_row = [&](const std::string &name, const tally &row) {
        out << std::left << std::setw(24) << name << std::right << std::setw(8) << row.total;
        for (const outcome column : ALL_OUTCOMES) {
            if (sum.of(column) != 0) {
                out << std::setw(18) << row.of(column);
            }
        }
        out << '\n';
    };
    out << std::left << std::setw(24) << "suite" << std::right << std::setw(8) << "runs";
    for (const outcome column : ALL_OUTCOMES) {
        if (sum.of(column) != 0) {
            out << std::setw(18) << name_of(column);
        }
    }
    out << '\n';
    for (const auto &[suite, row] : suites) {
        print_row(suite, row);
    }
    print_row("all", sum);
}

void print_explained(std::ostream &out, const std::vector<result> &results)
{
    std::map<std::string, unsigned> reasons;
    for (const result &explained : results) {
        if (!explained.explanation.empty()) {
            reasons[std::string(name_of(explained.reached)) + ", " + explained.explanation]++;
        }
    }
    for (const auto &[reason, count] : reasons) {
        out << "explained: " << count << " x " << reason << '\n';
    }
}

void print_finding(std::ostream &out, const result &found)
{
    out << name_of(found.reached) << ": " << found.test << " under " << found.faults;
    if (!found.place.empty()) {
        out << " (" << found.place << ")";
    }
    out << '\n';
    if (!found.expected.empty()) {
        out << "    expected: " << found.expected << '\n';
    }
    out << "    shown:    " << (found.shown.empty() ? "no failure" : tools::printable(found.shown))
        << '\n';
    if (!found.detail.empty()) {
        out << "    detail:   " << tools::printable(found.detail) << '\n';
    }
    out << "    repeat:   " << found.repeat << '\n';
}

} // namespace campaign

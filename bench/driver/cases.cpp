// SPDX-License-Identifier: MIT
//
// The real cases against the reference library: a full run beside the waits that the cases make on
// purpose, and what each case takes beside them.
#include <algorithm>
#include <iostream>
#include <map>
#include <numeric>
#include <set>
#include <stdexcept>

#include "bench/driver/cost.h"
#include "bench/driver/parts.h"
#include "bench/driver/table.h"
#include "tools/common/registry.h"

namespace bench {

namespace {

// Seconds that pass whatever the library does: a sleep, or a wait until a time-out that is meant to
// expire.
const std::map<std::string, double> WAITS = {
    {"kel_bufgroup_get_bufcount_bytag", 10},
    {"kel_event_wait_timeout", 1},
    {"kel_event_wait_interrupt", 1},
    {"kel_event_wait_unregistered_tag", 1},
    {"kel_event_wait_unregis_tag_via_select", 1},
    {"kel_sendrecv_recv_no_sig_prog_flush", 2},
};

// Its list of failed fields is an array of 16 MiB.
const std::string LARGE_SUITE = "kel_metadata";

constexpr std::size_t SLOWEST = 10;

double sum_of_waits()
{
    return std::accumulate(WAITS.begin(), WAITS.end(), 0.0,
                           [](double sum, const auto &wait) { return sum + wait.second; });
}

double wait_of(const std::string &name)
{
    const auto wait = WAITS.find(name);
    return wait == WAITS.end() ? 0 : wait->second;
}

command suites_but_the_large_one()
{
    std::set<std::string> suites;
    for (const tools::test_case &listed : tools::all_cases()) {
        suites.emplace(listed.suite);
    }
    suites.erase(LARGE_SUITE);
    command program = {TAVOR_BINARY};
    program.insert(program.end(), suites.begin(), suites.end());
    return program;
}

void check_verdicts(const std::string &output)
{
    if (output.find("Number of tests failed:   0\n") == std::string::npos) {
        throw std::runtime_error("the full run is not green:\n" + output);
    }
}

// What each case took, waits left out.
using case_costs = std::vector<std::vector<cost>>; // of each case, run by run

void add_run(case_costs &cases, const settings &how)
{
    const std::vector<cost> instants = cost_at_flushes({TAVOR_BINARY}, how.folder);
    const auto listed = tools::all_cases();
    if (instants.size() != listed.size() + 1) {
        throw std::runtime_error("the runner does not flush once before each case");
    }
    for (std::size_t i = 0; i < listed.size(); i++) {
        cases[i].push_back(
            {instants[i + 1].cpu - instants[i].cpu,
             instants[i + 1].wall - instants[i].wall - wait_of(std::string(listed[i].name))});
    }
}

void print_full_run(std::ostream &out, const std::vector<cost> &runs,
                    const std::vector<double> &peaks, const std::vector<double> &peaks_without)
{
    table rows({"full run", "median (least-most)"});
    rows.add({"wall, s", figures(times_of(runs, &cost::wall, 1))});
    rows.add({"waits that the cases make on purpose, s", figure(sum_of_waits())});
    rows.add({"wall / waits", figures(times_of(runs, &cost::wall, 1 / sum_of_waits()))});
    rows.add({"CPU, s", figures(times_of(runs, &cost::cpu, 1))});
    rows.add({"peak memory, KiB", figures(peaks)});
    rows.add({"peak memory without " + LARGE_SUITE + ", KiB", figures(peaks_without)});
    out << "### Full run of tavor\n\n";
    rows.print(out);
}

void print_cases(std::ostream &out, const case_costs &cases)
{
    constexpr double US = 1e6;
    const auto listed = tools::all_cases();
    std::vector<double> medians;
    medians.reserve(cases.size());
    for (const std::vector<cost> &runs : cases) {
        medians.push_back(summary_of(times_of(runs, &cost::wall, US)).median);
    }
    std::vector<std::size_t> order(cases.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&](std::size_t one, std::size_t other) { return medians[one] > medians[other]; });
    const double sum = std::accumulate(medians.begin(), medians.end(), 0.0);

    out << "### Cases without their waits\n\n";
    table all({"wall time of a case, µs", "value"});
    all.add({"median", figure(summary_of(medians).median)});
    all.add({"mean", figure(sum / static_cast<double>(medians.size()))});
    all.add({"sum of all", figure(sum)});
    all.print(out);

    table slowest({"slowest", "wall, µs", "CPU, µs", "share of the sum, %"});
    for (std::size_t i = 0; i < std::min(SLOWEST, order.size()); i++) {
        const std::vector<cost> &runs = cases[order[i]];
        slowest.add({"`" + std::string(listed[order[i]].name) + "`",
                     figures(times_of(runs, &cost::wall, US)),
                     figures(times_of(runs, &cost::cpu, US)),
                     figure(medians[order[i]] / sum * 100)});
    }
    slowest.print(out);
}

} // namespace

void measure_cases(std::ostream &out, const settings &how)
{
    check_verdicts(output_of({TAVOR_BINARY}));
    std::vector<cost> runs;
    std::vector<double> peaks;
    std::vector<double> peaks_without;
    case_costs cases(tools::all_cases().size());
    for (unsigned repetition = 0; repetition < how.repetitions; repetition++) {
        std::cerr << "cases: repetition " << repetition + 1 << " of " << how.repetitions << '\n';
        runs.push_back(cost_of({TAVOR_BINARY}));
        add_run(cases, how);
        peaks.push_back(peak_memory_of({TAVOR_BINARY, LARGE_SUITE}));
        peaks_without.push_back(peak_memory_of(suites_but_the_large_one()));
    }
    out << "## Real cases\n\n";
    print_full_run(out, runs, peaks, peaks_without);
    print_cases(out, cases);
}

} // namespace bench

// SPDX-License-Identifier: MIT
//
// Runs the programs that measure operations of the reference library, and makes tables of what they
// tell.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <map>

#include "bench/driver/cost.h"
#include "bench/driver/parts.h"
#include "bench/driver/table.h"

namespace bench {

namespace {

// The unit beside nanoseconds, in the programs that measure it.
const std::string COPY = "copy_1500_bytes";

// CPU time of a single operation, repetition by repetition.
struct operation {
    std::string name;
    std::pair<int, int> place{}; // in the program
    std::vector<double> nanoseconds{};
};

std::vector<operation> operations_in(const nlohmann::json &report)
{
    const std::map<std::string, double> units = {{"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};
    std::vector<operation> found;
    std::map<std::string, std::size_t> index;
    for (const nlohmann::json &run : report.at("benchmarks")) {
        if (run.at("run_type") != "iteration") continue;
        const std::string name = run.at("run_name");
        if (run.value("error_occurred", false)) {
            throw std::runtime_error(name + ": " + run.value("error_message", ""));
        }
        const auto [at, is_new] = index.emplace(name, found.size());
        if (is_new) {
            found.push_back({name, {run.at("family_index"), run.at("per_family_instance_index")}});
        }
        found[at->second].nanoseconds.push_back(run.at("cpu_time").get<double>() *
                                                units.at(run.at("time_unit")));
    }
    // They ran in random order.
    std::sort(found.begin(), found.end(),
              [](const operation &one, const operation &other) { return one.place < other.place; });
    return found;
}

double copy_in(const std::vector<operation> &operations)
{
    for (const operation &measured_operation : operations) {
        if (measured_operation.name == COPY) {
            return summary_of(measured_operation.nanoseconds).median;
        }
    }
    return 0;
}

void print_operations(std::ostream &out, const std::vector<operation> &operations)
{
    const double copy = copy_in(operations);
    table rows({"operation", "CPU, ns", "copies of 1500 bytes"});
    for (const operation &measured_operation : operations) {
        const double median = summary_of(measured_operation.nanoseconds).median;
        rows.add({"`" + measured_operation.name + "`", figures(measured_operation.nanoseconds),
                  copy > 0 ? figure(median / copy) : "-"});
    }
    rows.print(out);
}

} // namespace

void measure_library(std::ostream &out, const settings &how)
{
    for (const std::string &program : how.library_programs) {
        std::cerr << "library: " << program << '\n';
        const std::string report =
            output_of({program, "--benchmark_repetitions=" + std::to_string(how.repetitions),
                       "--benchmark_enable_random_interleaving=true", "--benchmark_format=json"});
        out << "## `" << std::filesystem::path(program).filename().string() << "`\n\n";
        print_operations(out, operations_in(nlohmann::json::parse(report)));
    }
}

} // namespace bench

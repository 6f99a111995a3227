// SPDX-License-Identifier: MIT
//
// The driver of the benchmarks: bench/run starts it. It builds what it compares, takes turns
// between the programs, and prints tables in Markdown.
#include <CLI/CLI.hpp>
#include <sys/utsname.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <thread>

#include "bench/driver/parts.h"

namespace {

struct part {
    std::string name;
    void (*measure)(std::ostream &, const bench::settings &);
};

const std::vector<part> PARTS = {
    {"runner", bench::measure_runner},     {"cases", bench::measure_cases},
    {"campaign", bench::measure_campaign}, {"build", bench::measure_build},
    {"library", bench::measure_library},
};

std::vector<std::string> part_names()
{
    std::vector<std::string> names;
    std::transform(PARTS.begin(), PARTS.end(), std::back_inserter(names),
                   [](const part &known) { return known.name; });
    return names;
}

// As /proc/cpuinfo names it on x86; elsewhere the machine's kind.
std::string processor_name()
{
    std::ifstream information("/proc/cpuinfo");
    for (std::string line; std::getline(information, line);) {
        const std::size_t colon = line.find(": ");
        if (line.starts_with("model name") && colon != std::string::npos) {
            return line.substr(colon + 2);
        }
    }
    utsname system{};
    return uname(&system) == 0 ? system.machine : "unknown";
}

// A figure is worth nothing without the machine that it comes from.
void print_machine(std::ostream &out)
{
    out << processor_name() << ", " << std::thread::hardware_concurrency() << " processors, "
        << BENCH_COMPILER << ".\n\n";
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Measures tavor and what stands beside it."};
    bench::settings how;
    how.jobs = std::max(1u, std::thread::hardware_concurrency());
    how.folder = BENCH_FOLDER;
    std::vector<std::string> chosen = part_names();
    app.add_option("parts", chosen, "what to measure; without any all")
        ->check(CLI::IsMember(part_names()));
    app.add_option("--repetitions", how.repetitions, "of each measurement")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--starts", how.starts, "of a short program for one measurement")
        ->check(CLI::Range(1, 100'000))
        ->capture_default_str();
    app.add_option("--jobs,-j", how.jobs, "at once, for builds and the campaign")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_flag("--all-peers", how.all_peers,
                 "in the part runner every framework, not cmocka alone");
    app.add_option("--library-program", how.library_programs, "for the part library");
    CLI11_PARSE(app, argc, argv);
    print_machine(std::cout);
    try {
        for (const part &known : PARTS) {
            if (std::find(chosen.begin(), chosen.end(), known.name) != chosen.end()) {
                known.measure(std::cout, how);
                std::cout.flush();
            }
        }
    } catch (const std::exception &error) {
        std::cerr << "tavor-bench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}

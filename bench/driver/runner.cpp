// SPDX-License-Identifier: MIT
//
// The same trivial cases under tavor's own runner and under its peers.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "bench/driver/cost.h"
#include "bench/driver/parts.h"
#include "bench/driver/peer_sources.h"
#include "bench/driver/table.h"
#include "tools/common/process.h"
#include "tools/common/registry.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

const std::string BASE = "table-so"; // tavor's own shape without its contract
const std::string PEERS_PROJECT = BENCH_SOURCE_DIR "/peers";
const std::string ONE_CASE = "kel_metadata_get_caller";

struct peer {
    std::string name;
    std::string sources; // folder of its generated cases
    std::vector<std::string> to_run_one;
    std::vector<std::string> to_list;
    // What stands in the output for each case that passed; for the frameworks that print nothing
    // for it, what stands there once.
    std::string mark;
    bool is_mark_of_each_case;
    bool is_framework = true;
};

const std::string CASES = std::to_string(tools::all_cases().size());

const std::vector<peer> PEERS = {
    {"table-so", "table", {ONE_CASE}, {"-g"}, " PASS\n", true, false},
    {"tavor", "tavor", {ONE_CASE}, {"-g"}, " PASS\n", true, false},
    {"table", "table", {ONE_CASE}, {"-g"}, " PASS\n", true, false},
    {"cmocka", "cmocka", {ONE_CASE}, {"-g"}, "[       OK ] ", true},
    {"check", "check", {ONE_CASE}, {"-g"}, ":P:", true},
    {"doctest",
     "doctest",
     {"-tc=" + ONE_CASE},
     {"-ltc"},
     "| " + CASES + " passed | 0 failed",
     false},
    {"googletest",
     "googletest",
     {"--gtest_filter=kel_metadata.get_caller"},
     {"--gtest_list_tests"},
     "[       OK ] ",
     true},
    {"catch2",
     "catch2",
     {ONE_CASE},
     {"--list-test-names-only"},
     "in " + CASES + " test cases",
     false},
};

// cmocka is the framework that comes nearest; the others take minutes to build.
std::vector<peer> chosen_peers(const settings &how)
{
    std::vector<peer> chosen;
    std::copy_if(PEERS.begin(), PEERS.end(), std::back_inserter(chosen), [&](const peer &known) {
        return how.all_peers || !known.is_framework || known.name == "cmocka";
    });
    return chosen;
}

struct peer_costs {
    measured full;
    measured one;
    measured list;
    measured further; // case in the same process
    measured build;
    measured rebuild;
    std::vector<double> memory;
    double size = 0;
    double size_with_run_time = 0;
};

class peers_build {
public:
    peers_build(const settings &how, const std::vector<peer> &peers)
        : folder(how.folder / "peers"), sources(folder / "cases")
    {
        write_peer_sources(sources);
        std::string frameworks;
        for (const peer &each : peers) {
            if (each.is_framework) frameworks += each.name + ';';
        }
        // A compiler cache would be what is measured.
        output_of({"cmake", "-S", PEERS_PROJECT, "-B", folder, "-G", "Ninja",
                   "-DPEER_SOURCES=" + sources.string(), "-DPEERS=" + frameworks,
                   "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DTAVOR_CCACHE="});
        output_of({"ninja", "-C", folder, "-j", std::to_string(how.jobs)});
    }

    std::string program_of(const peer &which) const { return folder / "bin" / which.name; }

    command command_of(const peer &which, const std::vector<std::string> &arguments = {}) const
    {
        command line = {program_of(which)};
        line.insert(line.end(), arguments.begin(), arguments.end());
        return line;
    }

    // The libraries apart: they are built once, as those of a platform.
    cost clean_build(const peer &which) const
    {
        output_of({"ninja", "-C", folder, "-t", "clean", which.name});
        output_of({"ninja", "-C", folder, "work", "kel"});
        return cost_of_success({"ninja", "-C", folder, "-j", "1", which.name});
    }

    cost rebuild(const peer &which) const
    {
        const fs::path family = sources / which.sources / TOUCHED_FAMILY;
        for (const char *extension : {".cpp", ".c"}) {
            const fs::path source = family.string() + extension;
            if (fs::exists(source)) fs::last_write_time(source, fs::file_time_type::clock::now());
        }
        return cost_of_success({"ninja", "-C", folder, "-j", "1", which.name});
    }

private:
    fs::path folder;
    fs::path sources;
};

std::size_t count_of(const std::string &text, const std::string &part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        count++;
    }
    return count;
}

void require(bool holds, const peer &which, const std::string &what)
{
    constexpr std::size_t SHOWN = 2000;
    if (!holds) throw std::runtime_error(which.name + " " + what.substr(0, SHOWN));
}

// That each runs and lists what it is measured for.
void check_output(const peers_build &build, const peer &which)
{
    const std::size_t cases = tools::all_cases().size();
    const std::string all = output_of(build.command_of(which));
    require(count_of(all, which.mark) == (which.is_mark_of_each_case ? cases : 1), which,
            "does not pass all cases:\n" + all);
    const std::string one = output_of(build.command_of(which, which.to_run_one));
    require(!which.is_mark_of_each_case || count_of(one, which.mark) == 1, which,
            "does not run one case:\n" + one);
    const std::string list =
        tools::run_process({.arguments = build.command_of(which, which.to_list)}).output;
    require(static_cast<std::size_t>(std::count(list.begin(), list.end(), '\n')) >= cases, which,
            "does not list all cases:\n" + list);
}

double stripped_size(const fs::path &file, const fs::path &folder)
{
    const fs::path stripped = folder / "stripped";
    output_of({"strip", "-o", stripped, file});
    return static_cast<double>(fs::file_size(stripped));
}

// The program with the libraries that it brings; what every C program has, and the library under
// test, do not count.
void measure_size(const peers_build &build, const peer &which, const fs::path &folder,
                  peer_costs &costs)
{
    const std::set<std::string> everywhere = {"libc.so.6", "libkel.so"};
    const std::set<std::string> run_time = {"libstdc++.so.6", "libgcc_s.so.1", "libm.so.6"};
    costs.size = stripped_size(build.program_of(which), folder);
    costs.size_with_run_time = costs.size;
    std::istringstream libraries(output_of({"ldd", build.program_of(which)}));
    for (std::string line; std::getline(libraries, line);) {
        std::istringstream words(line);
        std::string name;
        std::string arrow;
        std::string path;
        words >> name >> arrow >> path;
        if (arrow != "=>" || everywhere.contains(name)) continue;
        const double size = stripped_size(path, folder);
        costs.size_with_run_time += size;
        if (!run_time.contains(name)) costs.size += size;
    }
}

cost cost_of_further_case(const command &all, const command &one, const settings &how)
{
    const double further = static_cast<double>(tools::all_cases().size() - 1);
    const cost of_all = cost_of_main(all, how.starts, how.folder);
    const cost of_one = cost_of_main(one, how.starts, how.folder);
    return {(of_all.cpu - of_one.cpu) / further, (of_all.wall - of_one.wall) / further};
}

// The kernel counts pages in batches, so that single figures differ.
double median_peak_memory(const command &program, unsigned starts)
{
    std::vector<double> peaks;
    for (unsigned i = 0; i < starts; i++) {
        peaks.push_back(peak_memory_of(program));
    }
    return summary_of(peaks).median;
}

void measure_starts(const peers_build &build, const peer &which, const settings &how,
                    peer_costs &costs)
{
    const command all = build.command_of(which);
    const command one = build.command_of(which, which.to_run_one);
    costs.full.runs.push_back(cost_of(all, how.starts));
    costs.one.runs.push_back(cost_of(one, how.starts));
    costs.list.runs.push_back(cost_of(build.command_of(which, which.to_list), how.starts));
    costs.further.runs.push_back(cost_of_further_case(all, one, how));
    costs.memory.push_back(median_peak_memory(all, how.starts));
}

void print_measure(std::ostream &out, const std::string &title,
                   const std::vector<peer_costs> &costs, measured peer_costs::*which,
                   const std::string &unit, double factor)
{
    std::vector<measured> programs;
    programs.reserve(costs.size());
    for (const peer_costs &of_peer : costs) {
        programs.push_back(of_peer.*which);
    }
    out << "### " << title << "\n\n";
    print_costs(out, programs, BASE, unit, factor);
}

void print_sizes(std::ostream &out, const std::vector<peer_costs> &costs)
{
    constexpr double KIB = 1024;
    const peer_costs &base = costs.front();
    const double base_memory = summary_of(base.memory).median;
    table rows({"program", "peak memory of a full run, KiB", "/ " + BASE, "stripped size, KiB",
                "/ " + BASE, "with the C++ run-time library, KiB", "/ " + BASE});
    for (const peer_costs &of_peer : costs) {
        rows.add({of_peer.full.name, figures(of_peer.memory),
                  figure(summary_of(of_peer.memory).median / base_memory),
                  figure(of_peer.size / KIB), figure(of_peer.size / base.size),
                  figure(of_peer.size_with_run_time / KIB),
                  figure(of_peer.size_with_run_time / base.size_with_run_time)});
    }
    out << "### Memory and size\n\n";
    rows.print(out);
}

} // namespace

void measure_runner(std::ostream &out, const settings &how)
{
    const std::vector<peer> peers = chosen_peers(how);
    const peers_build build(how, peers);
    std::vector<peer_costs> costs(peers.size());
    for (std::size_t i = 0; i < peers.size(); i++) {
        check_output(build, peers[i]);
        measure_size(build, peers[i], how.folder, costs[i]);
        for (measured peer_costs::*which :
             {&peer_costs::full, &peer_costs::one, &peer_costs::list, &peer_costs::further,
              &peer_costs::build, &peer_costs::rebuild}) {
            (costs[i].*which).name = peers[i].name;
        }
    }
    for (unsigned repetition = 0; repetition < how.repetitions; repetition++) {
        std::cerr << "runner: repetition " << repetition + 1 << " of " << how.repetitions << '\n';
        for (std::size_t i = 0; i < peers.size(); i++) {
            measure_starts(build, peers[i], how, costs[i]);
        }
        for (std::size_t i = 0; i < peers.size(); i++) {
            costs[i].build.runs.push_back(build.clean_build(peers[i]));
            costs[i].rebuild.runs.push_back(build.rebuild(peers[i]));
        }
    }

    constexpr double MS = 1e3;
    constexpr double US = 1e6;
    constexpr double NS = 1e9;
    out << "## Runner\n\n";
    print_measure(out, "Full run", costs, &peer_costs::full, "µs", US);
    print_measure(out, "One case by name", costs, &peer_costs::one, "µs", US);
    print_measure(out, "List of the cases", costs, &peer_costs::list, "µs", US);
    print_measure(out, "A further case in one process", costs, &peer_costs::further, "ns", NS);
    print_measure(out, "Clean build", costs, &peer_costs::build, "ms", MS);
    print_measure(out, "Build after a source file was touched", costs, &peer_costs::rebuild, "ms",
                  MS);
    print_sizes(out, costs);
}

} // namespace bench

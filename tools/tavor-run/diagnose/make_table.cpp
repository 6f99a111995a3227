// SPDX-License-Identifier: MIT
//
// Makes known-faults.txt: runs all cases with each fault of the reference library, some rounds in
// one process and one with a process for each case, and writes down what does not end as with the
// right library. The results of the runs stay in a folder; a second start goes on from there.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tools/common/interface.h"
#include "tools/common/interrupt.h"
#include "tools/common/output_file.h"
#include "tools/common/process.h"
#include "tools/common/program.h"
#include "tools/common/registry.h"
#include "tools/common/usage_error.h"
#include "tools/diagnosis/diagnosis.h"
#include "tools/tavor-run/diagnose/log.h"

namespace {

namespace fs = std::filesystem;
using namespace diagnosis;

struct arguments {
    std::string folder;
    std::string output = "-";
    std::string tavor_run;
    std::string tavor;
    std::string shim;
    unsigned jobs = 4;
    unsigned timeout = 15;
};

// The rounds of each fault; the last one has a process for each case.
constexpr unsigned ROUNDS = 3;

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// With the right library first, which has no name.
std::vector<known_fault> listed_faults(const arguments &given)
{
    const auto listing = tools::run_process(
        {.arguments = {given.tavor}, .environment = {"KEL_REFERENCE_LIST=faults"}});
    std::vector<known_fault> faults = {{}};
    for (const std::string &line : lines_of(listing.output)) {
        const std::size_t tab = line.find('\t');
        if (tab == std::string::npos) continue;
        faults.push_back({line.substr(0, tab), line.substr(tab + 1), {}});
    }
    if (faults.size() < 2) throw tools::usage_error(given.tavor + " lists no faults");
    return faults;
}

std::string on_every_call(const std::string &fault)
{
    const std::size_t colon = fault.find(':');
    return colon == std::string::npos ? "" : fault.substr(0, colon) + "#1+" + fault.substr(colon);
}

fs::path results_path(const arguments &given, const std::string &fault, unsigned round)
{
    const std::string name = fault.empty() ? "right" : fault;
    return fs::path(given.folder) / (name + "." + std::to_string(round) + ".jsonl");
}

void run_round(const arguments &given, const std::string &fault, unsigned round)
{
    const fs::path path = results_path(given, fault, round);
    if (fs::exists(path)) return;
    const fs::path draft = path.string() + ".draft";
    tools::process_options process;
    process.arguments = {given.tavor_run,
                         "run",
                         "--quiet",
                         "--tavor",
                         given.tavor,
                         "--trace",
                         "0",
                         "--timeout",
                         std::to_string(given.timeout),
                         "--last",
                         "/dev/null",
                         "--out",
                         "jsonl:" + draft.string()};
    if (round == ROUNDS) process.arguments.emplace_back("--isolate");
    process.environment = {"KEL_REFERENCE_FAULTS=" + on_every_call(fault)};
    process.kept = 1 << 16;
    const auto run = tools::run_process(process);
    if (tools::asked_to_stop() != tools::stop::no) throw tools::interrupted();
    if (!run.started || run.signal != 0) throw std::runtime_error(fault + ": " + run.errors);
    fs::rename(draft, path);
}

// A few at a time: most of their time is waiting.
void run_all(const arguments &given, const std::vector<known_fault> &faults)
{
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        const std::size_t count = faults.size() * ROUNDS;
        for (std::size_t i = next++; i < count; i = next++) {
            if (tools::asked_to_stop() != tools::stop::no) return;
            run_round(given, faults[i % faults.size()].name,
                      static_cast<unsigned>(i / faults.size()) + 1);
        }
    };
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < given.jobs; i++) threads.emplace_back(work);
    threads.clear();
    if (tools::asked_to_stop() != tools::stop::no) throw tools::interrupted();
}

using rounds_of_case = std::map<std::string, std::vector<outcome>>;

rounds_of_case read_rounds(const arguments &given, const std::string &fault)
{
    rounds_of_case all;
    for (unsigned round = 1; round <= ROUNDS; round++) {
        const auto told = tavor_run::log_of({results_path(given, fault, round)});
        for (const sighting &each : told.cases) all[each.case_name].push_back(each.seen);
    }
    return all;
}

// Cases whose lines differ between rounds that end alike: what threads of theirs print depends on
// the clock, and means nothing.
void add_unsteady(std::set<std::string> &unsteady, const rounds_of_case &cases)
{
    for (const auto &[name, rounds] : cases) {
        for (const outcome &one : rounds) {
            for (const outcome &other : rounds) {
                const bool end_alike = one.ending == other.ending && one.message == other.message;
                if (end_alike && one.printed != other.printed) unsteady.insert(name);
            }
        }
    }
}

outcomes steady_part(const rounds_of_case &cases, const std::set<std::string> &unsteady)
{
    outcomes all;
    for (const auto &[name, rounds] : cases) {
        for (outcome each : rounds) {
            if (unsteady.contains(name)) each.printed.clear();
            all[name].insert(std::move(each));
        }
    }
    return all;
}

// What a case does in threads may come in another order the next time.
bool has_threads(const fs::path &recording)
{
    std::ifstream file(recording);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('@')) return true;
    }
    return false;
}

struct calls_of_cases {
    std::map<std::string, std::vector<std::string>, std::less<>> operations;
    std::set<std::string> with_threads;
};

calls_of_cases look_at_calls(const arguments &given)
{
    calls_of_cases all;
    const std::string report = fs::path(given.folder) / "calls.txt";
    const std::string recording = fs::path(given.folder) / "calls.seq";
    for (const tools::test_case &each : tools::all_cases()) {
        tools::run_process(
            {.arguments = {given.tavor, "-t", std::string(each.name)},
             .environment = {"LD_PRELOAD=" + given.shim, "KELTRACE_REPORT=" + report,
                             "KELTRACE_RECORD=" + recording, "KELTRACE_FAULTS=sleep#1+:lost"}});
        if (has_threads(recording)) all.with_threads.emplace(each.name);
        auto &called = all.operations[std::string(each.name)];
        std::ifstream file(report);
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string kind;
            std::string operation;
            words >> kind >> operation;
            if (kind == "calls" && interface::find_operation(operation) != nullptr) {
                called.push_back(operation);
            }
        }
    }
    return all;
}

// The first call that differs, as explain finds it; empty when none does.
std::string call_of(const arguments &given, const std::string &fault, const std::string &name,
                    unsigned round)
{
    const fs::path path =
        fs::path(given.folder) / (fault + "." + name + "." + std::to_string(round) + ".json");
    if (!fs::exists(path)) {
        const auto run = tools::run_process(
            {.arguments = {given.tavor_run, "explain", "--json", "--tavor", given.tavor,
                           "--timeout", std::to_string(given.timeout), name},
             .environment = {"KEL_REFERENCE_FAULTS=" + on_every_call(fault)}});
        if (tools::asked_to_stop() != tools::stop::no) throw tools::interrupted();
        std::ofstream(path) << run.output;
    }
    const auto told = tavor_run::log_of({path});
    return told.cases.front().seen.call;
}

// Those in which the faults fail, then others that call what they are in; none that waits or has
// threads.
std::vector<std::string> cases_to_explain(const table &made, const group &faults,
                                          const std::set<std::string> &with_threads)
{
    constexpr std::size_t MOST_FAILING = 20;
    constexpr std::size_t MOST = 40;
    std::vector<std::string> names;
    for (const auto &[name, ways] : faults.front()->cases) {
        if (ways.begin()->ending != ending::good && !with_threads.contains(name) &&
            names.size() < MOST_FAILING) {
            names.push_back(name);
        }
    }
    for (const auto &[name, called] : made.operations) {
        const bool is_wanted =
            std::ranges::any_of(faults, [&called = called](const known_fault *each) {
                const std::string operation = each->name.substr(0, each->name.find(':'));
                return std::ranges::find(called, operation) != called.end();
            });
        const bool waits = name.find("_wait_") != name.npos || name.find("_sig") != name.npos ||
                           with_threads.contains(name);
        if (is_wanted && !waits && !faults.front()->cases.contains(name) && names.size() < MOST) {
            names.push_back(name);
        }
    }
    return names;
}

// The calls of the faults in the case, where each has one.
std::vector<std::string> calls_of(const arguments &given, const group &faults,
                                  const std::string &name, unsigned round)
{
    std::vector<std::string> calls(faults.size());
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < faults.size(); i++) {
            threads.emplace_back([&, i] {
                try {
                    calls[i] = call_of(given, faults[i]->name, name, round);
                } catch (const std::exception &) {
                    calls[i].clear(); // it could not be explained
                } catch (const tools::interrupted &) {
                    calls[i].clear(); // who called this sees it
                }
            });
        }
    }
    if (std::ranges::find(calls, "") != calls.end()) calls.clear();
    return calls;
}

// Faults that no case tells apart by its end are, where it goes, by the calls of one.
void tell_apart(const arguments &given, table &made, const std::set<std::string> &with_threads)
{
    std::map<outcomes, std::vector<known_fault *>> alike;
    for (known_fault &each : made.faults) {
        if (!each.cases.empty()) alike[each.cases].push_back(&each);
    }
    for (const auto &[cases, faults] : alike) {
        if (faults.size() == 1) continue;
        std::size_t classes = 1;
        const group asked(faults.begin(), faults.end());
        for (const std::string &name : cases_to_explain(made, asked, with_threads)) {
            if (tools::asked_to_stop() != tools::stop::no) throw tools::interrupted();
            const auto calls = calls_of(given, asked, name, 1);
            const std::size_t different = std::set(calls.begin(), calls.end()).size();
            if (different <= classes || calls != calls_of(given, asked, name, 2) ||
                calls != calls_of(given, asked, name, 3)) {
                continue;
            }
            classes = different;
            for (std::size_t i = 0; i < faults.size(); i++) {
                outcome one = *endings_of(made, faults[i], name).begin();
                one.call = calls[i];
                faults[i]->cases[name] = {one};
            }
            if (classes == faults.size()) break;
        }
    }
}

int make(const arguments &given)
{
    tools::catch_interrupts();
    fs::create_directories(given.folder);
    std::vector<known_fault> faults = listed_faults(given);
    run_all(given, faults);
    table made;
    calls_of_cases calls = look_at_calls(given);
    made.operations = std::move(calls.operations);
    std::vector<rounds_of_case> rounds;
    std::set<std::string> unsteady;
    for (const known_fault &each : faults) {
        rounds.push_back(read_rounds(given, each.name));
        add_unsteady(unsteady, rounds.back());
    }
    for (std::size_t i = 0; i < faults.size(); i++) {
        const bool is_right = faults[i].name.empty();
        for (auto &[name, ways] : steady_part(rounds[i], unsteady)) {
            if (ways == endings_of(made, nullptr, name)) continue;
            (is_right ? made.right : faults[i].cases)[name] = std::move(ways);
        }
        if (!is_right) made.faults.push_back(std::move(faults[i]));
    }
    tell_apart(given, made, calls.with_threads);
    tools::output_file(given.output)
        .replace("# How cases end with each fault of the reference library; made by\n"
                 "# kel-known-faults, read by tavor-run diagnose.\n" +
                 to_text(made));
    return 0;
}

int execute(int argc, char *argv[])
{
    CLI::App app{"Makes the table of known faults.", "kel-known-faults"};
    arguments given;
    app.add_option("folder", given.folder, "where the results of the runs are kept")->required();
    app.add_option("-o,--output", given.output, "the table")->capture_default_str();
    app.add_option("--tavor-run", given.tavor_run)->required();
    app.add_option("--tavor", given.tavor)->required();
    app.add_option("--shim", given.shim, "libkeltrace.so")->required();
    app.add_option("--jobs", given.jobs, "runs at a time")->capture_default_str();
    app.add_option("--timeout", given.timeout, "seconds a case may take")->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return make(given);
}

} // namespace

int main(int argc, char *argv[])
{
    return tools::run_program("kel-known-faults", 2, [&] { return execute(argc, argv); });
}

// SPDX-License-Identifier: MIT
//
// kel-mutate: shows that the fault campaign notices when a check is taken out of a suite. It
// builds tavor with one small change in one suite at a time and runs the short campaign over
// the suites of that file: a mutant lives if the campaign stays green.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tools/campaign/pool.h"
#include "tools/common/interrupt.h"
#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/common/program.h"
#include "tools/common/shim.h"
#include "tools/mutation/explained.h"
#include "tools/mutation/making.h"
#include "tools/mutation/mutant.h"

namespace {

namespace fs = std::filesystem;

struct arguments {
    std::string source_folder;
    std::string build_folder;
    std::string campaign;
    std::string shim;
    std::string explained_path;
    std::string results_path;
    std::vector<std::string> files; // names of suites' sources; empty: all
    unsigned count = 300;
    unsigned each = 4; // of a file, at least
    unsigned seed = 1;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
};

// Its exit status when it could not do its work.
constexpr int CAMPAIGN_FAILED = 3;

enum class fate { killed, explained, survived, does_not_compile };

struct judged_mutant {
    mutation::mutant what;
    fate end = fate::survived;
    std::string by; // first finding, or the reason for surviving
};

// The suites whose cases a source defines.
std::vector<std::string> suites_in(const std::string &text)
{
    std::set<std::string> suites;
    for (std::size_t at = text.find("kel_"); at != std::string::npos;
         at = text.find("kel_", at + 1)) {
        const std::size_t end = text.find_first_of(",) ", at);
        const std::string before = text.substr(at >= 11 ? at - 11 : 0, at >= 11 ? 11 : at);
        if (text[end] == ',' && (before.ends_with("CASE(") || before.ends_with("TEST_FILE("))) {
            suites.insert(text.substr(at, end - at));
        }
    }
    return {suites.begin(), suites.end()};
}

// As many of each file as its share of all, chosen by the seed, in the order of the places.
std::vector<mutation::mutant> sample(const std::vector<mutation::mutant> &all, unsigned count,
                                     unsigned each, unsigned seed)
{
    std::map<std::string, std::vector<mutation::mutant>> by_file;
    for (const mutation::mutant &candidate : all) {
        by_file[candidate.file].push_back(candidate);
    }
    std::vector<mutation::mutant> chosen;
    std::mt19937 generator(seed);
    for (auto &[file, candidates] : by_file) {
        const std::size_t share =
            std::max<std::size_t>(each, (candidates.size() * count + all.size() - 1) / all.size());
        std::sample(candidates.begin(), candidates.end(), std::back_inserter(chosen), share,
                    generator);
    }
    return chosen;
}

// How tavor is built, taken from the build folder.
class builder {
public:
    explicit builder(const arguments &given) : build(given.build_folder)
    {
        const auto commands =
            nlohmann::json::parse(mutation::read_text(build / "compile_commands.json"));
        for (const auto &entry : commands) {
            const std::string file = entry.at("file");
            const std::string command = entry.at("command");
            const std::size_t object = command.find("CMakeFiles/tavor.dir/");
            if (object == std::string::npos) {
                continue;
            }
            const std::size_t start = command.rfind(' ', object) + 1;
            const std::string path = command.substr(start, command.find(' ', object) - start);
            objects[fs::path(file).filename()] = path;
            if (file.find("/suites/") != std::string::npos) {
                compile[fs::path(file).filename()] = {command, file};
            }
        }
    }

    std::vector<std::string> suite_files() const
    {
        std::vector<std::string> files;
        for (const auto &[name, ignored] : compile) {
            files.push_back(name);
        }
        return files;
    }

    // Builds tavor with the text in place of the file; false when it does not compile.
    bool make(const std::string &file, const std::string &text, const fs::path &folder) const
    {
        const auto &[command, path] = compile.at(file);
        const fs::path changed = folder / file;
        std::ofstream(changed) << text;
        std::string line = command;
        mutation::replace(line, " -c " + path, " -c " + changed.string());
        mutation::replace(line, " " + objects.at(file) + " ",
                          " " + (folder / "mutant.o").string() + " ");
        line += " -w -Wno-error";
        if (!mutation::succeeds(build, line)) {
            return false;
        }
        std::string link = "cc -o " + (folder / "tavor").string();
        for (const auto &[name, object] : objects) {
            link += " " + (name == file ? (folder / "mutant.o").string() : object);
        }
        link += " lib/libkel.so -Wl,-rpath," + (build / "lib").string() + " -pthread";
        return mutation::succeeds(build, link);
    }

private:
    fs::path build;
    std::map<std::string, std::string> objects; // by source file
    std::map<std::string, std::pair<std::string, std::string>> compile;
};

judged_mutant judge(const arguments &given, const builder &made, const mutation::mutant &what,
                    const std::string &text, const std::vector<mutation::explanation> &known)
{
    judged_mutant judged{what, fate::survived, ""};
    const mutation::scratch_folder folder;
    if (!made.make(what.file, mutation::mutated(text, what), folder.path)) {
        judged.end = fate::does_not_compile;
        return judged;
    }
    tools::process_options campaign;
    campaign.arguments = {given.campaign,
                          "--tavor",
                          (folder.path / "tavor").string(),
                          "--shim",
                          given.shim,
                          "--pairs",
                          given.source_folder + "/tests/campaign/pairs",
                          "--quiet",
                          "--fail-fast",
                          "--jobs",
                          "1",
                          "--timeout",
                          "20"};
    for (const std::string &suite : suites_in(text)) {
        campaign.arguments.push_back(suite);
    }
    const tools::process_result result = mutation::finished(campaign);
    if (result.exited_with(CAMPAIGN_FAILED)) {
        throw std::runtime_error("the campaign did not run: " + result.errors);
    }
    if (!result.exited_with(0)) {
        judged.end = fate::killed;
        judged.by = result.output.substr(0, result.output.find('\n'));
    } else {
        judged.by = mutation::explanation_of(what, text, known);
        judged.end = judged.by.empty() ? fate::survived : fate::explained;
    }
    return judged;
}

std::string_view name_of(fate end)
{
    switch (end) {
    case fate::killed:
        return "killed";
    case fate::explained:
        return "explained";
    case fate::survived:
        return "survived";
    case fate::does_not_compile:
        break;
    }
    return "does not compile";
}

int run(const arguments &given)
{
    const std::vector<mutation::explanation> known =
        given.explained_path.empty() ? std::vector<mutation::explanation>()
                                     : mutation::read_explanations(given.explained_path);
    const builder made(given);
    std::map<std::string, std::string> texts;
    std::vector<mutation::mutant> all;
    for (const std::string &file : given.files.empty() ? made.suite_files() : given.files) {
        texts[file] = mutation::read_text(fs::path(given.source_folder) / "suites" / file);
        for (mutation::mutant &found : mutation::mutants_of(file, texts[file])) {
            all.push_back(std::move(found));
        }
    }
    const std::vector<mutation::mutant> chosen = sample(all, given.count, given.each, given.seed);
    std::cerr << chosen.size() << " of " << all.size() << " mutants\n";

    std::optional<tools::output_file> results;
    if (!given.results_path.empty()) {
        results.emplace(given.results_path);
    }
    std::mutex writing;
    std::map<fate, unsigned> counts;
    campaign::processors idle(given.jobs);
    campaign::in_parallel(chosen.size(), idle, [&](std::size_t i, campaign::processor &) {
        const judged_mutant judged = judge(given, made, chosen[i], texts[chosen[i].file], known);
        const std::lock_guard<std::mutex> guard(writing);
        counts[judged.end]++;
        std::ostringstream line;
        line << judged.what.file << ':' << judged.what.line << ": " << judged.what.kind << ": \""
             << texts[judged.what.file].substr(judged.what.position, judged.what.length)
             << "\" -> \"" << judged.what.replacement << '"';
        if (judged.end == fate::survived) {
            std::cout << "SURVIVED " << line.str() << std::endl;
        }
        if (results) {
            results->append(std::string(name_of(judged.end)) + ' ' + line.str() + "  " +
                            tools::printable(judged.by) + '\n');
        }
        return true;
    });
    std::cout << "mutants: " << counts[fate::killed] << " killed, " << counts[fate::survived]
              << " survived, " << counts[fate::explained] << " survived and are explained, "
              << counts[fate::does_not_compile] << " do not compile\n";
    return counts[fate::survived] == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Changes checks of the suites and shows that the fault campaign notices."};
    app.set_version_flag("--version", TAVOR_VERSION);
    arguments given;
    app.add_option("--source", given.source_folder, "the source tree")->required();
    app.add_option("--build", given.build_folder, "a build of it")->required();
    app.add_option("--campaign", given.campaign, "kel-campaign")->required();
    app.add_option("--shim", given.shim, "libkeltrace.so, unless it is in its usual place");
    app.add_option("--explained", given.explained_path, "survivors that are no verdicts");
    app.add_option("--results", given.results_path, "a line a mutant");
    app.add_option("--count", given.count, "mutants, at least");
    app.add_option("--each", given.each, "of each file, at least");
    app.add_option("--seed", given.seed, "of the choice");
    app.add_option("--jobs,-j", given.jobs, "mutants at once")->check(CLI::Range(1, 64));
    app.add_option("files", given.files, "suites' sources, such as buf.cpp; all without any");
    return tools::run_program("kel-mutate", 3, [&] {
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) {
            return app.exit(error) == 0 ? 0 : 3;
        }
        given.shim = tools::required_shim(given.shim, given.campaign);
        tools::catch_interrupts();
        return run(given);
    });
}

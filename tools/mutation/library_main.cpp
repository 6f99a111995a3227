// SPDX-License-Identifier: MIT
//
// kel-mutate-library: builds the reference library with one small error at a time, and tells
// whether tavor's cases, those of tavor-more, and kel-explore notice.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "tools/campaign/pool.h"
#include "tools/common/hang_watch.h"
#include "tools/common/interrupt.h"
#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/common/program.h"
#include "tools/common/registry.h"
#include "tools/common/shim.h"
#include "tools/mutation/code_change.h"
#include "tools/mutation/explained.h"
#include "tools/mutation/library_build.h"
#include "tools/mutation/making.h"

namespace {

namespace fs = std::filesystem;
using mutation::mutant;

// The exit status.
constexpr int ALL_NOTICED = 0;
constexpr int SOME_UNNOTICED = 1;
constexpr int BROKEN = 2;

struct arguments {
    std::string build_folder;
    std::string shim;
    std::string explained_path;
    std::string results_path;
    std::vector<std::string> files; // names of sources; empty: all
    unsigned count = 300;
    unsigned seed = 1;
    double seconds = 4;
    unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
};

// What these do is about tests, and seen by no caller: settings, and what is left at the end.
const std::set<std::string> NOT_MUTATED = {"census.cpp", "load.cpp", "options.cpp"};

// What became of a mutant: "noticed", "unnoticed", "same code" or "does not compile"; and what
// each of the three noticed first.
struct judged_mutant {
    std::string end;
    std::string cases{};
    std::string more{};
    std::string explorer{};
};

std::string line_from(const std::string &text, std::size_t at)
{
    const std::size_t end = std::min(text.find('\n', at), text.size());
    return tools::printable(text.substr(at, text.find_last_not_of(' ', end - 1) + 1 - at));
}

// The first failure of a run of the program's cases on the library in the folder; empty: none.
// Cases that wait for seconds are left out, and what sleeps does not.
std::string noticed_by_cases(const fs::path &program, const std::string &shim,
                             const fs::path &folder)
{
    static const std::set<std::string_view> WAITING = {"kel_event_wait_timeout",
                                                       "kel_event_wait_interrupt",
                                                       "kel_sendrecv_recv_no_sig_prog_flush"};
    constexpr std::chrono::seconds LONGEST{10};
    tools::process_options run;
    run.arguments = {program.string(), "-f"};
    for (const tools::test_case &each : tools::cases_of(program.filename().string())) {
        if (!WAITING.contains(each.name)) run.arguments.emplace_back(each.name);
    }
    run.environment = {"LD_LIBRARY_PATH=" + folder.string(), "LD_PRELOAD=" + shim,
                       "KELTRACE_FAULTS=sleep#1+:lost"};
    tools::hang_watch watch(LONGEST);
    run.on_output = [&](std::string_view) {
        watch = tools::hang_watch(LONGEST);
        return false;
    };
    run.is_over = [&](pid_t process) { return watch.is_hang(process); };
    run.kept = 1 << 20;
    const tools::process_result done = mutation::finished(run);
    const std::size_t failure = done.output.find("FAIL : ");
    if (failure != std::string::npos) {
        return line_from(done.output, done.output.rfind('\n', failure) + 1);
    }
    if (done.timed_out) return "hang";
    if (done.signal != 0) return tools::signal_name(done.signal);
    return done.output.find("Congratulations!") == std::string::npos ? "ends too early" : "";
}

std::string noticed_by_explorer(const arguments &given, const fs::path &program,
                                const std::string &reference, const fs::path &folder)
{
    const tools::process_result done = mutation::finished(
        {.arguments = {program.string(), "--lib", folder.string(), "--reference", reference,
                       "--seconds", std::to_string(given.seconds), "--jobs", "1", "--fail-fast"},
         .timeout = std::chrono::minutes(5),
         .kept = 1 << 20});
    if (done.exited_with(0)) return "";
    const std::size_t finding = done.output.find("finding 1: ");
    if (done.exited_with(1) && finding != std::string::npos) return line_from(done.output, finding);
    if (done.exited_with(2)) return line_from(done.errors, 0);
    throw std::runtime_error("kel-explore did not do its work: " + done.output + done.errors);
}

judged_mutant judge(const arguments &given, mutation::library_build &built, const mutant &what,
                    const std::string &text)
{
    const mutation::scratch_folder folder;
    const auto made = built.make(what.file, mutation::mutated(text, what), folder.path);
    if (made == mutation::made::nothing) return {"does not compile"};
    if (made == mutation::made::same_code) return {"same code"};
    const fs::path programs = fs::path(given.build_folder) / "bin";
    judged_mutant judged;
    judged.cases = noticed_by_cases(programs / tools::TAVOR, given.shim, folder.path);
    judged.more = noticed_by_cases(programs / tools::TAVOR_MORE, given.shim, folder.path);
    judged.explorer =
        noticed_by_explorer(given, programs / "kel-explore", built.library(), folder.path);
    const bool is_noticed =
        !judged.cases.empty() || !judged.more.empty() || !judged.explorer.empty();
    judged.end = is_noticed ? "noticed" : "unnoticed";
    return judged;
}

// A line of the results begins with it: it says all about the mutant.
std::string key_of(const mutant &what, const std::string &text)
{
    const std::size_t begin = what.position == 0 ? 0 : text.rfind('\n', what.position - 1) + 1;
    return fs::path(what.file).filename().string() + ":" + std::to_string(what.line) + ":" +
           std::to_string(what.position - begin + 1) + "\t" + what.kind + "\t" +
           tools::printable(text.substr(what.position, what.length)) + "\t" +
           tools::printable(what.replacement) + "\t";
}

class run {
public:
    explicit run(const arguments &given) : given_(given), built_(given.build_folder)
    {
        if (!given.explained_path.empty()) {
            known_ = mutation::read_explanations(given.explained_path);
        }
        for (const std::string &file : built_.sources()) add_mutants_of(file);
        std::mt19937 random(given.seed);
        std::ranges::shuffle(all_, random);
        if (!given.results_path.empty()) read_results();
    }

    int carry_out()
    {
        std::cerr << given_.count << " of " << all_.size() << " changes\n";
        campaign::processors idle(given_.jobs);
        campaign::in_parallel(all_.size(), idle, [&](std::size_t i, campaign::processor &) {
            const mutant &what = all_[i];
            const std::string key = key_of(what, texts_.at(what.file));
            const auto done = known_results_.find(key);
            if (done != known_results_.end()) return count(what, done->second);
            const judged_mutant judged = judge(given_, built_, what, texts_.at(what.file));
            if (results_) {
                const std::lock_guard guard(lock_);
                results_->append(key + judged.end + "\t" + judged.cases + "\t" + judged.more +
                                 "\t" + judged.explorer + "\n");
            }
            return count(what, judged);
        });
        print_summary();
        return counts_["unnoticed"] == explained_ ? ALL_NOTICED : SOME_UNNOTICED;
    }

private:
    void add_mutants_of(const std::string &file)
    {
        const std::string name = fs::path(file).filename();
        const bool is_asked = given_.files.empty()
                                  ? fs::path(file).parent_path().filename() == "reference" &&
                                        !NOT_MUTATED.contains(name)
                                  : std::ranges::find(given_.files, name) != given_.files.end();
        if (!is_asked) return;
        texts_[file] = mutation::read_text(file);
        for (mutant &each : mutation::code_changes_of(file, texts_[file])) {
            all_.push_back(std::move(each));
        }
    }

    // Of a run that was broken off: it goes on where it ended.
    void read_results()
    {
        std::string kept;
        std::ifstream file(given_.results_path);
        for (std::string line; std::getline(file, line) && !file.eof();) {
            const std::vector<std::string> columns = split(line);
            if (columns.size() != COLUMNS) continue;
            kept += line + "\n";
            std::string key;
            for (std::size_t i = 0; i < KEY_COLUMNS; i++) key += columns[i] + "\t";
            known_results_[key] = {columns[4], columns[5], columns[6], columns[7]};
        }
        results_.emplace(given_.results_path);
        if (!kept.empty()) results_->append(kept);
    }

    static std::vector<std::string> split(const std::string &line)
    {
        std::vector<std::string> columns{""};
        for (const char each : line) {
            if (each == '\t') {
                columns.emplace_back();
            } else {
                columns.back() += each;
            }
        }
        return columns;
    }

    bool is_explained(const mutant &what) const
    {
        mutant named = what;
        named.file = fs::path(what.file).filename();
        return !mutation::explanation_of(named, texts_.at(what.file), known_).empty();
    }

    // False when there are enough.
    bool count(const mutant &what, const judged_mutant &judged)
    {
        const std::lock_guard guard(lock_);
        const bool is_library = judged.end.ends_with("noticed");
        if (is_library && libraries_ == given_.count) return false;
        counts_[judged.end]++;
        if (!is_library) return true;
        libraries_++;
        const bool by_cases = !judged.cases.empty();
        const bool by_either = by_cases || !judged.more.empty();
        const bool by_explorer = !judged.explorer.empty();
        by_cases_ += by_cases ? 1 : 0;
        by_either_ += by_either ? 1 : 0;
        by_explorer_ += by_explorer ? 1 : 0;
        by_explorer_alone_ += by_explorer && !by_either ? 1 : 0;
        by_cases_alone_ += by_either && !by_explorer ? 1 : 0;
        if (judged.end == "unnoticed" && is_explained(what)) {
            explained_++;
        } else if (judged.end == "unnoticed") {
            std::cout << "UNNOTICED " << key_of(what, texts_.at(what.file)) << std::endl;
        }
        return libraries_ < given_.count;
    }

    void print_summary()
    {
        std::cout << libraries_ << " mutants: " << by_cases_ << " noticed by tavor, " << by_either_
                  << " by tavor or tavor-more, " << by_explorer_ << " by kel-explore, "
                  << by_explorer_alone_ << " by kel-explore alone, " << by_cases_alone_
                  << " not by kel-explore; by none: " << explained_ << " explained, "
                  << counts_["unnoticed"] - explained_ << " not; left out: " << counts_["same code"]
                  << " with the same machine code, " << counts_["does not compile"]
                  << " that do not compile\n";
    }

    static constexpr std::size_t KEY_COLUMNS = 4;
    static constexpr std::size_t COLUMNS = 8;

    const arguments &given_;
    mutation::library_build built_;
    std::vector<mutation::explanation> known_;
    std::map<std::string, std::string> texts_;
    std::vector<mutant> all_;
    std::map<std::string, judged_mutant> known_results_;
    std::optional<tools::output_file> results_;
    std::mutex lock_;
    std::map<std::string, unsigned> counts_;
    unsigned libraries_ = 0;
    unsigned explained_ = 0;
    unsigned by_cases_ = 0;
    unsigned by_either_ = 0;
    unsigned by_explorer_ = 0;
    unsigned by_explorer_alone_ = 0;
    unsigned by_cases_alone_ = 0;
};

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Builds the reference library with small errors and tells what notices them."};
    app.set_version_flag("--version", TAVOR_VERSION);
    arguments given;
    app.add_option("--build", given.build_folder, "a build of the source tree")->required();
    app.add_option("--shim", given.shim, "libkeltrace.so, unless it is in its usual place");
    app.add_option("--explained", given.explained_path, "mutants that nothing can notice");
    app.add_option("--results", given.results_path,
                   "a line a mutant; those that it has are not tried again");
    app.add_option("--count", given.count, "mutants that compile and differ");
    app.add_option("--seed", given.seed, "of the choice");
    app.add_option("--seconds", given.seconds, "of kel-explore for each")
        ->check(CLI::PositiveNumber);
    app.add_option("--jobs,-j", given.jobs, "mutants at once")->check(CLI::Range(1, 64));
    app.add_option("files", given.files, "sources of reference/, such as buf.cpp; all without any");
    return tools::run_program("kel-mutate-library", BROKEN, [&] {
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) {
            return app.exit(error) == 0 ? ALL_NOTICED : BROKEN;
        }
        given.build_folder = fs::absolute(given.build_folder);
        given.shim = tools::required_shim(given.shim, given.build_folder + "/bin/kel-campaign");
        tools::catch_interrupts();
        return run(given).carry_out();
    });
}

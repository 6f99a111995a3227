// SPDX-License-Identifier: MIT
//
// kel-explore: looks for answers of a libkel that the contract does not allow.
#include <CLI/CLI.hpp>
#include <thread>

#include "tools/common/interrupt.h"
#include "tools/common/program.h"
#include "tools/explore/corpus.h"
#include "tools/explore/examination.h"
#include "tools/explore/exploration.h"
#include "tools/explore/profile.h"
#include "tools/histories/exploration.h"
#include "tools/sequence/arguments.h"
#include "tools/sequence/parser.h"

namespace {

// The exit status.
constexpr int NOTHING_FOUND = 0;
constexpr int FOUND = 1;
constexpr int BROKEN = 2;

constexpr double DEFAULT_SECONDS = 60;

// Each as text, and where one thread shows it, too, as the sequence and the program that do.
void write(const std::vector<histories::found> &all, const explore::examination_setup &how,
           const explore::settings &asked)
{
    const explore::corpus kept("", asked.output);
    for (std::size_t i = 0; i < all.size(); i++) {
        const std::string path =
            asked.output + "/" + std::to_string(i + 1) + "-threads-" + all[i].operation;
        sequence::write_file(path + ".txt", all[i].text + "the contract: " + all[i].clause + "\n");
        const auto alone = examine(sequence::from_text(all[i].text), how);
        if (alone.outcome == explore::outcome::finding) kept.keep(alone.finding, i + 1);
    }
}

// Histories of threads in place of sequences. Whether something was found, or left undecided.
bool explore_threads(const explore::settings &asked, const histories::shape &size)
{
    const sequence::configuration given =
        asked.profile.empty() ? sequence::configuration{}
                              : explore::read_profile(asked.profile, asked.reference);
    const auto learned = explore::learn(asked.library, asked.reference, given, {asked.limit});
    const histories::totals all =
        histories::explore({asked.library, asked.reference, learned.chosen, size, asked.seconds,
                            asked.sequences, asked.seed, asked.part, asked.json, asked.corpus});
    if (!asked.output.empty())
        write(all.findings, {asked.library, asked.reference, learned}, asked);
    return all.illegal + all.undecided > 0;
}

} // namespace

int main(int argc, char *argv[])
{
    CLI::App app{"Looks for answers of a libkel that the contract does not allow.", "kel-explore"};
    app.set_version_flag("--version", TAVOR_VERSION);
    explore::settings asked;
    asked.jobs = std::max(1U, std::thread::hardware_concurrency());
    double timeout = 2;
    std::string part;
    histories::shape size{0};
    app.add_option("--lib", asked.library, "libkel.so, or the folder that has it")->required();
    auto *seconds =
        app.add_option("--seconds", asked.seconds, "how long (60)")->check(CLI::PositiveNumber);
    app.add_option("--sequences", asked.sequences, "how many, instead of how long")
        ->check(CLI::PositiveNumber)
        ->excludes(seconds);
    app.add_option("--seed", asked.seed, "another run")->capture_default_str();
    app.add_option("--json", asked.json, "findings and summary, an object a line");
    auto *jobs = app.add_option("-j,--jobs", asked.jobs, "lanes of two processes each")
                     ->check(CLI::Range(1, 256))
                     ->capture_default_str();
    app.add_option("--shard", part, "only this part of the sequences: 2/5");
    app.add_option("--profile", asked.profile, "choices of the library that are known, in a file");
    app.add_option("--resume", asked.corpus, "a folder of sequences: made first, and added to");
    app.add_option("-o,--output", asked.output, "a folder for what is found");
    app.add_option("--reference", asked.reference, "the reference library");
    app.add_option("--timeout", timeout, "seconds a call may take beside its own waits")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    auto *fails_fast = app.add_flag("--fail-fast", asked.fails_fast, "ends with the first finding");
    auto *threads = app.add_option("--threads", size.threads,
                                   "histories of so many threads in place of sequences")
                        ->check(CLI::Range(2U, histories::THREADS_MAX))
                        ->excludes(jobs)
                        ->excludes(fails_fast);
    app.add_option("--calls", size.calls, "of each thread")
        ->check(CLI::Range(1U, histories::CALLS_MAX))
        ->capture_default_str()
        ->needs(threads);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? NOTHING_FOUND : BROKEN;
    }
    return tools::run_program("kel-explore", BROKEN, [&] {
        if (!asked.seconds && !asked.sequences) asked.seconds = DEFAULT_SECONDS;
        if (!part.empty()) asked.part = tools::parse_shard(part);
        asked.limit = std::chrono::milliseconds(static_cast<std::int64_t>(timeout * 1000));
        asked.reference = sequence::reference_library(asked.reference);
        tools::catch_interrupts();
        if (size.threads > 0) return explore_threads(asked, size) ? FOUND : NOTHING_FOUND;
        return explore::explore_library(asked) ? FOUND : NOTHING_FOUND;
    });
}

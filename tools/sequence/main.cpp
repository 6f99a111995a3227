// SPDX-License-Identifier: MIT
//
// kel-sequence: shows, makes, compares, reduces and exports sequences of calls.
#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/common/usage_error.h"
#include "tools/sequence/arguments.h"
#include "tools/sequence/export_c.h"
#include "tools/sequence/oracle.h"
#include "tools/sequence/printer.h"
#include "tools/sequence/reduction.h"
#include "tools/sequence/report.h"

namespace {

using namespace sequence;

// The exit status.
constexpr int SAME = 0;
constexpr int DIFFERS = 1;
constexpr int BROKEN = 2;

struct arguments {
    std::string file{};
    std::string calls{};
    std::vector<std::string> libraries{};
    std::string reference{};
    double timeout = 2;
    bool calls_only = false;
    std::string output = "-";
    bool as_c = false;
};

limits limits_of(const arguments &given)
{
    return {std::chrono::milliseconds(static_cast<std::int64_t>(given.timeout * 1000))};
}

call_sequence read_part(const arguments &given)
{
    return part_of(read_file(given.file), given.calls);
}

int show(const arguments &given)
{
    const auto part = read_part(given);
    write_file("-", to_text(part, given.calls_only ? printed::calls : printed::calls_and_answers));
    return SAME;
}

// The sequence with the answers that a library gives; those after a hang or a crash are missing.
call_sequence answered(call_sequence made, const std::string &library, const limits &allowed)
{
    made.answers = run_one(made, {{library}}, allowed);
    made.header.library = library;
    std::vector<bool> kept(made.calls.size(), false);
    std::fill_n(kept.begin(), made.answers.size(), true);
    made.answers.resize(made.calls.size());
    return selection(made, kept);
}

int run(const arguments &given)
{
    const auto made = read_part(given);
    const std::string library =
        given.libraries.empty() ? reference_library(given.reference) : given.libraries.front();
    const auto now = answered(made, library, limits_of(given));
    write_file("-", to_text(now, printed::calls_and_answers));
    return now.answers.back().outcome == outcome::returned ? SAME : DIFFERS;
}

// Against the set of right answers; with two libraries against what the other one answers.
int diff(const arguments &given)
{
    auto made = read_part(given);
    const limits allowed = limits_of(given);
    if (given.libraries.size() == 2) {
        const auto first = answered(made, given.libraries[0], allowed);
        const auto second = answered(made, given.libraries[1], allowed);
        const auto found = first_difference(first, second);
        std::cout << difference_text(first, found);
        return found ? DIFFERS : SAME;
    }
    if (given.libraries.size() == 1) made = answered(made, given.libraries[0], allowed);
    if (!made.has_answers()) {
        throw tools::usage_error("the sequence has no answers: name a library with --lib");
    }
    const verdict judged = judge(made, reference_library(given.reference), allowed);
    std::cout << verdict_text(made, judged);
    return judged.finding ? DIFFERS : SAME;
}

// The finding that the library shows now, with what is needed to show it again.
struct shown {
    call_sequence made;
    verdict judged;
    reduction_setup how;
};

shown find_again(const arguments &given)
{
    if (given.libraries.size() != 1) throw tools::usage_error("name the library with --lib");
    const std::string reference = reference_library(given.reference);
    shown now;
    now.made = answered(read_part(given), given.libraries.front(), limits_of(given));
    now.judged = judge(now.made, reference, limits_of(given));
    now.how = {{given.libraries.front()},
               reference_setup(reference, now.judged.profile.front()),
               limits_of(given)};
    return now;
}

int reduce_file(const arguments &given)
{
    const shown now = find_again(given);
    if (!now.judged.finding) {
        std::cerr << "kel-sequence: " << difference_text(now.made, now.judged.finding);
        return SAME;
    }
    auto smallest = reduce(now.made, *now.judged.finding, now.how);
    if (!smallest) throw tools::usage_error("the difference does not show every time");
    smallest->made.calls.front().comments = {" " + std::to_string(smallest->runs) +
                                             " runs; again: kel-sequence diff --lib " +
                                             given.libraries.front() + " FILE"};
    smallest->made.closing_comments = {" " + expectation_text(smallest->finding)};
    write_file(given.output, to_text(smallest->made, printed::calls_and_answers));
    return DIFFERS;
}

// With the answers that the contract asks for; those in the file may be wrong.
int export_file(const arguments &given)
{
    if (!given.as_c) throw tools::usage_error("say what to make of it: --c");
    auto made = read_part(given);
    configuration chosen;
    if (made.has_answers()) {
        chosen = judge(made, reference_library(given.reference), limits_of(given)).profile.front();
    }
    const auto setup = reference_setup(reference_library(given.reference), chosen);
    made.answers = run_one(made, {setup}, limits_of(given));
    std::vector<bool> kept(made.calls.size(), false);
    std::fill_n(kept.begin(), made.answers.size(), true);
    made.answers.resize(made.calls.size());
    write_file(given.output, to_c(selection(made, kept)));
    return SAME;
}

void add_file(CLI::App &command, arguments &given)
{
    command.add_option("file", given.file, "the sequence, - for standard input")->required();
    command.add_option("--calls", given.calls, "of it only these calls: 0-40,57");
}

void add_libraries(CLI::App &command, arguments &given, int most)
{
    command.add_option("--lib", given.libraries, "libkel.so, or the folder that has it")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check([most, &given](const std::string &) {
            return static_cast<int>(given.libraries.size()) < most ? "" : "too many libraries";
        });
    command.add_option("--reference", given.reference, "the reference library");
    command.add_option("--timeout", given.timeout, "seconds a call may take beside its own waits")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
}

} // namespace

int main(int argc, char *argv[])
{
    CLI::App app{"Shows, makes, compares, reduces and exports sequences of calls of libkel.",
                 "kel-sequence"};
    app.require_subcommand(1);
    app.set_version_flag("--version", TAVOR_VERSION);
    arguments given;
    int status = SAME;
    CLI::App *const shower = app.add_subcommand("show", "print a sequence");
    add_file(*shower, given);
    shower->add_flag("--no-answers", given.calls_only, "the calls alone");
    shower->callback([&] { status = show(given); });
    CLI::App *const runner = app.add_subcommand("run", "make the calls and print the answers");
    add_file(*runner, given);
    add_libraries(*runner, given, 1);
    runner->callback([&] { status = run(given); });
    CLI::App *const differ = app.add_subcommand("diff", "find the first call that differs");
    add_file(*differ, given);
    add_libraries(*differ, given, 2);
    differ->callback([&] { status = diff(given); });
    CLI::App *const reducer =
        app.add_subcommand("reduce", "the fewest calls that show the same difference");
    add_file(*reducer, given);
    add_libraries(*reducer, given, 1);
    reducer->add_option("-o,--output", given.output, "the reduced sequence")->capture_default_str();
    reducer->callback([&] { status = reduce_file(given); });
    CLI::App *const exporter = app.add_subcommand("export", "make a program of it");
    add_file(*exporter, given);
    exporter->add_flag("--c", given.as_c, "a C11 program");
    exporter->add_option("--reference", given.reference, "the reference library");
    exporter->add_option("-o,--output", given.output, "the program")->capture_default_str();
    exporter->callback([&] { status = export_file(given); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? SAME : BROKEN;
    } catch (const std::exception &error) {
        std::cerr << "kel-sequence: " << error.what() << "\n";
        return BROKEN;
    }
    return status;
}

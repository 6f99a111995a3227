// SPDX-License-Identifier: MIT
//
// kel-sequence: shows, makes, compares, reduces and exports sequences of calls.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "tools/common/program.h"
#include "tools/common/registry.h"
#include "tools/common/usage_error.h"
#include "tools/sequence/arguments.h"
#include "tools/sequence/export_c.h"
#include "tools/sequence/export_case.h"
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
    std::string as_case{}; // suite and name
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
call_sequence answered(call_sequence made, const library_setup &library, const limits &allowed)
{
    made.answers = run_one(made, {library}, allowed);
    made.header.library = library.path;
    std::vector<bool> kept(made.calls.size(), false);
    std::fill_n(kept.begin(), made.answers.size(), true);
    made.answers.resize(made.calls.size());
    return selection(made, kept);
}

int run(const arguments &given)
{
    const auto made = read_part(given);
    const library_setup library = given.libraries.empty()
                                      ? content_setup(reference_library(given.reference), {})
                                      : library_setup{given.libraries.front()};
    const auto now = answered(made, library, limits_of(given));
    write_file("-", to_text(now, printed::calls_and_answers));
    const auto has_returned = [](const answer &each) { return each.outcome == outcome::returned; };
    return std::ranges::all_of(now.answers, has_returned) ? SAME : DIFFERS;
}

// Against the set of right answers; with two libraries against what the other one answers.
int diff(const arguments &given)
{
    auto made = read_part(given);
    const limits allowed = limits_of(given);
    if (given.libraries.size() == 2) {
        auto first = answered(made, {given.libraries[0]}, allowed);
        const auto second = answered(made, {given.libraries[1]}, allowed);
        first.shadow = shadow_for(first, reference_library(given.reference), allowed);
        const auto found = first_difference(first, second);
        std::cout << difference_text(first, found);
        return found ? DIFFERS : SAME;
    }
    if (given.libraries.size() == 1) made = answered(made, {given.libraries[0]}, allowed);
    if (!made.has_answers()) {
        throw tools::usage_error("the sequence has no answers: name a library with --lib");
    }
    const verdict judged = judge(made, reference_library(given.reference), allowed);
    std::cout << verdict_text(made, judged);
    return judged.finding ? DIFFERS : SAME;
}

void write_reduced(const arguments &given, reduced smallest)
{
    smallest.made.calls.front().comments = {" " + std::to_string(smallest.runs) +
                                            " runs; again: kel-sequence diff --lib " +
                                            given.libraries.front() + " FILE"};
    smallest.made.closing_comments = {" " + expectation_text(smallest.finding)};
    write_file(given.output, to_text(smallest.made, printed::calls_and_answers));
}

// The sequence's answers are the library's, or were when it was recorded.
std::optional<reduced> reduced_from(const arguments &given, const call_sequence &made,
                                    const verdict &judged)
{
    const std::string reference = reference_library(given.reference);
    if (!judged.finding) return std::nullopt;
    return reduce(made, *judged.finding,
                  {{given.libraries.front()}, reference, judged.profile.front(), limits_of(given)});
}

int reduce_file(const arguments &given)
{
    if (given.libraries.size() != 1) throw tools::usage_error("name the library with --lib");
    const std::string reference = reference_library(given.reference);
    auto made = read_part(given);
    std::optional<reduced> smallest;
    if (made.has_answers()) {
        smallest = reduced_from(given, made, judge(made, reference, limits_of(given)));
    }
    if (!smallest) {
        made = answered(made, {given.libraries.front()}, limits_of(given));
        const verdict judged = judge(made, reference, limits_of(given));
        if (!judged.finding) {
            std::cerr << "kel-sequence: " << difference_text(made, judged.finding);
            return SAME;
        }
        smallest = reduced_from(given, made, judged);
    }
    if (!smallest) throw tools::usage_error("the difference does not show every time");
    smallest->made.header.library = given.libraries.front();
    write_reduced(given, std::move(*smallest));
    return DIFFERS;
}

// With the answers that the contract asks for; those in the file may be wrong.
call_sequence rightly_answered(const arguments &given)
{
    const auto made = read_part(given);
    const std::string reference = reference_library(given.reference);
    const limits allowed = limits_of(given);
    configuration chosen;
    if (made.has_answers()) chosen = judge(made, reference, allowed).profile.front();
    auto right = answered(made, content_setup(reference, chosen), allowed);
    right.shadow = run_one(made, {shadow_setup(reference, chosen)}, allowed);
    right.header.library = made.header.library;
    return right;
}

// The longest of tavor's and tavor-more's suites that the name begins with; empty when there is
// none.
std::string suite_before(const std::string &full_name)
{
    std::string suite;
    for (const std::string_view program : {tools::TAVOR, tools::TAVOR_MORE}) {
        for (const tools::test_case &each : tools::cases_of(program)) {
            const std::string start = std::string(each.suite) + "_";
            if (each.suite.size() <= suite.size()) continue;
            if (full_name.starts_with(start)) suite = each.suite;
        }
    }
    return suite;
}

// "kel_packet_mine" is the case "mine" of kel_packet, as with tavor's own names.
std::string source_of_case(const call_sequence &made, const std::string &full_name)
{
    const std::string suite = suite_before(full_name);
    const std::string name = suite.empty() ? "" : full_name.substr(suite.size() + 1);
    const auto is_plain = [](char each) {
        return (each >= 'a' && each <= 'z') || (each >= '0' && each <= '9') || each == '_';
    };
    if (name.empty() || !std::ranges::all_of(name, is_plain)) {
        throw tools::usage_error("no name for a case: " + full_name +
                                 "; it is a suite's, \"_\" and a word");
    }
    return to_case(made, suite, name);
}

int export_file(const arguments &given)
{
    if (given.as_c != given.as_case.empty()) {
        throw tools::usage_error("say what to make of it: --c or --case NAME");
    }
    const auto made = rightly_answered(given);
    write_file(given.output, given.as_c ? to_c(made) : source_of_case(made, given.as_case));
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

int execute(int argc, char *argv[])
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
    exporter->add_option("--case", given.as_case, "a case of that name in tavor's form");
    exporter->add_option("--reference", given.reference, "the reference library");
    exporter->add_option("-o,--output", given.output, "the program")->capture_default_str();
    exporter->callback([&] { status = export_file(given); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? SAME : BROKEN;
    }
    return status;
}

} // namespace

int main(int argc, char *argv[])
{
    return tools::run_program("kel-sequence", BROKEN, [&] { return execute(argc, argv); });
}

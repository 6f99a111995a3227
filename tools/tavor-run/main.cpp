// SPDX-License-Identifier: MIT
//
// tavor-run: runs tavor, or judges what it printed, and says what came of it.
#include <CLI/CLI.hpp>
#include <array>
#include <filesystem>

#include "tools/common/process.h"
#include "tools/common/program.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/commands.h"
#include "tools/tavor-run/results/results.h"
#include "tools/tavor-run/run/selection.h"

namespace {

using namespace tavor_run;

constexpr auto COMMANDS = std::to_array<std::string_view>(
    {"run", "list", "report", "compare", "bisect", "history", "explain", "reproduce", "diagnose"});

void add_selection(CLI::App &command, selection_arguments &given)
{
    command.add_option("names", given.terms,
                       "cases, suites, globs, numbers, ranges (10-20), @file; !term takes away");
    command.add_flag("--failed", given.failed, "of these only what was not good the last time");
    command.add_option("--last", given.last, "the last results")->type_name("FILE");
    command.add_option("--shard", given.shard, "the I-th of N parts")->type_name("I/N");
    command.add_flag("--shuffle{random}", given.shuffle, "in an order drawn from a seed (=SEED)");
}

// Its name tells which cases all is about, on a device, too, where nothing of it can be read.
void add_tavor(CLI::App &command, std::string &given)
{
    command.add_option("--tavor", given, "the program, tavor or tavor-more")
        ->type_name("FILE")
        ->each([](const std::string &path) {
            tools::use_cases_of(std::filesystem::path(path).filename().string());
        });
}

void add_launch(CLI::App &command, launch_arguments &given)
{
    add_tavor(command, given.tavor);
    command.add_option("--lib", given.library_folder, "folder of libkel.so")->type_name("DIR");
    command.add_option("--shim", given.shim, "libkeltrace.so, for the last library calls")
        ->type_name("FILE");
    command.add_option("--trace", given.traced_calls, "how many of them, 0: none")
        ->type_name("N")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    command.add_option("--exec", given.through, "shell command, followed by tavor's")
        ->type_name("COMMAND");
    command.add_option("--timeout", given.timeout, "that a case may take, 0: no limit")
        ->type_name("SECONDS")
        ->capture_default_str();
    command.add_option("--timeout-scale", given.timeout_scale, "for slow machines")
        ->type_name("FACTOR");
    command.add_option("--print-limit", given.print_limit, "that a case may print, 0: no limit")
        ->type_name("MIB")
        ->check(CLI::Range(0, 4000))
        ->capture_default_str();
    command.add_flag("--isolate", given.isolate, "a process for each case");
    command.add_flag("--closed", given.closed, "refuse the reference library");
}

void add_output(CLI::App &command, output_arguments &given)
{
    command.add_option("--out,--output", given.outputs, "several; " + run_formats())
        ->type_name("FORMAT:FILE")
        ->allow_extra_args(false);
    command.add_flag("--quiet,-q", given.quiet, "in texts only what is not good");
    command.add_option("--color", given.colour, "of texts")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    command.add_option("--baseline", given.baseline, "earlier jsonl results to compare with")
        ->type_name("FILE");
    command.add_flag("--fixed-is-failure", given.fixed_is_failure,
                     "with a baseline: call cases that are good again failures in junit and tap");
}

void add_run(CLI::App &command, run_arguments &given)
{
    add_selection(command, given.selection);
    add_launch(command, given.launch);
    add_output(command, given.output);
    command.add_flag(
        "--census", given.launch.census,
        "name the objects that a case does not release, and the calls that obtained them");
    command.add_option("--repeat", given.repeat, "times")->type_name("N");
    command.add_flag("--until-fail", given.until_fail, "repeat until a case is not good");
    command.add_flag("--fail-fast,-f", given.fail_fast, "stop after the first that is not good");
    command.add_option("--bisect", given.bisected, "find what makes this case change its verdict")
        ->type_name("CASE");
    command.add_option("--gdb", given.debugged, "start gdb with this case")->type_name("CASE");
}

void add_report(CLI::App &command, report_arguments &given)
{
    command.add_option("log", given.log, "captured console, - for standard input")->required();
    command.add_option("names", given.terms, "what was run");
    add_tavor(command, given.tavor);
    command.add_option("--foreign", given.foreign, "lines that are not tavor's")
        ->type_name("REGEX")
        ->allow_extra_args(false);
    command.add_option("--strip", given.strip, "what lines begin with")
        ->type_name("REGEX")
        ->allow_extra_args(false);
    command.add_flag("--any-order", given.any_order, "of a run with -r");
    add_output(command, given.output);
}

void add_compare(CLI::App &command, compare_arguments &given)
{
    command.add_option("reports", given.reports, "jsonl results, as file or name=file")
        ->required()
        ->expected(2, CLI::detail::expected_max_vector_size);
    command.add_option("--out,--output", given.outputs, "several; " + compare_formats())
        ->type_name("FORMAT:FILE")
        ->allow_extra_args(false);
    command.add_flag("--quiet,-q", given.quiet, "in texts only what differs");
    command.add_flag("--all", given.all, "in texts what is equal, too");
}

void add_history(CLI::App &command, history_arguments &given)
{
    command.add_option("reports", given.reports, "jsonl results, or folders with *.jsonl")
        ->required();
    command.add_option("--out,--output", given.outputs, "several; " + history_formats())
        ->type_name("FORMAT:FILE")
        ->allow_extra_args(false);
}

void add_explain(CLI::App &command, explain_arguments &given)
{
    command.add_option("case", given.case_name)->required();
    add_launch(command, given.launch);
    command.add_option("--recording", given.recording, "what KELTRACE_RECORD wrote on a device")
        ->type_name("FILE");
    command.add_option("--reference", given.reference, "the reference library")->type_name("FILE");
}

void add_diagnose(CLI::App &command, diagnose_arguments &given)
{
    command.add_option("reports", given.reports, "jsonl results, or logs; -: standard input")
        ->required();
    command.add_option("--table", given.table, "of known faults")->type_name("FILE");
    command.add_flag("--json", given.json, "as one JSON object");
}

struct program {
    CLI::App app{"Runs tavor, or judges what it printed.", "tavor-run"};
    run_arguments run{};
    run_arguments bisect{};
    selection_arguments list{};
    bool suites_only = false;
    std::string listed_tavor{};
    report_arguments report{};
    compare_arguments compare{};
    history_arguments history{};
    explain_arguments explain{};
    explain_arguments reproduce{};
    diagnose_arguments diagnose{};

    program()
    {
        app.require_subcommand(1);
        app.set_version_flag("--version", TAVOR_RUN_VERSION);
        add_run(*app.add_subcommand("run", "run cases (when no command is named)"), run);
        CLI::App *const lister = app.add_subcommand("list", "list cases");
        add_selection(*lister, list);
        lister->add_flag("--suites", suites_only, "their suites only");
        add_tavor(*lister, listed_tavor);
        add_report(*app.add_subcommand("report", "judge a captured console log"), report);
        add_compare(*app.add_subcommand("compare", "compare jsonl results"), compare);
        add_history(*app.add_subcommand("history", "what changed over many jsonl results"),
                    history);
        CLI::App *const bisecter =
            app.add_subcommand("bisect", "find which cases before it change a case's verdict, or "
                                         "with which library it is not good any more");
        bisecter->add_option("case", bisect.bisected);
        bisecter
            ->add_option("--libs", bisect.libraries,
                         "folders of libkel.so, the oldest first: find the first bad one")
            ->type_name("DIR");
        add_selection(*bisecter, bisect.selection);
        add_launch(*bisecter, bisect.launch);
        CLI::App *const explainer =
            app.add_subcommand("explain", "name the call of libkel that makes a case fail");
        add_explain(*explainer, explain);
        explainer->add_flag("--json", explain.json, "as one JSON object");
        CLI::App *const reproducer =
            app.add_subcommand("reproduce", "write a C program that shows what makes a case fail");
        add_explain(*reproducer, reproduce);
        reproducer->add_option("-o,--output", reproduce.output, "the program")
            ->type_name("FILE")
            ->required();
        add_diagnose(*app.add_subcommand("diagnose", "name the known faults that explain a log"),
                     diagnose);
    }

    int execute() const
    {
        const std::string command = app.get_subcommands().front()->get_name();
        return command == "run"         ? run_command(run)
               : command == "bisect"    ? bisect_command(bisect)
               : command == "list"      ? list_command(list, suites_only)
               : command == "compare"   ? compare_command(compare)
               : command == "history"   ? history_command(history)
               : command == "explain"   ? explain_command(explain)
               : command == "reproduce" ? reproduce_command(reproduce)
               : command == "diagnose"  ? diagnose_command(diagnose)
                                        : report_command(report);
    }
};

// Without a command it is "run".
std::vector<std::string> with_command(std::vector<std::string> words)
{
    const bool named = !words.empty() &&
                       (std::find(COMMANDS.begin(), COMMANDS.end(), words[0]) != COMMANDS.end() ||
                        words[0] == "--help" || words[0] == "-h" || words[0] == "--version");
    if (!named) {
        words.insert(words.begin(), "run");
    }
    return words;
}

int execute(int argc, char *argv[])
{
    program all;
    std::vector<std::string> words(argv, argv + argc);
    all.run.output.command_line = all.report.output.command_line = tools::shell_line({}, words);
    words.erase(words.begin());
    words = with_command(std::move(words));
    std::reverse(words.begin(), words.end()); // as CLI11 wants them
    try {
        all.app.parse(words);
    } catch (const CLI::ParseError &error) {
        return all.app.exit(error) == 0 ? ALL_PASSED : NOTHING_RAN;
    }
    return all.execute();
}

} // namespace

int main(int argc, char *argv[])
{
    return tools::run_program("tavor-run", NOTHING_RAN, [&] { return execute(argc, argv); });
}

// SPDX-License-Identifier: MIT
//
// Options, most of them for all commands: they may stand before the command's name or behind it.
#include "tools/campaign/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <thread>

#include "tools/campaign/commands.h"

namespace campaign {

namespace {

void add_options(CLI::App &app, arguments &given)
{
    app.add_option("--tavor", given.where.tavor, "the program under test")->required();
    app.add_option("--shim", given.where.shim, "libkeltrace.so, unless it is in its usual place");
    app.add_option("--pairs", given.pairs_folder, "folder of the table of pairs")->required();
    app.add_option("--library-path", given.where.library_path, "folder of libkel.so");
    app.add_option("--options", given.where.options, "open choices of the reference library");
    app.add_option("--explained", given.explained_path, "hangs that lie in a case's nature");
    app.add_option("--matrix", given.matrix_path, "what the cases look at, as Markdown");
    app.add_option("--results", given.results_path, "results, a JSON object a line");
    app.add_flag("--resume", given.resume, "do not repeat what the results file holds");
    app.add_flag("--exhaustive", given.exhaustive, "every call with every fault");
    app.add_option("--job-list", given.job_list_path, "what 'jobs --ids' printed: these jobs");
    app.add_option_function<std::string>(
           "--shard",
           [&given](const std::string &text) {
               try {
                   given.part = tools::parse_shard(text);
               } catch (const std::exception &error) {
                   throw CLI::ValidationError("--shard", error.what());
               }
           },
           "the i-th of n parts of the jobs")
        ->type_name("i/n");
    app.add_option("--jobs,-j", given.jobs, "runs at once")->check(CLI::Range(1, 256));
    app.add_option("--timeout", given.timeout_seconds, "seconds a run may take");
    app.add_flag("--list", given.list, "print the table of pairs and end");
    app.add_flag("--quiet", given.quiet, "no progress display");
    app.add_flag("--fail-fast", given.fail_fast, "stop at the first finding");
    app.add_flag("--skip-green", given.skip_green, "leave out the runs without faults");
    app.add_option("names", given.selected, "cases or suites; * and ? are wildcards");
}

void add_commands(CLI::App &app, arguments &given)
{
    const auto add = [&](const char *name, const char *text, command meant) {
        CLI::App *added = app.add_subcommand(name, text);
        added->fallthrough();
        added->final_callback([&given, meant] { given.wanted = meant; });
        return added;
    };
    CLI::App *jobs = add("jobs", "print the jobs, a command a line", command::list_jobs);
    jobs->add_flag("--ids", given.ids_only, "only what names them, for --job-list");
    CLI::App *run_jobs =
        add("run-jobs", "run these jobs, a record each to --results or standard output",
            command::run_jobs);
    run_jobs->add_option("ids", given.ids, "of the jobs")->required();
    CLI::App *merge = add("merge", "the table of what was run in pieces", command::merge);
    merge->add_flag("--missing", given.missing_only, "print the ids of jobs without a result");
    merge->add_option("files", given.records, "results of all pieces");
    app.require_subcommand(0, 1);
}

} // namespace

std::optional<int> parse_arguments(int argc, char **argv, arguments &given)
{
    CLI::App app{"Runs cases of tavor under faults and shows that their checks bite."};
    app.set_version_flag("--version", TAVOR_VERSION);
    given.program = argv[0];
    given.jobs = std::clamp(std::thread::hardware_concurrency(), 1U, 256U);
    add_options(app, given);
    add_commands(app, given);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : USAGE_ERROR;
    }
    given.where.timeout = std::chrono::seconds(given.timeout_seconds);
    return std::nullopt;
}

} // namespace campaign

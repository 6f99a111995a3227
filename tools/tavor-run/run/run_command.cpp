// SPDX-License-Identifier: MIT
#include "tools/tavor-run/commands.h"

#include "tools/common/interrupt.h"
#include "tools/tavor-run/formats/outputs.h"
#include "tools/tavor-run/run/runner.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

int run_command(const run_arguments &given)
{
    if (!given.bisected.empty()) {
        return bisect_command(given);
    }
    if (!given.debugged.empty()) {
        return debug_command(given);
    }
    std::vector<int> rows = selected_rows(given.selection);
    run_options options = run_options_of(given);
    const std::optional<baseline> known = baseline_of(given.output);
    if (known) {
        options.compare = [&known](case_result &what) { known->judge(what); };
    }
    options.explain = [&given](const case_result &what) {
        return explanation_of(given.launch, what);
    };
    const launcher launch(launch_options_of(given.launch));

    run_record record;
    start_record(record, given.output);
    record.identity = launch.identify();
    check_library(given.launch, record.identity.library);
    record.planned = rows.size() * options.repeat;
    record.part = given.selection.shard;
    record.seed = seed_of(given.selection.shuffle);
    if (record.seed) {
        rows = shuffled(std::move(rows), *record.seed);
    }

    reporter report(std::move(record));
    add_writers(report, given.output);
    add_last_results(report, given.selection);
    tools::catch_interrupts();
    report.begin();
    try {
        runner(launch, options, report).run(rows);
        tell_vanished(report, known);
    } catch (const start_error &error) {
        report.note(error.what());
    }
    if (tools::asked_to_stop() != tools::stop::no) {
        report.trouble("interrupted");
    }
    report.end();
    return exit_code(report.record());
}

} // namespace tavor_run

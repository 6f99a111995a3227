// SPDX-License-Identifier: MIT
#include "tools/tavor-run/commands.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "tools/tavor-run/console/console_log.h"
#include "tools/tavor-run/formats/outputs.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

log_options log_options_of(const report_arguments &given)
{
    log_options options;
    options.any_order = given.any_order;
    for (const std::string &pattern : given.foreign) {
        try {
            options.foreign.emplace_back(pattern);
        } catch (const std::regex_error &) {
            throw usage_error("no regular expression: " + pattern);
        }
    }
    if (!given.terms.empty()) {
        options.expected = select_cases(given.terms);
    }
    return options;
}

std::string log_text(const std::string &path)
{
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file || std::filesystem::is_directory(path)) {
            throw usage_error("cannot read " + path);
        }
    }
    std::istream &stream = path == "-" ? std::cin : file;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace

int report_command(const report_arguments &given)
{
    run_record judged;
    judge_log(log_text(given.log), log_options_of(given), judged);
    const std::optional<baseline> known = baseline_of(given.output);
    run_record record;
    start_record(record, given.output);
    record.incomplete = judged.incomplete;
    record.planned = judged.results.size();
    reporter report(std::move(record));
    add_writers(report, given.output);
    report.begin();
    for (case_result &each : judged.results) {
        if (known) known->judge(each);
        report.result(std::move(each));
    }
    for (const std::string &note : judged.notes) {
        report.note(note);
    }
    tell_vanished(report, known);
    report.end();
    return exit_code(report.record());
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/commands.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "tools/tavor-run/console/capture.h"
#include "tools/tavor-run/console/console_log.h"
#include "tools/tavor-run/formats/outputs.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

std::vector<std::regex> patterns_of(const std::vector<std::string> &texts)
{
    std::vector<std::regex> patterns;
    for (const std::string &text : texts) {
        try {
            patterns.emplace_back(text);
        } catch (const std::regex_error &) {
            throw usage_error("no regular expression: " + text);
        }
    }
    return patterns;
}

log_options log_options_of(const report_arguments &given)
{
    log_options options;
    options.any_order = given.any_order;
    options.foreign = patterns_of(given.foreign);
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
    const plain_log plain = make_plain(log_text(given.log), patterns_of(given.strip));
    run_record judged;
    judged.notes = plain.notes;
    judge_log(plain.text, log_options_of(given), judged);
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

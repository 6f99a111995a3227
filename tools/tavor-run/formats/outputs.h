// SPDX-License-Identifier: MIT
//
// Which reports are written where, and what they begin with.
#pragma once

#include <optional>

#include "tools/tavor-run/arguments.h"
#include "tools/tavor-run/formats/writer.h"
#include "tools/tavor-run/results/baseline.h"

namespace tavor_run {

// "format:file", or a format alone for standard output.
struct report_target {
    std::string format{};
    std::string path{};
};
report_target parse_target(const std::string &output);
bool goes_to_standard_output(const std::string &output);

void start_record(run_record &record, const output_arguments &given);

// The reports asked for, and the table on standard output when that is free.
void add_writers(reporter &report, const output_arguments &given);

// What --failed starts from; left out when the user's folder is out of reach.
void add_last_results(reporter &report, const selection_arguments &given);

std::optional<baseline> baseline_of(const output_arguments &given);

// Notes the baseline's cases that exist no more.
void tell_vanished(reporter &report, const std::optional<baseline> &known);

} // namespace tavor_run

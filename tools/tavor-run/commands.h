// SPDX-License-Identifier: MIT
//
// What tavor-run can be told to do. Each command returns the program's exit status.
#pragma once

#include <string>

#include "tools/tavor-run/arguments.h"

namespace tavor_run {

// The names of a command's output formats, for its help.
std::string run_formats(); // of report, too
std::string compare_formats();
std::string history_formats();

int run_command(const run_arguments &given);
int bisect_command(const run_arguments &given);
// Becomes gdb with tavor and one case; returns only by an exception.
int debug_command(const run_arguments &given);
int report_command(const report_arguments &given);
int compare_command(const compare_arguments &given);
int history_command(const history_arguments &given);
int explain_command(const explain_arguments &given);
// What explain prints of the difference, shortened for a report; empty when no call differs or when
// the case cannot be recorded here.
std::string explanation_of(const launch_arguments &launch, const case_result &failed);
int reproduce_command(const explain_arguments &given);
int diagnose_command(const diagnose_arguments &given);
int list_command(const selection_arguments &given, bool suites_only);

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// Which known faults of a library explain what failed.
#include <iostream>

#include "tools/diagnosis/report.h"
#include "tools/tavor-run/commands.h"
#include "tools/tavor-run/diagnose/log.h"
#include "tools/tavor-run/results/results.h"

namespace tavor_run {

int diagnose_command(const diagnose_arguments &given)
{
    const diagnosis::table known =
        diagnosis::read_table(given.table.empty() ? diagnosis::default_table() : given.table);
    const diagnosis::evidence told = diagnosis::in_terms_of(known, log_of(given.reports));
    const diagnosis::diagnosis made = diagnose(known, told);
    std::cout << (given.json ? to_json(made) : to_text(known, told, made));
    return made.failed > 0 ? SOME_FAILED : ALL_PASSED;
}

} // namespace tavor_run

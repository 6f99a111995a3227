// SPDX-License-Identifier: MIT
#include "tools/tavor-run/commands.h"

#include <algorithm>
#include <iostream>

#include "tools/common/interrupt.h"
#include "tools/common/printable.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/run/bisect.h"
#include "tools/tavor-run/run/bisect_libraries.h"
#include "tools/tavor-run/run/selection.h"
#include "tools/tavor-run/run/suggestion.h"

namespace tavor_run {

namespace {

void tell_needed(const launcher &launch, const run_arguments &given, const std::vector<int> &needed)
{
    std::cout << "needed before it, none can be left out:\n";
    std::vector<std::string> names;
    for (const int each : needed) {
        names.emplace_back(tools::all_cases()[static_cast<std::size_t>(each)].name);
        std::cout << "  " << names.back() << "\n";
    }
    names.push_back(given.bisected);
    if (!given.launch.isolate) {
        std::cout << "again: " << launch.shell_text(launch.tavor(names)) << "\n";
        return;
    }
    for (const std::string &name : names) {
        std::cout << "again: " << launch.shell_text(launch.tavor({name})) << "\n";
    }
}

} // namespace

int bisect_command(const run_arguments &given)
{
    if (!given.libraries.empty()) {
        return bisect_libraries(given);
    }
    const int row = tools::case_number(given.bisected);
    if (row < 0) {
        throw given.bisected.empty() ? usage_error("bisect: which case?")
                                     : no_such("case", given.bisected);
    }
    std::vector<int> rows = selected_rows(given.selection);
    if (const auto seed = seed_of(given.selection.shuffle)) {
        std::cout << "seed " << *seed << "\n";
        rows = shuffled(std::move(rows), *seed);
        rows.erase(std::find(rows.begin(), rows.end(), row), rows.end());
    }
    run_options options = run_options_of(given);
    options.look_closer = false;
    options.repeat = 1;
    options.fail_fast = false;
    options.until_fail = false;
    const launcher launch(launch_options_of(given.launch));
    check_library(given.launch, launch.identify().library);
    tools::catch_interrupts();
    std::cout << given.bisected << "\n";
    const bisection found = bisect(launch, options, row, rows, [](const std::string &line) {
        std::cout << "  " << tools::printable(line) << std::endl;
    });
    if (found.needed.empty()) {
        std::cout << "no difference\n";
        return found.alone.state == verdict::unseen ? NOTHING_RAN : ALL_PASSED;
    }
    tell_needed(launch, given, found.needed);
    return SOME_FAILED;
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/commands.h"

#include <iostream>
#include <set>

#include "tools/common/registry.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

int list_command(const selection_arguments &given, bool suites_only)
{
    std::vector<int> rows = selected_rows(given);
    if (const auto seed = seed_of(given.shuffle)) {
        rows = shuffled(std::move(rows), *seed);
    }
    std::set<std::string_view> suites;
    for (const int row : rows) {
        const tools::test_case &each = tools::all_cases()[static_cast<std::size_t>(row)];
        if (!suites_only) {
            std::cout << row << "\t" << each.suite << "\t" << each.name << "\n";
        } else if (suites.insert(each.suite).second) {
            std::cout << each.suite << "\n";
        }
    }
    return ALL_PASSED;
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/commands.h"

#include <iostream>

#include "tools/tavor-run/baseline.h"

namespace tavor_run {

namespace {

void describe(const char *title, const stored_run &run)
{
    const library_identity &library = run.identity.library;
    std::cout << title << run.path << ", " << run.started << (run.has_end ? "" : ", cut short")
              << "\n";
    if (!run.identity.path.empty()) {
        std::cout << "        tavor " << run.identity.path << ", " << run.identity.target
                  << ", tree " << run.identity.tree << "\n        library " << library.path
                  << ", build id " << (library.build_id.empty() ? "unknown" : library.build_id)
                  << "\n";
    }
}

std::string side_text(const std::optional<stored_result> &side)
{
    if (!side) {
        return "-";
    }
    return std::string(name_of(side->state)) + (side->message.empty() ? "" : " : " + side->message);
}

} // namespace

int compare_command(const std::string &before, const std::string &after)
{
    const stored_run first = read_results(before);
    const stored_run second = read_results(after);
    describe("before  ", first);
    describe("after   ", second);
    const std::vector<difference> differences = compare(first, second);
    for (const difference &each : differences) {
        std::cout << each.what << ": " << each.name << "\n  before  " << side_text(each.before)
                  << "\n  after   " << side_text(each.after) << "\n";
    }
    std::cout << differences.size() << " differences\n";
    if (first.results.empty() || second.results.empty()) {
        return NOTHING_RAN;
    }
    return differences.empty() ? ALL_PASSED : SOME_FAILED;
}

} // namespace tavor_run

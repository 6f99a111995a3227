// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/bisect_libraries.h"

#include <iostream>
#include <map>

#include "tools/common/interrupt.h"
#include "tools/common/printable.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/run/bisect.h"
#include "tools/tavor-run/run/selection.h"
#include "tools/tavor-run/run/suggestion.h"

namespace tavor_run {

namespace {

// A case with one library after another, each of them once.
class library_tries {
public:
    library_tries(const run_arguments &how, int case_row) : given(how), row(case_row)
    {
        options = run_options_of(how);
        options.look_closer = false;
        options.repeat = 1;
        options.until_fail = false;
    }

    bool is_good(std::size_t index)
    {
        const auto known = seen.find(index);
        const outcome what = known != seen.end() ? known->second : try_with(index);
        return tavor_run::is_good(what.state);
    }

    launcher launcher_of(std::size_t index) const
    {
        launch_arguments with = given.launch;
        with.library_folder = given.libraries[index];
        return launcher(launch_options_of(with));
    }

    // "old/lib, build id a1b2"
    std::string name_of(std::size_t index) const
    {
        const std::string build_id = launcher_of(index).identify().library.build_id;
        return tools::printable(given.libraries[index] + ", build id " +
                                (build_id.empty() ? "unknown" : build_id));
    }

private:
    outcome try_with(std::size_t index)
    {
        const launcher launch = launcher_of(index);
        launch_arguments with = given.launch;
        with.library_folder = given.libraries[index];
        check_library(with, launch.identify().library);
        try {
            const outcome what = outcome_after(launch, options, row);
            std::cout << "  " << name_of(index) << ": " << tools::printable(text_of(what))
                      << std::endl;
            return seen[index] = what;
        } catch (const start_error &error) {
            throw usage_error(given.libraries[index] + ": " + error.what() + "; leave it out");
        }
    }

    const run_arguments &given;
    run_options options;
    int row;
    std::map<std::size_t, outcome> seen;
};

} // namespace

int bisect_libraries(const run_arguments &given)
{
    run_arguments wanted = given;
    if (wanted.bisected.empty()) {
        wanted.bisected = wanted.libraries.back();
        wanted.libraries.pop_back();
    }
    const int row = tools::case_number(wanted.bisected);
    if (row < 0) throw no_such("case", wanted.bisected);
    if (wanted.libraries.size() < 2) {
        throw usage_error("--libs: of fewer than two none is the first");
    }
    if (!wanted.selection.terms.empty()) {
        throw usage_error("with --libs one case is looked at, not " + wanted.selection.terms[0]);
    }
    library_tries tries(wanted, row);
    for (std::size_t i = 0; i < wanted.libraries.size(); i++) {
        tries.launcher_of(i); // before anything runs: is there a library?
    }
    tools::catch_interrupts();
    std::cout << wanted.bisected << "\n";
    const std::size_t first =
        first_bad(wanted.libraries.size(), [&](std::size_t index) { return tries.is_good(index); });
    if (first == wanted.libraries.size()) {
        std::cout << "good with the last of them\n";
        return ALL_PASSED;
    }
    std::cout << (first == 0 ? "not good with the first of them already: " : "the first bad one: ")
              << tries.name_of(first) << "\n";
    if (first > 0) std::cout << "the last good one: " << tries.name_of(first - 1) << "\n";
    const launcher launch = tries.launcher_of(first);
    std::cout << "again: " << launch.shell_text(launch.tavor({wanted.bisected})) << "\n";
    return SOME_FAILED;
}

} // namespace tavor_run

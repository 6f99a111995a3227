// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tools/common/registry.h"
#include "tools/explain/checks.h"
#include "tools/tavor-run/commands.h"
#include "tools/tavor-run/run/selection.h"
#include "tools/tavor-run/run/suggestion.h"

namespace tavor_run {

int debug_command(const run_arguments &given)
{
    if (tools::case_number(given.debugged) < 0) throw no_such("case", given.debugged);
    if (!given.launch.through.empty()) {
        throw usage_error("--gdb: with --exec start gdb on the device");
    }
    const launcher launch(launch_options_of(given.launch));
    check_library(given.launch, launch.identify().library);
    const command what = launch.tavor({given.debugged});
    for (const std::string &assignment : what.environment) {
        const std::size_t equals = assignment.find('=');
        setenv(assignment.substr(0, equals).c_str(), assignment.c_str() + equals + 1, 1);
    }
    // It stops where the case begins, once tavor has been started.
    const explain::place defined = explain::place_of_case(given.debugged);
    std::vector<std::string> words = {
        "gdb",   "-q",
        "-ex",   "set breakpoint pending on",
        "-ex",   "tbreak " + defined.file + ":" + std::to_string(defined.line),
        "--args"};
    words.insert(words.end(), what.arguments.begin(), what.arguments.end());
    execvp("gdb", tools::pointers_to(words).data());
    throw usage_error(std::string("--gdb: gdb cannot be started: ") + std::strerror(errno));
}

} // namespace tavor_run

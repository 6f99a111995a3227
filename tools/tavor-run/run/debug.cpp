// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/debug.h"

#include <sstream>

namespace tavor_run {

std::vector<std::string> backtrace_of(const command &what, std::chrono::milliseconds timeout)
{
    constexpr std::size_t MOST_FRAMES = 30;
    constexpr const char *TRACE = "\nBACKTRACE\n";
    tools::process_options process{.kept = 1 << 20};
    process.arguments = {"gdb",   "-q",
                         "-nx",   "-batch",
                         "-ex",   "set debuginfod enabled off",
                         "-ex",   "run",
                         "-ex",   "echo \\nBACKTRACE\\n",
                         "-ex",   "backtrace " + std::to_string(MOST_FRAMES),
                         "--args"};
    process.arguments.insert(process.arguments.end(), what.arguments.begin(), what.arguments.end());
    process.environment = what.environment;
    process.timeout = timeout;
    const std::string output = tools::run_process(process).output;
    const std::size_t start = output.rfind(TRACE); // tavor and the case have printed before
    std::vector<std::string> frames;
    std::istringstream lines(start == std::string::npos ? "" : output.substr(start));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('#')) frames.push_back(line);
    }
    return frames;
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tests/support/tavor.h"

#include <csignal>
#include <sstream>

namespace support {

namespace {

int count_of(const std::string &text, const std::string &part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        count++;
    }
    return count;
}

} // namespace

tools::process_result run_tavor(const std::vector<std::string> &arguments,
                                const run_options &options)
{
    tools::process_options process;
    process.arguments = {TAVOR_BINARY};
    process.arguments.insert(process.arguments.end(), arguments.begin(), arguments.end());
    process.environment = options.environment;
    process.environment.emplace_back("LC_ALL=C");
    if (!options.faults.empty()) {
        process.environment.emplace_back("LD_PRELOAD=" KELTRACE_LIBRARY);
        process.environment.push_back("KELTRACE_FAULTS=" + options.faults);
    }
    std::string seen;
    if (!options.stop_after.empty()) {
        process.stop_signal = SIGINT;
        process.on_output = [&](std::string_view piece) {
            seen += piece;
            return count_of(seen, options.stop_after) >= options.stop_after_count;
        };
    }
    return tools::run_process(process);
}

tools::process_result run(const std::string &program, const std::vector<std::string> &words,
                          const std::vector<std::string> &environment)
{
    tools::process_options process{.arguments = {program}, .environment = environment};
    process.arguments.insert(process.arguments.end(), words.begin(), words.end());
    return tools::run_process(process);
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string padded(const std::string &text, std::size_t width)
{
    std::string result = text.substr(0, width);
    result.resize(width, ' ');
    return result;
}

} // namespace support

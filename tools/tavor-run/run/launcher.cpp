// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/launcher.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <utility>

#include "tools/common/loader.h"

namespace tavor_run {

namespace {

namespace fs = std::filesystem;

// For asking who is there: not a case, so it has a limit of its own.
constexpr std::chrono::seconds QUESTION_TIMEOUT{30};

// A list variable with `first` in front of what it holds in this process.
std::string in_front(const std::string &variable, const std::string &first)
{
    const char *const inherited = std::getenv(variable.c_str());
    std::string value = first;
    if (inherited != nullptr && *inherited != '\0' && inherited != first) {
        value += std::string(":") + inherited;
    }
    return variable + "=" + value;
}

std::string variable_of(std::string_view assignment)
{
    return std::string(assignment.substr(0, assignment.find('=')));
}

// What steers library and shim, without the variables that are `given` anew.
std::string inherited_settings(const std::vector<std::string> &given = {})
{
    std::set<std::string> replaced;
    for (const std::string &each : given) {
        replaced.insert(variable_of(each));
    }
    std::set<std::string> settings; // in an order of their own
    for (char **each = environ; *each != nullptr; each++) {
        const std::string name = variable_of(*each);
        const bool steers = name.starts_with("KEL_REFERENCE_") || name.starts_with("KELTRACE_") ||
                            name == "LD_PRELOAD";
        if (steers && !replaced.contains(name)) settings.insert(*each);
    }
    return settings.empty() ? "" : tools::shell_line({settings.begin(), settings.end()}, {});
}

} // namespace

launcher::launcher(launch_options how) : options(std::move(how)) {}

command launcher::tavor(const std::vector<std::string> &arguments, bool traced) const
{
    const bool here = options.through.empty();
    const auto list = [&](const std::string &variable, const std::string &value) {
        return here ? in_front(variable, value) : variable + "=" + value;
    };
    command what;
    if (!options.library_folder.empty()) {
        what.environment.push_back(list("LD_LIBRARY_PATH", options.library_folder));
    }
    if (traced) {
        what.environment.push_back(list("LD_PRELOAD", options.shim));
        if (options.traced_calls > 0) {
            what.environment.push_back("KELTRACE_RING=" + std::to_string(options.traced_calls));
        }
        if (options.census) what.environment.emplace_back("KELTRACE_LEFT=2");
    }
    what.arguments = {options.tavor};
    what.arguments.insert(what.arguments.end(), arguments.begin(), arguments.end());
    return what;
}

std::string launcher::shell_text(const command &what) const
{
    std::string text = command_line(what);
    const std::string settings = inherited_settings(what.environment);
    return settings.empty() ? text : settings + " " + text;
}

std::string launcher::command_line(const command &what) const
{
    if (options.through.empty()) {
        return tools::shell_line(what.environment, what.arguments);
    }
    // Behind a command an assignment would be an argument: env makes it one of its own.
    std::vector<std::string> words;
    if (!what.environment.empty()) {
        words.emplace_back("env");
    }
    words.insert(words.end(), what.environment.begin(), what.environment.end());
    words.insert(words.end(), what.arguments.begin(), what.arguments.end());
    return options.through + " " + tools::shell_line({}, words);
}

tools::process_result launcher::run(const command &what, tools::process_options process) const
{
    if (options.through.empty()) {
        process.arguments = what.arguments;
        process.environment = what.environment;
    } else {
        process.arguments = {"/bin/sh", "-c", command_line(what)};
    }
    process.timeout_signal = SIGTERM;
    process.stop_signal = SIGINT;
    return tools::run_process(process);
}

std::string launcher::bytes_of(const std::string &path) const
{
    if (options.through.empty()) {
        return tools::read_bytes(path);
    }
    return answer_of({{}, {"cat", path}});
}

// What a program prints that has nothing to do with cases; empty when it fails.
std::string launcher::answer_of(const command &question) const
{
    tools::process_options process;
    process.timeout = QUESTION_TIMEOUT;
    tools::process_result result = run(question, process);
    return result.exited_with(0) ? std::move(result.output) : "";
}

program_identity launcher::identify() const
{
    program_identity identity;
    identity.settings = inherited_settings();
    identity.host = answer_of({{}, {"uname", "-n"}});
    identity.host.resize(std::min(identity.host.find_first_of("\r\n"), identity.host.size()));
    identity.path = options.through.empty() ? tools::found_in_path(options.tavor) : options.tavor;
    read_build_records(bytes_of(identity.path), identity);

    command question = tavor({"-h"}); // a loader that does not know the variable starts tavor
    question.environment.emplace_back("LD_TRACE_LOADED_OBJECTS=1");
    tools::process_options process;
    process.timeout = QUESTION_TIMEOUT;
    const std::string library = tools::library_in_listing(run(question, process).output);
    if (!library.empty()) {
        const std::string path = fs::path(library).lexically_normal();
        identity.library = describe_library(path, bytes_of(path));
    }
    return identity;
}

} // namespace tavor_run

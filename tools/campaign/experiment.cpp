// SPDX-License-Identifier: MIT
//
// Running a case under faults and reading the reports of shim and library.
#include "tools/campaign/experiment.h"

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/common/process.h"

namespace campaign {

namespace {

namespace fs = std::filesystem;

// A folder for the report files of one run after the other, removed at the end.
class scratch_folder {
public:
    scratch_folder()
    {
        std::string name = fs::temp_directory_path() / "kel-campaign-XXXXXX";
        path = mkdtemp(name.data());
    }
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    ~scratch_folder()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    // The path of a file that is not there yet.
    std::string new_file(const std::string &name) const
    {
        std::string file = path / name;
        unlink(file.c_str());
        return file;
    }

private:
    fs::path path;
};

// Of the thread that asks: making and removing a folder costs as much as a tenth of a run.
const scratch_folder &own_scratch_folder()
{
    static thread_local const scratch_folder folder;
    return folder;
}

std::vector<std::string> fault_environment(const setting &where, const experiment &what)
{
    std::vector<std::string> environment;
    if (!where.library_path.empty()) {
        environment.push_back("LD_LIBRARY_PATH=" + where.library_path);
    }
    if (!where.options.empty()) {
        environment.push_back("KEL_REFERENCE_OPTIONS=" + where.options);
    }
    if (!what.faults.empty()) {
        environment.push_back("KELTRACE_FAULTS=" + what.faults);
    }
    environment.push_back("LD_PRELOAD=" + where.shim);
    return environment;
}

// However short the time in which a hang shows: without a fault a case takes what it waits on
// purpose.
std::chrono::milliseconds time_limit(const setting &where, const experiment &what)
{
    constexpr std::chrono::seconds LONGEST_WAITS{10};
    const bool is_faultless = what.faults.empty();
    return is_faultless ? where.timeout + LONGEST_WAITS : where.timeout;
}

// The verdict of a run of one case stands before the summary's rule, behind the name and
// whatever the case printed itself.
void read_verdict(const std::string &output, observation &seen)
{
    const std::size_t rule = output.rfind("\n" + std::string(74, '=') + "\nSummary:");
    if (rule == std::string::npos) {
        return;
    }
    const std::string body = output.substr(0, rule);
    std::string line = body.substr(body.rfind('\n') + 1);
    const std::string fail = "FAIL : ";
    const std::size_t at = line.rfind(fail);
    if (at != std::string::npos) {
        seen.judged = verdict::fail;
        seen.message = line.substr(at + fail.size());
        seen.message.erase(seen.message.find_last_not_of(' ') + 1);
    } else if (line.ends_with("PASS")) {
        seen.judged = verdict::pass;
    } else if (line.ends_with("IGNORE")) {
        seen.judged = verdict::ignore;
    }
}

// Lines "calls <operation> <count>", "fault <text> hits <n> fired <n>" and
// "census <kind> <obtained> <released> <left>".
void read_shim_report(const std::string &path, observation &seen)
{
    std::ifstream report(path);
    for (std::string line; std::getline(report, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "calls") {
            std::string operation;
            unsigned count = 0;
            words >> operation >> count;
            seen.calls[operation] = count;
        } else if (word == "fault") {
            seen.fault_was_hit |= line.find(" hits 0 ") == std::string::npos;
            seen.fault_fired |= !line.ends_with(" fired 0");
        } else if (word == "census") {
            std::string kind;
            long obtained = 0;
            long released = 0;
            long left = 0;
            words >> kind >> obtained >> released >> left;
            // The library's own objects are told by its census, which sees them all.
            const bool is_systems = kind == "memory" || kind == "thread" || kind == "descriptor";
            if (is_systems && left > 0) {
                seen.left.push_back(kind + " " + std::to_string(left));
            }
        }
    }
}

// Lines "<name> <count>".
void read_reference_census(const std::string &path, observation &seen)
{
    std::ifstream report(path);
    std::string name;
    unsigned long count = 0;
    while (report >> name >> count) {
        if (count != 0) {
            seen.left.push_back(name + " " + std::to_string(count));
        }
    }
}

} // namespace

observation observe(const setting &where, const experiment &what)
{
    const scratch_folder &scratch = own_scratch_folder();
    const std::string shim_report = scratch.new_file("shim");
    const std::string census = scratch.new_file("census");
    tools::process_options process;
    process.arguments = {where.tavor, what.test};
    process.environment = fault_environment(where, what);
    process.environment.emplace_back("LC_ALL=C");
    process.environment.push_back("KELTRACE_REPORT=" + shim_report);
    process.environment.push_back("KEL_REFERENCE_CENSUS=" + census);
    process.timeout = time_limit(where, what);
    process.timeout_signal = SIGTERM;

    const tools::process_result result = tools::run_process(process);
    observation seen;
    seen.signal = result.signal;
    seen.exit_status = result.exit_status;
    seen.timed_out = result.timed_out;
    seen.errors = result.errors;
    seen.wall_time = result.wall_time;
    read_verdict(result.output, seen);
    read_shim_report(shim_report, seen);
    read_reference_census(census, seen);
    return seen;
}

std::string trace_of(const setting &where, const std::string &test)
{
    const std::string trace_file = own_scratch_folder().new_file("trace");
    const experiment faultless{test, ""};
    tools::process_options process;
    process.arguments = {where.tavor, test};
    process.environment = fault_environment(where, faultless);
    process.environment.push_back("KELTRACE_TRACE=" + trace_file);
    process.timeout = time_limit(where, faultless);
    tools::run_process(process);
    std::ifstream trace(trace_file);
    return {std::istreambuf_iterator<char>(trace), {}};
}

std::string repeat_line(const setting &where, const experiment &what)
{
    return tools::shell_line(fault_environment(where, what), {where.tavor, what.test});
}

} // namespace campaign

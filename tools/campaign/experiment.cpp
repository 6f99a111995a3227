// SPDX-License-Identifier: MIT
//
// Running a case under faults and reading the reports of shim and library.
#include "tools/campaign/experiment.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tools/campaign/watch.h"
#include "tools/common/kept_text.h"
#include "tools/common/process.h"
#include "tools/common/unique_fd.h"

namespace campaign {

namespace {

// A file in memory that another process writes to: no disk can be full, nothing is left behind.
class report_file {
public:
    report_file() : descriptor(memfd_create("report", MFD_CLOEXEC))
    {
        if (descriptor.get() < 0) {
            throw std::system_error(errno, std::generic_category(), "no memory for a report");
        }
    }

    // As long as this process lives.
    std::string path() const
    {
        return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor.get());
    }

    std::string content() const
    {
        std::string text;
        std::array<char, 16384> chunk;
        for (ssize_t count; (count = pread(descriptor.get(), chunk.data(), chunk.size(),
                                           static_cast<off_t>(text.size()))) > 0;) {
            text.append(chunk.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    tools::unique_fd descriptor;
};

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

// The verdict of a run of one case is at the end of the last line before the summary's rule.
void read_verdict(const std::string &output, observation &seen)
{
    const std::size_t rule = output.rfind("\n" + std::string(74, '=') + "\nSummary:");
    if (rule == std::string::npos) {
        return;
    }
    const std::size_t start = output.rfind('\n', rule - 1) + 1;
    if (const auto found =
            tavor_output::verdict_at_end(std::string_view(output).substr(start, rule - start))) {
        seen.judged = found->state;
        seen.message = found->message;
    }
}

// Lines "calls <operation> <count>", "fault <text> hits <n> fired <n>",
// "census <kind> <obtained> <released> <left>", and "swept <kind> <count>" of what a client's
// deregistration released. Of the library's objects the reference library tells itself, and sees
// them all.
void read_shim_report(const setting &where, const std::string &text, observation &seen)
{
    std::istringstream report(text);
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
            const bool is_systems = kind == "memory" || kind == "thread" || kind == "descriptor";
            if ((is_systems || !where.has_reference) && left > 0) {
                seen.left.push_back(kind + " " + std::to_string(left));
            }
        } else if (word == "swept" && !where.has_reference) {
            std::string kind;
            long count = 0;
            words >> kind >> count;
            if (kind == "packet" || kind == "buffer") {
                seen.left.push_back("released_by_deregistration " + std::to_string(count));
            }
        }
    }
}

// Lines "<name> <count>".
void read_reference_census(const std::string &text, observation &seen)
{
    std::istringstream report(text);
    std::string name;
    unsigned long count = 0;
    while (report >> name >> count) {
        if (count != 0) {
            seen.left.push_back(name + " " + std::to_string(count));
        }
    }
}

// A program that ended by itself has written both to their last lines. What is missing would count
// as "not reached" and "nothing left".
void require_whole(const setting &where, const experiment &what, const std::string &shim_report,
                   const std::string &census)
{
    const std::string last = census.substr(census.rfind('\n', census.size() - 2) + 1);
    const bool census_is_whole =
        last.starts_with("released_by_deregistration ") && last.ends_with('\n');
    const char *const missing = !shim_report.ends_with("end\n")           ? "the shim's report"
                                : where.has_reference && !census_is_whole ? "the library's census"
                                                                          : nullptr;
    if (missing) {
        throw std::runtime_error(std::string(missing) +
                                 " is missing or cut: " + repeat_line(where, what));
    }
}

} // namespace

observation observe(const setting &where, const experiment &what,
                    const std::function<void()> &waits)
{
    const report_file shim_report;
    const report_file census;
    tools::process_options process;
    process.arguments = {where.tavor, what.test};
    process.environment = fault_environment(where, what);
    process.environment.emplace_back("LC_ALL=C");
    process.environment.push_back("KELTRACE_REPORT=" + shim_report.path());
    process.environment.push_back("KEL_REFERENCE_CENSUS=" + census.path());
    run_watch watch(time_limit(where, what), waits);
    process.is_over = [&](pid_t started) { return watch.is_hang(started); };
    process.timeout_signal = SIGTERM;
    process.kept = tools::KEPT_OUTPUT;

    const tools::process_result result = tools::required_process(process);
    observation seen;
    seen.signal = result.signal;
    seen.exit_status = result.exit_status;
    seen.timed_out = result.timed_out;
    seen.errors = result.errors;
    seen.wall_time = result.wall_time;
    read_verdict(result.output, seen);
    const std::string calls = shim_report.content();
    const std::string left = census.content();
    if (result.exited_with(0) && !result.timed_out) {
        require_whole(where, what, calls, left);
    }
    read_shim_report(where, calls, seen);
    read_reference_census(left, seen);
    return seen;
}

std::string trace_of(const setting &where, const std::string &test)
{
    const report_file trace;
    const experiment faultless{test, ""};
    tools::process_options process;
    process.arguments = {where.tavor, test};
    process.environment = fault_environment(where, faultless);
    process.environment.push_back("KELTRACE_TRACE=" + trace.path());
    process.timeout = time_limit(where, faultless);
    process.kept = tools::KEPT_OUTPUT;
    if (!tools::required_process(process).exited_with(0)) {
        throw std::runtime_error(test + ": its calls cannot be traced, it does not end by itself");
    }
    return trace.content();
}

std::string repeat_line(const setting &where, const experiment &what)
{
    return tools::shell_line(fault_environment(where, what), {where.tavor, what.test});
}

} // namespace campaign

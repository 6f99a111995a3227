// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/runner.h"

#include <algorithm>
#include <csignal>
#include <set>
#include <sstream>

#include "tools/common/interrupt.h"
#include "tools/common/kept_text.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/console/console_log.h"
#include "tools/tavor-run/run/debug.h"
#include "tools/tavor-run/run/selection.h"
#include "tools/tavor_output/table.h"

namespace tavor_run {

namespace {

using steady = std::chrono::steady_clock;

// Failed cases that are run a second time: with a broken library there may be hundreds.
constexpr unsigned LOOK_CLOSER_AT = 25;
// Failed cases of which the guilty call is named, and crashes of which the backtrace is.
constexpr unsigned EXPLAIN_AT = 3;

std::string name_of_row(int row)
{
    return std::string(tools::all_cases()[static_cast<std::size_t>(row)].name);
}

std::string seconds_text(std::chrono::milliseconds duration)
{
    std::ostringstream text;
    text << std::chrono::duration<double>(duration).count() << " s";
    return text.str();
}

std::string last_line(const std::string &text)
{
    const std::size_t end = text.find_last_not_of(" \n\r");
    if (end == std::string::npos) {
        return "";
    }
    const std::size_t start = text.rfind('\n', end);
    return text.substr(start == std::string::npos ? 0 : start + 1,
                       end - (start == std::string::npos ? 0 : start + 1) + 1);
}

// How a process ended, as people say it. Behind a shell a signal is a status above 128.
std::string ending_text(const tools::process_result &process)
{
    if (!process.started) {
        return process.errors;
    }
    if (process.signal != 0) {
        return tools::signal_name(process.signal);
    }
    std::string text = "exit status " + std::to_string(process.exit_status);
    if (process.exit_status > 128 && process.exit_status < 128 + NSIG) {
        text += " (" + tools::signal_name(process.exit_status - 128) + ")";
    }
    return text;
}

// By this program, or because it passed an interrupt on to a process that does not wait with it.
bool was_interrupted(const tools::process_result &process)
{
    return process.interrupted ||
           (process.signal == SIGINT && tools::asked_to_stop() != tools::stop::no);
}

std::string with_last_error(const std::string &text, const tools::process_result &process)
{
    const std::string said = traced_calls(process.errors).empty() ? last_line(process.errors) : "";
    return said.empty() || said == text ? text : text + ": " + said;
}

} // namespace

struct runner::attempt {
    std::vector<int> rows;
    bool traced = false;
    tools::process_result process{};
    steady::time_point last_start = steady::now();
    int last_row = -1;            // whose name was printed last
    std::size_t printed = 0;      // bytes since then
    std::size_t first_result = 0; // of this attempt, in the record
    bool has_open_case = false;
};

void runner::run(const std::vector<int> &rows)
{
    for (repetition = 1; options.repeat == 0 || repetition <= options.repeat; repetition++) {
        bad_one = false;
        run_once(rows);
        if (!stop_reason.empty() || (options.until_fail && bad_one)) {
            break;
        }
    }
}

void runner::run_once(const std::vector<int> &rows)
{
    std::vector<std::vector<int>> groups;
    if (options.isolate) {
        for (const int row : rows) {
            groups.push_back({row});
        }
    } else {
        groups = ascending_groups(rows);
    }
    for (std::vector<int> &group : groups) {
        run_group(std::move(group));
    }
}

void runner::run_group(std::vector<int> rows)
{
    while (!rows.empty()) {
        if (stop_reason.empty() && tools::asked_to_stop() != tools::stop::no) {
            stop_reason = "interrupted";
        }
        if (!stop_reason.empty()) {
            leave_out(rows, stop_reason);
            return;
        }
        rows = run_process(rows);
    }
}

void runner::leave_out(const std::vector<int> &rows, const std::string &reason)
{
    for (const int row : rows) {
        case_result what = result_of(row, verdict::not_run, reason);
        what.run = repetition;
        report.result(std::move(what));
    }
}

std::vector<int> runner::run_process(const std::vector<int> &rows)
{
    attempt now{rows};
    now.traced = options.isolate && launch.can_trace();
    now.first_result = report.record().results.size();
    follow(now);
    explain_odd_end(now);
    std::vector<int> left = rows_left(now);
    look_closer(now);
    return left;
}

void runner::follow(attempt &now)
{
    log_options how;
    how.expected = now.rows;
    log_events events;
    events.on_started = [&](int row) {
        now.last_start = steady::now();
        now.last_row = row;
        now.printed = 0;
        ran_any = true;
        report.started(row);
    };
    events.on_judged = [&](const sighting &seen) {
        case_result what = result_of(seen.row, seen.state, seen.message);
        what.duration =
            std::chrono::duration_cast<std::chrono::microseconds>(seen.judged - seen.started);
        now.has_open_case = seen.state == verdict::unended || is_flooded(now);
        if (now.has_open_case) {
            what = open_case_result(now, seen.row);
        }
        what.output = seen.output;
        add(now, std::move(what));
    };
    log_reader reader(how, events);

    tools::process_options process{.kept = tools::KEPT_OUTPUT};
    process.on_output = [&](std::string_view piece) {
        now.printed += piece.size();
        reader.feed(piece);
        return false;
    };
    process.deadline = [&] {
        return is_flooded(now)                ? steady::time_point::min()
               : options.timeout.count() == 0 ? steady::time_point::max()
                                              : now.last_start + options.timeout;
    };
    std::vector<std::string> arguments = names_selecting(now.rows);
    if (options.fail_fast) {
        arguments.insert(arguments.begin(), "-f");
    }
    now.process = launch.run(launch.tavor(arguments, now.traced), process);
    reader.finish();
    for (const std::string &contradiction : reader.contradictions()) {
        report.trouble(contradiction);
    }
}

bool runner::is_flooded(const attempt &now) const
{
    return options.print_limit != 0 && now.printed > options.print_limit;
}

// The case that ran when the process ended.
case_result runner::open_case_result(const attempt &now, int row) const
{
    case_result what = result_of(row);
    what.duration =
        std::chrono::duration_cast<std::chrono::microseconds>(steady::now() - now.last_start);
    if (was_interrupted(now.process)) {
        what.state = verdict::not_run;
        what.message = "interrupted";
    } else if (is_flooded(now)) {
        what.state = verdict::flood;
        what.message = "printed more than " + std::to_string(options.print_limit >> 20) + " MiB";
    } else if (now.process.timed_out) {
        what.state = verdict::hang;
        what.message = "no verdict after " + seconds_text(options.timeout);
    } else {
        what.state = verdict::crash;
        what.message = with_last_error(ending_text(now.process) + " in this case", now.process);
    }
    return what;
}

void runner::add(const attempt &now, case_result what)
{
    what.run = repetition;
    if (!is_good(what.state)) {
        what.repeat_command = launch.shell_text(launch.tavor({what.name}));
        bad_one = true;
        if (now.traced) {
            what.calls = traced_calls(now.process.errors);
            what.calls_from = "this run";
        }
    }
    if (options.compare) {
        options.compare(what);
    }
    report.result(std::move(what));
}

std::vector<int> runner::rows_left(const attempt &now)
{
    if (now.last_row < 0) {
        std::string why =
            with_last_error("tavor ran no case: " + ending_text(now.process), now.process);
        if (now.process.errors.find("libkel.so") != std::string::npos) {
            why += " (name the folder of the library with --lib, or build the reference library)";
        }
        if (!ran_any) {
            throw start_error(why);
        }
        report.trouble(why);
        stop_reason = "tavor does not start any more";
        return now.rows;
    }
    std::set<int> reported;
    const auto &results = report.record().results;
    for (std::size_t i = now.first_result; i < results.size(); i++) {
        reported.insert(results[i].number);
    }
    std::vector<int> left;
    for (const int row : now.rows) {
        if (row > now.last_row) {
            left.push_back(row);
        } else if (!reported.contains(row)) {
            add(now, result_of(row, verdict::unseen, "tavor printed nothing of it"));
        }
    }
    if (options.fail_fast && bad_one) {
        stop_reason = "behind a failure";
    }
    return left;
}

// Whatever is no case's fault.
void runner::explain_odd_end(const attempt &now)
{
    const tools::process_result &process = now.process;
    if (now.last_row < 0 || now.has_open_case || process.exited_with(0)) {
        return;
    }
    const std::string how = was_interrupted(process) ? "was interrupted"
                            : process.timed_out      ? "did not end"
                                                     : "ended with " + ending_text(process);
    report.trouble(
        with_last_error("tavor " + how + " behind " + name_of_row(now.last_row), process));
}

void runner::look_closer(const attempt &now)
{
    std::vector<case_result> &results = report.record().results;
    const bool is_alone = results.size() == now.first_result + 1;
    for (std::size_t i = now.first_result; options.look_closer && i < results.size(); i++) {
        case_result &what = results[i];
        if (now.traced && is_alone) what.left = left_objects(now.process.errors);
        const bool has_more = look_closer_at(what, now);
        if (has_more || !what.left.empty()) report.details(what);
    }
}

// A second run of a case that failed: the whole message, the calls that led to it.
bool runner::look_closer_at(case_result &what, const attempt &now)
{
    const bool wanted = (what.state == verdict::fail && !is_excused(what)) ||
                        what.state == verdict::crash || what.state == verdict::hang;
    if (!wanted || tools::asked_to_stop() != tools::stop::no) return false;
    if (looked_at == LOOK_CLOSER_AT) {
        report.note("further failures are not run a second time for their calls");
    }
    if (looked_at++ >= LOOK_CLOSER_AT) return false;
    const bool has_message = fetch_message(what);
    const bool has_calls = fetch_calls(what, now);
    const bool has_trace = fetch_backtrace(what);
    if (options.explain && has_calls && explained++ < EXPLAIN_AT) {
        what.explanation = options.explain(what);
    }
    return has_message || has_calls || has_trace;
}

bool runner::fetch_message(case_result &what)
{
    if (what.state != verdict::fail || what.message.size() < tavor_output::MESSAGE_WIDTH) {
        return false;
    }
    tools::process_options process{.kept = tools::KEPT_OUTPUT};
    process.timeout = options.timeout;
    const command single = launch.tavor({"-s", std::to_string(what.number)});
    const std::string output = launch.run(single, process).output;
    const std::string start = what.name + "FAILED : ";
    const std::size_t at = output.find(start);
    if (at == std::string::npos) {
        return false;
    }
    const std::size_t message = at + start.size();
    const std::string whole = output.substr(message, output.find('\n', message) - message);
    if (whole == what.message || !whole.starts_with(what.message)) {
        return false;
    }
    what.message = whole;
    return true;
}

bool runner::fetch_backtrace(case_result &what)
{
    if (what.state != verdict::crash || !launch.is_here() || !launch.can_trace() ||
        backtraces++ >= EXPLAIN_AT) {
        return false;
    }
    what.backtrace = backtrace_of(launch.tavor({what.name}), options.timeout);
    return !what.backtrace.empty();
}

bool runner::fetch_calls(case_result &what, const attempt &now)
{
    if (now.traced || !launch.can_trace()) {
        return now.traced && !what.calls.empty();
    }
    log_options how;
    how.expected = {what.number};
    log_reader reader(how);
    tools::process_options process{.kept = tools::KEPT_OUTPUT};
    process.timeout = options.timeout;
    const command again = launch.tavor({what.name}, true);
    const tools::process_result second = launch.run(again, process);
    reader.feed(second.output);
    reader.finish();
    what.calls = traced_calls(second.errors);
    if (what.calls.empty() || reader.sightings().empty()) {
        return false;
    }
    const sighting &seen = reader.sightings().front();
    const bool same =
        seen.state == verdict::fail
            ? what.state == verdict::fail && comparable(seen.message) == comparable(what.message)
            : seen.state == verdict::unended && what.state != verdict::fail;
    what.calls_from =
        std::string("a second run, of this case alone: ") +
        (same ? "the same verdict" : std::string(name_of(seen.state)) + " " + seen.message);
    return true;
}

std::vector<std::string> traced_calls(const std::string &errors)
{
    std::vector<std::string> calls;
    bool inside = false;
    std::istringstream lines(errors);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("keltrace: the last ")) {
            calls.clear();
            inside = true;
        } else if (line.starts_with("keltrace: ")) {
            inside = false;
        } else if (inside) {
            calls.push_back(line);
        }
    }
    return calls;
}

std::vector<std::string> left_objects(const std::string &errors)
{
    constexpr std::string_view SHIM = "keltrace: ";
    std::vector<std::string> objects;
    std::istringstream lines(errors);
    for (std::string line; std::getline(lines, line);) {
        const bool is_object =
            line.starts_with("keltrace: left ") || line.starts_with("keltrace: swept ");
        if (is_object) objects.push_back(line.substr(SHIM.size()));
    }
    return objects;
}

} // namespace tavor_run

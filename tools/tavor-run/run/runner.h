// SPDX-License-Identifier: MIT
//
// Runs cases and goes on behind those that crash or hang.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/tavor-run/formats/writer.h"
#include "tools/tavor-run/run/launcher.h"

namespace tavor_run {

struct run_options {
    std::chrono::milliseconds timeout{60'000}; // of a case; 0: none
    std::size_t print_limit = 16 << 20;        // bytes that a case may print; 0: no limit
    bool isolate = false;                      // a process a case
    bool fail_fast = false;                    // nothing behind the first that is not good
    unsigned repeat = 1;                       // 0: without end
    bool until_fail = false;                   // no repetition behind one that is not good
    bool look_closer = true;                   // run failed cases again for message and calls
    // Tells a result how it compares with a baseline.
    std::function<void(case_result &)> compare{};
    // Which call of the library is to blame; asked for the first failures.
    std::function<std::string(const case_result &)> explain{};
};

// tavor could not be started, or it ended before its first case.
class start_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class runner {
public:
    runner(const launcher &how, const run_options &wanted, reporter &listener)
        : launch(how), options(wanted), report(listener)
    {
    }

    // The rows in this order, as often as wanted.
    void run(const std::vector<int> &rows);

private:
    struct attempt;

    void run_once(const std::vector<int> &rows);
    void run_group(std::vector<int> rows);
    // One process; returns the rows that are left for another one.
    std::vector<int> run_process(const std::vector<int> &rows);
    void follow(attempt &now);
    std::vector<int> rows_left(const attempt &now);
    void explain_odd_end(const attempt &now);
    bool is_flooded(const attempt &now) const;
    case_result open_case_result(const attempt &now, int row) const;
    void add(const attempt &now, case_result what);
    void leave_out(const std::vector<int> &rows, const std::string &reason);
    // What can be told of its cases once a process has ended.
    void look_closer(const attempt &now);
    bool look_closer_at(case_result &what, const attempt &now);
    bool fetch_message(case_result &what);
    bool fetch_calls(case_result &what, const attempt &now);
    bool fetch_backtrace(case_result &what);

    const launcher &launch;
    const run_options &options;
    reporter &report;
    unsigned repetition = 1;
    unsigned looked_at = 0;
    unsigned explained = 0;
    unsigned backtraces = 0;
    bool bad_one = false;    // in this repetition
    bool ran_any = false;    // at all
    std::string stop_reason; // why nothing more is to be started
};

// The calls that the shim printed, from a standard error stream.
std::vector<std::string> traced_calls(const std::string &errors);
// The objects that it says are left or swept, with their calls.
std::vector<std::string> left_objects(const std::string &errors);

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// A case is run once more, with its calls recorded, and these are held to the contract.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "tools/common/kept_text.h"
#include "tools/common/registry.h"
#include "tools/explain/explanation.h"
#include "tools/sequence/arguments.h"
#include "tools/sequence/export_c.h"
#include "tools/sequence/reduction.h"
#include "tools/sequence/report.h"
#include "tools/tavor-run/commands.h"
#include "tools/tavor-run/console/console_log.h"
#include "tools/tavor-run/run/selection.h"
#include "tools/tavor-run/run/suggestion.h"

namespace tavor_run {

namespace {

namespace fs = std::filesystem;

// A file that is gone afterwards.
class scratch_file {
public:
    scratch_file()
    {
        path = (fs::temp_directory_path() / "tavor-run.XXXXXX").string();
        const int file = mkstemp(path.data());
        if (file < 0) throw usage_error("no place for a recording: " + path);
        close(file);
    }
    scratch_file(const scratch_file &) = delete;
    scratch_file &operator=(const scratch_file &) = delete;
    ~scratch_file()
    {
        std::error_code error;
        fs::remove(path, error);
    }

    std::string path;
};

struct recorded_case {
    explain::case_outcome outcome;
    sequence::call_sequence calls;
};

explain::case_outcome outcome_of(const std::string &name, int row,
                                 const tools::process_result &process, bool is_flooded)
{
    log_options how;
    how.expected = {row};
    log_reader reader(how);
    reader.feed(process.output);
    reader.finish();
    if (is_flooded) return {name, "flood", ""};
    if (process.timed_out) return {name, "hang", ""};
    if (process.signal != 0) return {name, "crash", tools::signal_name(process.signal)};
    if (reader.sightings().empty()) return {name, "unseen", ""};
    const sighting &seen = reader.sightings().front();
    return {name, std::string(name_of(seen.state)), seen.message};
}

// The call in which the case crashed or flooded, where there is no doubt which one it was: the last
// one, if no other waits.
void set_ending(sequence::call_sequence &calls, const tools::process_result &process,
                bool is_flooded)
{
    const auto unreturned = [](const sequence::answer &each) {
        return each.outcome == sequence::outcome::unreturned;
    };
    if (calls.answers.empty() || std::ranges::count_if(calls.answers, unreturned) != 1) return;
    sequence::answer &last = calls.answers.back();
    if (!unreturned(last) || sequence::may_wait(calls.calls.back().operation)) return;
    if (is_flooded) {
        last.outcome = sequence::outcome::flood;
    } else if (process.signal != 0 && !process.timed_out) {
        last.outcome = sequence::outcome::crash;
        last.signal = process.signal;
    }
}

recorded_case record(const explain_arguments &given, int row)
{
    if (!given.recording.empty()) {
        return {{given.case_name, "recorded", ""}, sequence::read_file(given.recording)};
    }
    if (!given.launch.through.empty()) {
        throw usage_error("with --exec record on the device (KELTRACE_RECORD), and name the file "
                          "with --recording");
    }
    const launch_options options = launch_options_of(given.launch);
    if (options.shim.empty()) throw usage_error("no libkeltrace.so: name it with --shim");
    const launcher launch(options);
    const scratch_file file;
    command what = launch.tavor({given.case_name}, true);
    what.environment.push_back("KELTRACE_RECORD=" + file.path);
    run_arguments limits;
    limits.launch = given.launch;
    tools::process_options process;
    process.kept = tools::KEPT_OUTPUT;
    const run_options asked = run_options_of(limits);
    const auto start = std::chrono::steady_clock::now();
    std::size_t printed = 0;
    const auto is_flooded = [&] { return asked.print_limit != 0 && printed > asked.print_limit; };
    process.on_output = [&](std::string_view piece) {
        printed += piece.size();
        return false;
    };
    process.deadline = [&] {
        using moment = std::chrono::steady_clock::time_point;
        return is_flooded()                 ? moment::min()
               : asked.timeout.count() == 0 ? moment::max()
                                            : start + asked.timeout;
    };
    const tools::process_result result = launch.run(what, process);
    auto calls = sequence::read_file(file.path);
    set_ending(calls, result, is_flooded());
    return {outcome_of(given.case_name, row, result, is_flooded()), std::move(calls)};
}

int row_of(const explain_arguments &given)
{
    const int row = tools::case_number(given.case_name);
    if (row < 0) throw no_such("case", given.case_name);
    return row;
}

// The calls up to the one that differs, with the answers that the contract asks for.
sequence::call_sequence expected_part(const explain::explanation &one)
{
    std::vector<bool> kept(one.recorded.calls.size(), false);
    std::fill_n(kept.begin(), begun_until_return(one.recorded, one.judged.finding->call), true);
    sequence::call_sequence part = one.recorded;
    part.answers = one.judged.expected;
    part.shadow = one.judged.shadow;
    part.answers.resize(part.calls.size(), {.outcome = sequence::outcome::unreturned});
    return selection(part, kept);
}

} // namespace

int explain_command(const explain_arguments &given)
{
    recorded_case now = record(given, row_of(given));
    const auto one = explain::explain(now.outcome, std::move(now.calls),
                                      sequence::reference_library(given.reference), !given.json);
    std::cout << (given.json ? to_json(one) : to_text(one));
    return one.judged.finding ? SOME_FAILED : ALL_PASSED;
}

std::string explanation_of(const launch_arguments &launch, const case_result &failed)
{
    explain_arguments given;
    given.launch = launch;
    given.case_name = failed.name;
    if (failed.state == verdict::hang || !launch.through.empty()) return "";
    try {
        recorded_case now = record(given, failed.number);
        const auto one = explain::explain(now.outcome, std::move(now.calls),
                                          sequence::reference_library(given.reference), true);
        return one.judged.finding ? guilty_text(one) : "";
    } catch (const std::exception &) {
        return ""; // the verdict stands without it
    }
}

int reproduce_command(const explain_arguments &given)
{
    recorded_case now = record(given, row_of(given));
    const std::string reference = sequence::reference_library(given.reference);
    const auto one = explain::explain(now.outcome, std::move(now.calls), reference, false);
    if (!one.judged.finding) {
        std::cout << to_text(one);
        return ALL_PASSED;
    }
    const std::string library = launcher(launch_options_of(given.launch)).identify().library.path;
    std::optional<sequence::reduced> smallest;
    if (!library.empty() && given.recording.empty()) {
        smallest = reduce(one.recorded, *one.judged.finding,
                          {{library}, reference, one.judged.profile.front()});
    }
    const sequence::call_sequence made = smallest ? smallest->made : expected_part(one);
    sequence::write_file(given.output, to_c(made));
    std::cout << given.output << ": " << made.calls.size() << " calls"
              << (smallest ? "" : ", not reduced: the library does not show it outside of the case")
              << "\n"
              << expectation_text(*one.judged.finding) << "\n";
    return SOME_FAILED;
}

} // namespace tavor_run

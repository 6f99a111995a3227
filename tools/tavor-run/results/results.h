// SPDX-License-Identifier: MIT
//
// What became of the cases of a run, and what is known of the run itself.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tavor-run/run/identity.h"

namespace tavor_run {

// The more telling the later: of several runs of a case the greatest counts.
enum class verdict {
    not_run, // not wanted any more when its turn came
    pass,
    ignore,
    fail,
    unseen,  // nothing of it in the log
    unended, // a name without a verdict
    damaged, // seen, but what was seen is no verdict
    flood,   // printed without end
    hang,
    crash,
};

constexpr std::size_t VERDICT_COUNT = static_cast<std::size_t>(verdict::crash) + 1;

std::string_view name_of(verdict which);
std::optional<verdict> verdict_named(std::string_view name);

// Whether it is one that tavor counts as passed.
bool is_good(verdict which);
// Whether the case was judged neither way though it should have been.
bool is_lost(verdict which);

// What became of a case.
struct outcome {
    std::string name{}; // in older reports perhaps of a case that is no more
    verdict state = verdict::not_run;
    std::string message{};                 // of a failed case, or what is wrong
    std::chrono::microseconds duration{0}; // 0: not measured

    double seconds() const { return std::chrono::duration<double>(duration).count(); }
};

// How a result compares with the baseline's.
enum class standing {
    same,    // good in both, or nothing to compare with
    known,   // bad in the same way
    fresh,   // good in the baseline, or not in it, and bad now
    fixed,   // bad in the baseline, and good now
    changed, // different in another way
};

constexpr std::size_t STANDING_COUNT = static_cast<std::size_t>(standing::changed) + 1;

// "same", "known", "new", "fixed", "changed".
std::string_view name_of(standing which);

// The same with all that this run knows of it.
struct case_result : outcome {
    int number = 0;       // row of the registry
    std::string output{}; // what the case printed before its verdict, with its middle left out
    unsigned run = 1;     // which repetition
    std::string repeat_command{};
    standing against_baseline = standing::same;
    std::string difference{};             // from the baseline, for people; empty: none
    std::vector<std::string> calls{};     // the last calls of the library
    std::string calls_from{};             // which run made them
    std::vector<std::string> backtrace{}; // of a crash, the innermost frame first
    std::vector<std::string> left{};      // objects that it did not release, and their calls
    std::string explanation{};            // the call that is to blame, in lines

    std::string_view suite() const;
};

// Of the case in this row of the registry; with its name.
case_result result_of(int number, verdict state = verdict::not_run, std::string message = "");

// How it compares, in words: "known", "new failure", "fixed", ...; empty where nothing is to be
// said.
std::string words_against_baseline(const case_result &what);

// Whether it failed as it does in the baseline, and therefore does not count.
bool is_excused(const case_result &what);

struct run_record {
    std::string started{};      // ISO 8601, UTC
    std::string command_line{}; // of this program
    program_identity identity{};
    std::optional<std::uint64_t> seed{};
    std::string part{};      // of the selection, such as "2/4"
    std::size_t planned = 0; // results to come in all, as far as known
    std::vector<case_result> results{};
    std::vector<std::string> notes{};
    bool incomplete = false; // something beside the cases went wrong
    bool has_baseline = false;
    bool fixed_is_failure = false; // in reports that have no word for it
    bool lost_cases = false;       // the baseline has cases that exist no more

    // Notes something beside the cases that went wrong.
    void trouble(const std::string &text)
    {
        notes.push_back(text);
        incomplete = true;
    }
};

using tally = std::array<unsigned, VERDICT_COUNT>;

tally count(const std::vector<case_result> &results);
unsigned counted(const tally &counts, verdict which);

// "455 passed, 18 ignored, 1 failed", without the states that did not occur.
std::string counts_text(const tally &counts);

// One result a case: of several runs the first of the worst.
struct case_history {
    const case_result &worst() const { return *chosen; }

    const case_result *chosen; // as long as the results live
    unsigned runs = 0;
    unsigned bad = 0; // neither passed nor ignored
};
std::vector<case_history> by_case(const std::vector<case_result> &results);

// "1 new, 1 fixed, 3 known", and how many changed where some did: cases, not runs of them.
std::string baseline_text(const std::vector<case_result> &results);

enum exit_codes { ALL_PASSED = 0, SOME_FAILED = 1, SOME_LOST = 2, NOTHING_RAN = 3 };

// With a baseline what differs from it counts as failed, and a known failure does not.
int exit_code(const run_record &record);

// A message as it is compared between builds: cut as in the table, without a line number.
std::string comparable(const std::string &message);

std::string time_now();

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// Judges what tavor printed, as it comes or from a captured console. A verdict counts only when
// the name column, the verdict at its place and the end of the line are there, and when what
// follows shows that no line is missing in between: else the name could be one case's and the
// verdict another's.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/kept_text.h"
#include "tools/tavor-run/console/line_forms.h"
#include "tools/tavor-run/results/results.h"
#include "tools/tavor_output/table.h"

namespace tavor_run {

struct log_options {
    std::vector<int> expected{};       // the rows that ran, in order; empty: all
    std::vector<std::regex> foreign{}; // lines that are not tavor's
    bool any_order = false;            // tavor chose the order: lost lines go unnoticed
};

struct sighting {
    using clock = std::chrono::steady_clock;

    int row = 0;
    verdict state = verdict::unended; // pass, ignore, fail, unended or damaged
    std::string message{};
    std::string output{}; // what the case printed itself
    std::size_t line = 0; // of its name, from 1
    clock::time_point started{};
    clock::time_point judged{};
};

struct log_events {
    std::function<void(int row)> on_started{};
    // As soon as it is certain: with the next name, or at the end.
    std::function<void(const sighting &)> on_judged{};
};

struct summary_numbers {
    unsigned run = 0;
    unsigned passed = 0;
    unsigned failed = 0;
};

class log_reader {
public:
    explicit log_reader(log_options how, log_events events = {});

    void feed(std::string_view piece);
    // The log is over.
    void finish();

    const std::vector<sighting> &sightings() const { return seen; }
    // What summaries say otherwise than the lines.
    const std::vector<std::string> &contradictions() const { return contradicting; }
    // Whether the summaries agree that no case is missing.
    bool is_complete() const { return has_agreeing_run && !has_doubtful_run; }
    // Whether there was anything of tavor: a header, a name, a summary.
    bool has_seen_tavor() const { return seen_tavor; }
    // What the last summary counts; none in a log without one.
    const std::optional<summary_numbers> &summary() const { return last_summary; }
    // Whether there were cases that were not expected.
    bool has_unexpected() const { return unexpected; }

private:
    // A case whose name was read last.
    struct open_case {
        explicit open_case(std::size_t kept) : output(kept) {}

        sighting what;
        tools::kept_text output;
        stamp_style style = stamp_style::none;
        bool has_verdict = false;
        std::string damage{}; // what is wrong with its lines
    };
    // A sighting whose verdict could be another's: the summary may tell that it is not.
    struct doubt {
        std::size_t index;
        verdict claimed;
        std::string message;
    };
    struct one_run {
        unsigned names = 0;
        unsigned good = 0;
        unsigned failed = 0;
        unsigned leftovers = 0; // verdicts without a name since the last case
        int last_position = -1;
        std::optional<bool> zeb{};
        std::vector<doubt> doubts{};
        std::optional<unsigned> summary_run{};
        std::optional<unsigned> summary_passed{};
        std::optional<unsigned> summary_failed{};
    };

    void keep_pending(std::string_view piece);
    void look_ahead();
    void take_line(std::string_view line);
    void take_text(const stamped_line &line);
    void take_output(std::string_view text);
    void take_behind_name(std::string_view rest);
    void take_summary(const tavor_output::summary_count &line);
    bool is_foreign(const stamped_line &line) const;
    void judge(const tavor_output::verdict_text &found);
    void damage(const std::string &what);

    void open(int row, stamp_style style);
    void settle_before(int row);
    void mark_missing(int first, int last);
    void settle(bool certain, const std::string &doubt_text);
    void report(const sighting &final);
    void end_run();
    bool summary_agrees() const;
    int position_of(int row) const { return positions[static_cast<std::size_t>(row)]; }

    log_options options;
    log_events handlers;
    std::vector<int> positions;            // of rows among those expected; -1: none
    sighting::clock::time_point arrived{}; // when the last piece was fed
    std::string pending;                   // the line that has not ended
    bool pending_is_open = false;
    std::size_t line_number = 0;
    std::optional<open_case> current;
    one_run run;
    std::vector<sighting> seen;
    std::vector<std::string> contradicting;
    std::optional<summary_numbers> last_summary;
    bool seen_tavor = false;
    bool has_agreeing_run = false;
    bool has_doubtful_run = false;
    bool unexpected = false;
};

// A captured log as results in table order. Without rows all cases are expected, except when
// the log's summaries say that nothing else ran. Rows that the log goes beyond only filter.
void judge_log(std::string_view text, const log_options &options, run_record &record);

} // namespace tavor_run

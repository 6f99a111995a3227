// SPDX-License-Identifier: MIT
//
// Any number of runs side by side: a column a run, a row a case.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/tavor-run/results/results_file.h"

namespace tavor_run {

struct comparison_column {
    std::string name{};
    stored_run run{};
    tally counts{};
};

struct comparison_row {
    std::string name{};
    std::vector<std::optional<outcome>> cells{}; // none: the run knows nothing of the case
    bool differs = false;
    bool has_bad = false; // neither passed, ignored, nor left out
};

struct comparison {
    std::vector<comparison_column> columns{};
    std::vector<comparison_row> rows{};        // those that differ first, then the other bad ones
    std::vector<std::string> missing_shards{}; // of a run in shards, such as "3/4"
    bool is_sharded = false;                   // the reports are parts of one run

    std::size_t differing() const;
};

// A report as it is named on the command line: a file, or name=file.
struct named_report {
    std::string name{}; // empty: what its file says
    std::string path{};
};
named_report parse_report_name(const std::string &argument);

// A usage error when a report cannot be read, or when two have the same name.
comparison compare_reports(const std::vector<named_report> &reports);

// What ends the program: about differences; for the shards of one run about the run.
int exit_code(const comparison &of);

// What the columns are: file, time, program, library.
std::string column_facts(const comparison_column &column);

// A cell's verdict; "-" where the run knows nothing of the case.
std::string_view word(const std::optional<outcome> &cell);
// The verdicts that occur at all, from good to bad.
std::vector<verdict> counted_verdicts(const comparison &what);
// How many cases differ, and which shards are missing; lines.
std::string ending_text(const comparison &what);

// Which rows a text shows beside those that differ: none, those that are bad in all, or every row.
// Of shards the bad ones are always shown.
enum class table_detail { differing, not_good, all };
std::string text_of(const comparison &what, table_detail detail);
std::string html_of(const comparison &what);
std::string json_lines_of(const comparison &what);

} // namespace tavor_run

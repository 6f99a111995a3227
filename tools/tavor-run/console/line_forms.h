// SPDX-License-Identifier: MIT
//
// The forms of single lines in what tavor prints, and of what consoles put in front of them and
// between them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tools/tavor-run/results/results.h"

namespace tavor_run {

// Kinds of time stamps: all lines of a log bear the same.
enum class stamp_style { none, seconds, bracketed, date, clock, month };

struct stamped_line {
    stamp_style style = stamp_style::none;
    std::string_view rest{};
};
stamped_line split_stamp(std::string_view line);

// Whether the text begins as a kernel message does: "[   12.345678] ", perhaps with a level.
bool is_kernel_text(std::string_view text);
// Whether a logger's name says so: "host kernel: ...".
bool is_logged_kernel_text(std::string_view text);

constexpr std::size_t NAME_COLUMN = 40;

// The row whose name fills the column at the start of the line, with the blank behind it.
std::optional<int> row_in_name_column(std::string_view line);

struct verdict_text {
    verdict state = verdict::pass;
    std::string_view message{};
};
// The text from the verdict's place to the end of the line, when it is one and complete.
std::optional<verdict_text> parse_verdict(std::string_view text);

// Whether a verdict, whole or not, may be somewhere in the text: it is nobody's own output.
bool shows_verdict(std::string_view text);
// Whether the text could be the beginning of a verdict.
bool begins_verdict(std::string_view text);

bool is_header(std::string_view line);
bool is_rule(std::string_view line);

enum class summary_line { run, passed, failed };
struct summary_count {
    summary_line which = summary_line::run;
    unsigned count = 0;
};
std::optional<summary_count> parse_summary(std::string_view line);

} // namespace tavor_run

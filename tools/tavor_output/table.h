// SPDX-License-Identifier: MIT
//
// The forms of the lines that tavor prints: its columns, verdicts and summary.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace tavor_output {

constexpr std::size_t NAME_COLUMN = 40;
// At most so much of a message is shown.
constexpr std::size_t MESSAGE_WIDTH = 83;

// The row whose name fills the column at the start of the line, with the blank behind it.
std::optional<int> row_in_name_column(std::string_view line);

enum class verdict { pass, ignore, fail };

struct verdict_text {
    verdict state = verdict::pass;
    std::string_view message{};
};
// The text from the verdict's place to the end of the line, when it is one and complete.
std::optional<verdict_text> parse_verdict(std::string_view text);
// The verdict at the end of a line, whatever the case printed in front of it.
std::optional<verdict_text> verdict_at_end(std::string_view line);

// Whether a verdict, whole or not, may be somewhere in the text: it is nobody's own output.
bool shows_verdict(std::string_view text);
// Whether the text could be the beginning of a verdict.
bool begins_verdict(std::string_view text);

constexpr std::string_view HEADER = "Name                                     Verdict  Info";
bool is_header(std::string_view line);
bool is_rule(std::string_view line);

enum class summary_line { run, passed, failed };
struct summary_count {
    summary_line which = summary_line::run;
    unsigned count = 0;
};
std::optional<summary_count> parse_summary(std::string_view line);

// Whether the text begins as a kernel message does: "[   12.345678] ", perhaps with a level.
bool is_kernel_text(std::string_view text);

} // namespace tavor_output

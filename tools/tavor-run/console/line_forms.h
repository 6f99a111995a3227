// SPDX-License-Identifier: MIT
//
// What consoles put in front of tavor's lines and between them.
#pragma once

#include <string_view>

namespace tavor_run {

// Kinds of time stamps: all lines of a log bear the same.
enum class stamp_style { none, seconds, bracketed, date, clock, month };

struct stamped_line {
    stamp_style style = stamp_style::none;
    std::string_view rest{};
};
stamped_line split_stamp(std::string_view line);

// Whether a logger's name says so: "host kernel: ...".
bool is_logged_kernel_text(std::string_view text);

} // namespace tavor_run

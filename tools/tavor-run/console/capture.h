// SPDX-License-Identifier: MIT
//
// A captured console made plain: escape sequences, the form of LAVA's log, and what consoles and
// loggers put in front of each line are taken away. Nothing is put in; a line stays in its place,
// empty where it was not tavor's.
#pragma once

#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace tavor_run {

struct plain_log {
    std::string text{};
    std::vector<std::string> notes{}; // what was left out
};

// What the lines of a log begin with, apart from time stamps, is told by tavor's header: that of
// its first one. Lines that begin as another header does are another console's. What a pattern of
// `strip` matches at the beginning of a line is taken away before that.
plain_log make_plain(std::string_view captured, const std::vector<std::regex> &strip = {});

// The line without escape sequences that are whole.
std::string without_escapes(std::string_view line);

// The message of a line of LAVA's YAML log that came from the device; for other lines of such a log
// an empty text. False for lines that are not of such a log.
bool take_lava_line(std::string_view line, std::string &message);

} // namespace tavor_run

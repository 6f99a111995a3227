// SPDX-License-Identifier: MIT
//
// The form of the campaign's tables: columns divided by "|", blanks around them ignored, and
// lines that begin with "#".
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace campaign {

struct numbered_line {
    int number;
    std::string text;
};

std::string trimmed(const std::string &text);

std::vector<std::string> columns_of(const std::string &line);

// Without comments and empty lines.
std::vector<numbered_line> meaningful_lines(std::istream &stream);

} // namespace campaign

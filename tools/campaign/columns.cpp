// SPDX-License-Identifier: MIT
//
// Taking a table's lines apart.
#include "tools/campaign/columns.h"

#include <sstream>

namespace campaign {

std::string trimmed(const std::string &text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string> columns_of(const std::string &line)
{
    std::vector<std::string> columns;
    std::istringstream stream(line);
    for (std::string column; std::getline(stream, column, '|');) {
        columns.push_back(trimmed(column));
    }
    return columns;
}

std::vector<numbered_line> meaningful_lines(std::istream &stream)
{
    std::vector<numbered_line> lines;
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        number++;
        const std::string text = trimmed(line);
        if (!text.empty() && !text.starts_with("#")) {
            lines.push_back({number, text});
        }
    }
    return lines;
}

} // namespace campaign

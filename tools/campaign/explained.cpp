// SPDX-License-Identifier: MIT
//
// Reading and applying explanations.
#include "tools/campaign/explained.h"

#include <fnmatch.h>

#include <fstream>
#include <stdexcept>

#include "tools/campaign/columns.h"

namespace campaign {

std::vector<explanation> read_explanations(const std::string &path)
{
    std::ifstream stream(path);
    if (!stream) {
        throw std::runtime_error(path + ": cannot be read");
    }
    std::vector<explanation> known;
    for (const numbered_line &line : meaningful_lines(stream)) {
        const std::vector<std::string> columns = columns_of(line.text);
        if (columns.size() != 3) {
            throw std::runtime_error(path + ":" + std::to_string(line.number) +
                                     ": expected: case | faults | reason");
        }
        known.push_back({columns[0], columns[1], columns[2]});
    }
    return known;
}

std::string explanation_of(const experiment &what, const std::vector<explanation> &known)
{
    for (const explanation &candidate : known) {
        if (fnmatch(candidate.tests.c_str(), what.test.c_str(), 0) == 0 &&
            fnmatch(candidate.faults.c_str(), what.faults.c_str(), 0) == 0) {
            return candidate.reason;
        }
    }
    return "";
}

} // namespace campaign

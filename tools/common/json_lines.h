// SPDX-License-Identifier: MIT
//
// Text with a JSON object a line: what a program that may die at any moment can write, and another
// one read.
#pragma once

#include <istream>
#include <nlohmann/json.hpp>
#include <string>

namespace tools {

struct damaged_line {
    unsigned number; // from 1
    bool is_cut;     // the last one, without its end: whoever wrote it died
};

// Calls `take(object, number)` for each line that is not empty, and `damaged(damaged_line)` for one
// that is no JSON or at which `take` throws an nlohmann::json::exception. Other exceptions of both
// pass. A last line that lacks nothing but its end is whole.
template <typename Take, typename Damaged>
void for_each_json_line(std::istream &lines, const Take &take, const Damaged &damaged)
{
    unsigned number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        if (line.empty()) {
            continue;
        }
        const bool is_cut = lines.eof();
        try {
            take(nlohmann::json::parse(line), number);
        } catch (const nlohmann::json::exception &) {
            damaged(damaged_line{number, is_cut});
        }
    }
}

} // namespace tools

// SPDX-License-Identifier: MIT
//
// The table of (case, message) pairs, each with the faults that reach it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace campaign {

enum class message_kind { plain, located, error_text, prefix };

struct pair {
    std::string test;
    message_kind kind = message_kind::plain;
    std::string message; // as the verdict shows it; of a located message the literal, of a
                         // prefix what the message begins with
    std::string faults;
    std::string unreachable; // why no fault reaches it; empty for a pair that is run
    std::string file;
    int line = 0;

    std::string place() const { return file + ":" + std::to_string(line); }
};

// Reads every .txt file of the folder, in name order. A line is
//   case | plain, located, errno or prefix | message | faults | reason
// where the message of an errno pair is the error's name. A line
//   case | errors | fault fault ...
// is a pair for each of the faults: the error that it makes is the message. Throws
// std::runtime_error with file and line on bad input.
std::vector<pair> read_pairs(const std::filesystem::path &folder);

// Whether a failing verdict shows the pair's message. Verdicts are cut and padded.
bool shows(const pair &expected, const std::string &message);

} // namespace campaign

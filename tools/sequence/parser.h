// SPDX-License-Identifier: MIT
//
// A sequence from its text (docs/sequences.md).
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/sequence/sequence.h"

namespace sequence {

// Where and why a text is no sequence.
class parse_error : public std::runtime_error {
public:
    parse_error(std::size_t bad_line, std::size_t bad_column, const std::string &why)
        : std::runtime_error(std::to_string(bad_line) + ":" + std::to_string(bad_column) + ": " +
                             why),
          line(bad_line), column(bad_column)
    {
    }

    std::size_t line;   // from 1
    std::size_t column; // from 1
};

// All of it or nothing: throws parse_error. A last line without its end was cut off while it was
// written and is an error, too. Answers are read when all calls that return have them.
call_sequence from_text(std::string_view text);

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// What kel-sequence's command line names: files, libraries and parts of sequences.
#pragma once

#include <string>
#include <vector>

#include "tools/sequence/sequence.h"

namespace sequence {

// A sequence from a file, "-": standard input. Throws tools::usage_error with file, line and
// column when it is none.
call_sequence read_file(const std::string &path);

// "-": standard output. Throws tools::usage_error when it cannot be written.
void write_file(const std::string &path, const std::string &text);

// The calls that "0-40,57" names, by number from 0; all when it is empty.
std::vector<bool> calls_named(const std::string &list, std::size_t count);

// The part of the sequence; a usage error where a call that is left needs what one that is not
// defines.
call_sequence part_of(const call_sequence &whole, const std::string &list);

// The reference library of this build or installation; a usage error when there is none.
std::string reference_library(const std::string &named);

} // namespace sequence

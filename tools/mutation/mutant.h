// SPDX-License-Identifier: MIT
//
// Small changes to a suite's source, each of which makes a check wrong.
#pragma once

#include <string>
#include <vector>

namespace mutation {

struct mutant {
    std::string file; // name of the suite's source
    int line = 0;
    std::string kind;         // what was done
    std::size_t position = 0; // in the source's text
    std::size_t length = 0;   // of what is replaced
    std::string replacement;
};

// All mutants of a source, in the order of their places.
std::vector<mutant> mutants_of(const std::string &file, const std::string &text);

// The text with the mutant in it.
std::string mutated(const std::string &text, const mutant &applied);

} // namespace mutation

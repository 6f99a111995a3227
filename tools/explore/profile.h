// SPDX-License-Identifier: MIT
//
// The choices that a library has taken where the contract leaves them open.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/sequence/oracle.h"
#include "tools/sequence/worker.h"

namespace explore {

struct library_profile {
    sequence::configuration chosen{};           // where they are not the default
    std::map<std::string, std::string> known{}; // all that were found out, defaults too
    // Sequences with the library's answers, which told choices apart.
    std::vector<sequence::call_sequence> evidence{};
    // What no value of the option asked for explains: to be looked into.
    std::vector<sequence::call_sequence> unexplained{};
    bool has_device = true;
};

// A sequence from its calls.
sequence::call_sequence sequence_of(const char *calls);

// Whether two runs of a sequence have the same answers.
bool is_same(const sequence::call_sequence &made, const sequence::answers &expected,
             const sequence::answers &got);

// Asks all questions. `given` is a profile to begin with.
library_profile learn(const std::string &library, const std::string &reference,
                      const sequence::configuration &given, const sequence::limits &allowed);

// Whether the library could have given all its answers with these choices.
bool agrees(const library_profile &learned, const sequence::configuration &chosen,
            const std::string &reference, const sequence::limits &allowed);

// A profile from the text that text_of makes, one choice a word; throws tools::usage_error when
// the reference library does not have a choice or a value.
sequence::configuration read_profile(const std::string &path, const std::string &reference);

} // namespace explore

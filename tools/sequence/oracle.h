// SPDX-License-Identifier: MIT
//
// The oracle is a set: the reference library under each combination of switches that a library's
// answers so far allow. Answers that no combination gives are a difference; the combinations that
// are left at the end are the library's profile.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/sequence/comparison.h"
#include "tools/sequence/worker.h"

namespace sequence {

// An open choice and its legal values.
struct option {
    std::string name;
    std::string default_value;
    std::vector<std::string> others;
};

// The reference library's, as it lists them itself. Throws tools::usage_error when the library has
// none, which no other library has.
std::vector<option> options_of(const std::string &library);

// Switches that differ from their defaults: name to value. Empty: the defaults.
using configuration = std::map<std::string, std::string>;

// "a=1 b=2"
std::string text_of(const configuration &one);

library_setup reference_setup(const std::string &library, const configuration &chosen);

// The same with known bytes in memory that nobody has written, and with others: data in which the
// answers of these two differ means nothing.
library_setup content_setup(const std::string &library, configuration chosen);
library_setup shadow_setup(const std::string &library, configuration chosen);

// The shadow of a library's answers, those of the sequence: they, with other bytes where the
// reference library stores what nobody has written.
std::vector<answer> shadow_for(const call_sequence &made, const std::string &reference,
                               const limits &allowed = {});

struct finding {
    std::size_t call = 0;
    sequence::difference difference{};  // expected: of all that were allowed, first the default's
    std::vector<std::string> allowed{}; // the answers that the combinations give there
};

struct verdict {
    std::optional<sequence::finding> finding{};
    // The combinations that answer alike up to the finding, or to the end.
    std::vector<configuration> profile{};
    // The reference library's answers under the first of them, and their shadow.
    answers expected{};
    answers shadow{};
};

// Holds the sequence's answers to the set. `known` is a profile to begin with.
verdict judge(const call_sequence &recorded, const std::string &reference,
              const limits &allowed = {}, const std::vector<configuration> &known = {{}});

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// From a case's verdict and its recorded calls to the call that is to blame.
#pragma once

#include <string>

#include "tools/explain/causes.h"
#include "tools/explain/checks.h"
#include "tools/sequence/oracle.h"

namespace explain {

struct case_outcome {
    std::string name;
    std::string verdict; // fail, pass, ignore, crash, hang
    std::string message;
};

struct explanation {
    case_outcome outcome;
    place check;
    sequence::call_sequence recorded;
    sequence::verdict judged;
    causes why; // where there is a finding, and somebody to read it
};

// Throws tools::usage_error where the recording or the library is none.
// `with_causes`: to_text and guilty_text show them; looking for them takes its time.
explanation explain(const case_outcome &outcome, sequence::call_sequence recorded,
                    const std::string &reference, bool with_causes);

std::string to_text(const explanation &one);
// Of that the finding alone; there is one.
std::string guilty_text(const explanation &one);

// One object: {"case", "verdict", "message", "check", "difference", "profile"}.
std::string to_json(const explanation &one);

} // namespace explain

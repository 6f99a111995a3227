// SPDX-License-Identifier: MIT
//
// A history that no order explains, as people and programs read it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/histories/checker.h"
#include "tools/histories/history.h"
#include "tools/histories/plan.h"
#include "tools/histories/recorder.h"

namespace histories {

struct found {
    std::string operation{}; // without kel_
    std::size_t n = 0;       // the call among those of that operation in the sequence; 0: none
    std::string part{};      // of the answer that is wrong
    std::string expected{};
    std::string got{};
    std::string clause{}; // what the contract says of the operation
    std::size_t calls = 0;
    // The longest legal path and after it a call that does not fit, with the answer that would; as
    // comments what the threads called when, and what they were answered.
    std::string text{};
    std::uint64_t index = 0; // of the history in the run

    // The same for findings that are alike: names and numbers of objects are left out.
    std::string kind() const;
};

found finding_of(const history &whole, const verdict &judged);

// Of a library that ended its process with that signal (0: it left), or did not return.
found finding_of(const plan &planned, const progress &last, bool is_hang, int signal);

// From one process to another.
std::string to_message(const found &one);
found found_from_message(std::string_view message);

} // namespace histories

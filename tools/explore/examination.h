// SPDX-License-Identifier: MIT
//
// What becomes of a suspect: the same calls in fresh processes, held to all that is allowed, and
// where that does not explain the answer, reduced to the fewest calls.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tools/explore/profile.h"
#include "tools/sequence/sequence.h"
#include "tools/sequence/worker.h"

namespace explore {

struct found {
    std::string operation; // without the kel_ prefix
    std::string part;
    std::size_t n = 0; // which call of the operation, from 1
    std::string expected;
    std::string got;
    std::string clause;
    std::size_t calls = 0;
    std::string text;    // the reduced sequence
    std::string program; // in C
    std::uint64_t index = 0;
};

// Findings with the same key are one.
std::string key_of(const found &one);

enum class outcome : std::uint8_t {
    finding,
    choice,    // another value of a choice that was not known explains it
    not_again, // it does not show in fresh processes, or not every time
};

struct examined {
    explore::outcome outcome = outcome::not_again;
    bool was_known = false;            // see suspect
    found finding{};                   // of a finding
    sequence::configuration profile{}; // of a choice: with the new value
};

struct examination_setup {
    std::string library;
    std::string reference;
    library_profile learned;
    sequence::limits allowed{};
};

// `early` gets a finding that has come twice, before it is reduced, which may take long.
examined examine(
    const sequence::call_sequence &given, const examination_setup &how,
    const std::function<void(const examined &)> &early = [](const examined &) {});

// To another process and back.
std::string to_message(const examined &one);
examined from_message(const std::string &text);

} // namespace explore

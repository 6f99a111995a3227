// SPDX-License-Identifier: MIT
//
// Short sequences whose answers tell which way a library has taken where the contract leaves a
// choice.
#pragma once

#include <span>

namespace explore {

struct question {
    const char *option; // of the reference library
    const char *text;   // calls, without the first line
};

// In an order in which later ones may depend on what earlier ones have found out.
std::span<const question> questions();

// Sequences about time and threads, which no random one is about: they wait.
std::span<const char *const> probes();

} // namespace explore

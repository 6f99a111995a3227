// SPDX-License-Identifier: MIT
//
// A run: histories of a library one after the other, each held to the reference library.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/shard.h"
#include "tools/histories/finding.h"
#include "tools/histories/plan.h"
#include "tools/sequence/oracle.h"

namespace histories {

struct settings {
    std::string library;
    std::string reference;
    sequence::configuration profile{}; // of the library: what it chose where the contract is open
    shape size{};
    std::optional<double> seconds{};          // at most so long
    std::optional<std::uint64_t> histories{}; // at most so many
    std::uint64_t seed = 1;
    tools::shard part{};
    std::string json{};   // a file for findings and summary; empty: none
    std::string corpus{}; // a folder: histories that had findings come first; empty: none
    // How long all threads may sleep, or compute, without the end of any call.
    std::chrono::milliseconds stillness{10000};
    // Of processor time for one history.
    std::chrono::milliseconds decision{1000};
};

// What became of the histories. A history that is left undecided is no pass.
struct totals {
    std::uint64_t legal = 0;
    std::uint64_t illegal = 0;
    std::uint64_t undecided = 0; // after more time at the end, too
    std::uint64_t late = 0;      // decided only then
    std::uint64_t calls = 0;
    double seconds = 0;
    std::vector<found> findings{}; // one of each kind
};

// Prints findings and a summary. Throws tools::usage_error for what cannot be. To be called from a
// process that has no other thread.
totals explore(const settings &asked);

} // namespace histories

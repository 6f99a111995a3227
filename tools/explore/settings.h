// SPDX-License-Identifier: MIT
//
// What a run is asked for.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/common/shard.h"

namespace explore {

struct settings {
    std::string library;
    std::string reference;
    std::optional<double> seconds{};          // at most so long
    std::optional<std::uint64_t> sequences{}; // at most so many
    std::uint64_t seed = 1;
    unsigned jobs = 1;
    bool fails_fast = false; // the first finding ends the run
    tools::shard part{};
    std::string profile{};                 // a file; empty: nothing is known
    std::string output{};                  // a folder for what is found; empty: none
    std::string corpus{};                  // a folder of sequences; empty: none
    std::string json{};                    // a file; empty: none
    std::chrono::milliseconds limit{2000}; // of a call
};

} // namespace explore

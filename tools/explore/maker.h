// SPDX-License-Identifier: MIT
//
// The process in which the model lives: fills batches with sequences and their right answers.
#pragma once

#include <cstdint>
#include <string>

#include "tools/explore/exchange.h"
#include "tools/sequence/oracle.h"

namespace explore {

// Which sequences of a run a maker makes: batches of BATCH_SEQUENCES, of which it takes the one
// with number `first` and then every `step`-th.
struct making {
    std::string reference;
    sequence::configuration profile{};
    bool has_device = true;
    std::uint64_t seed = 1;
    std::uint64_t first = 0;
    std::uint64_t step = 1;
    std::string corpus{}; // a folder for sequences that reach something new; empty: none
    std::uint64_t end = ~std::uint64_t{0}; // sequences from this index on are not made
};

// Does not return. A batch without sequences says that there are no more.
[[noreturn]] void be_maker(exchange &shared, const making &what);

} // namespace explore

// SPDX-License-Identifier: MIT
//
// The fewest calls and the smallest numbers that still show one difference: the same operation, the
// same part of its answer, the same two values.
#pragma once

#include <cstddef>
#include <optional>

#include "tools/sequence/oracle.h"
#include "tools/sequence/worker.h"

namespace sequence {

struct reduction_setup {
    library_setup tested;
    std::string reference;
    configuration profile{}; // the tested library's
    limits allowed{};
    std::size_t proofs = 10; // how often the result must show the difference
};

struct reduced {
    call_sequence made; // with the answers that the contract asks for, and their shadow
    sequence::finding finding{};
    std::size_t runs = 0;
};

// Nothing when the sequence does not show the finding on the tested library, or when it does not
// show it every time. The last call of the result is the one that differs, and no call of it can
// be left out.
std::optional<reduced> reduce(const call_sequence &whole, const finding &shown,
                              const reduction_setup &how);

} // namespace sequence

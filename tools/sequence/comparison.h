// SPDX-License-Identifier: MIT
//
// Whether two answers to one call are the same, by rules that follow from the types: handles by
// what they name, addresses by their distances, data byte by byte, errors and numbers exactly.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sequence/sequence.h"

namespace sequence {

struct difference {
    std::string part; // "result", "offset", "entries[0].iov_len": what differs
    std::string expected;
    std::string got;

    bool operator==(const difference &) const = default;
};

// The first difference, result first. `shadow`, where it is given, is a second right answer, of
// memory that was filled otherwise before it was written: where data differs there it means
// nothing.
std::optional<difference> compare(const call &made, const answer &expected, const answer &got,
                                  const std::vector<variable_info> &variables,
                                  const answer *shadow = nullptr);

// What of a sequence's answers cannot be compared, each with its reason and how often.
struct uncompared_part {
    std::string operation;
    std::string part;
    std::string reason;
    std::size_t times = 0;
};
std::vector<uncompared_part> uncompared_parts(const call_sequence &whole);

} // namespace sequence

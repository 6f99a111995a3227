// SPDX-License-Identifier: MIT
//
// What a run has come to, for people and for programs.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tools/explore/examination.h"

namespace explore {

struct totals {
    std::uint64_t sequences = 0;
    std::uint64_t calls = 0;
    std::uint64_t differences = 0;
    double seconds = 0;
    std::size_t not_again = 0; // differences that did not show in fresh processes
    std::size_t not_looked_into = 0;
    std::set<std::uint64_t> reached{}; // operation in the upper half, error in the lower
};

// One object a line.
std::string to_json(const found &one);
std::string to_json(const totals &all, const library_profile &learned);

std::string profile_text(const library_profile &learned);
std::string to_text(const found &one, std::size_t number);
// The rate, and the errors that the contract names and no call came to.
std::string to_text(const totals &all, std::size_t findings);

// The errors that operations' clauses name: "trim_head ERANGE". Without those in `reached`.
std::vector<std::string> never_reached(const std::set<std::uint64_t> &reached);

} // namespace explore

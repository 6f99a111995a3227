// SPDX-License-Identifier: MIT
//
// What came of a run, and the tables at the end.
#pragma once

#include <array>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/campaign/outcome.h"

namespace campaign {

struct result {
    std::string id; // names the experiment within its campaign
    std::string test;
    std::string faults;
    std::string expected; // message; empty where any of the table is right
    std::string place;    // in the table of pairs
    outcome reached = outcome::missed;
    std::string shown;       // what the verdict line said
    std::string detail;      // signal, what was left
    std::string explanation; // why a hang lies in the case's nature
    std::string repeat;
    long long microseconds = 0;
};

constexpr std::size_t OUTCOMES = 8;

constexpr std::array<outcome, OUTCOMES> ALL_OUTCOMES = {
    outcome::caught, outcome::caught_elsewhere,
    outcome::missed, outcome::not_reached,
    outcome::crash,  outcome::hang,
    outcome::leak,   outcome::stray_message,
};

struct tally {
    std::array<unsigned, OUTCOMES> counts{};
    unsigned total = 0;

    void add(outcome reached)
    {
        counts[static_cast<std::size_t>(reached)]++;
        total++;
    }
    unsigned of(outcome reached) const { return counts[static_cast<std::size_t>(reached)]; }
};

// One row a suite and a sum, one column an outcome that occurs.
void print_table(std::ostream &out, const std::vector<result> &results);

// What is explained, each reason once with its number of runs.
void print_explained(std::ostream &out, const std::vector<result> &results);

// What is to be looked at: the experiment, what was expected and shown, how to repeat it.
void print_finding(std::ostream &out, const result &found);

} // namespace campaign

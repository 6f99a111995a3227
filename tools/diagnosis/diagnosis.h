// SPDX-License-Identifier: MIT
//
// From what a log tells of cases to the single faults that explain all of it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/diagnosis/table.h"

namespace diagnosis {

struct sighting {
    std::string case_name;
    outcome seen;
};

// What a log tells for certain: cases that it says nothing of, or nothing certain, are not in it.
struct evidence {
    std::vector<sighting> cases{};
    bool is_whole = true; // else lines that a case printed may be missing
    // Whether the numbers of lines in messages are those of the table's tavor.
    bool has_lines = true;
};

// Faults that no case tells apart.
using group = std::vector<const known_fault *>;

// A case of which the log does not tell how it ends, or which of its calls differs; and what
// becomes of it with each of the faults.
struct further_case {
    std::string name;
    bool is_explained = false; // by its calls: the ends are alike
    std::vector<std::pair<group, outcome>> would_end;
};

struct suspect {
    std::string operation;
    double score = 0; // Ochiai: 1 when the failed cases call it and no others do
    std::size_t in_failed = 0;
    std::size_t in_good = 0;
};

struct diagnosis {
    std::size_t failed = 0; // cases, crashes and hangs included
    std::size_t good = 0;
    // The faults that are consistent with the log. First those of whose failures the log misses
    // the fewest.
    std::vector<group> consistent{};
    std::optional<further_case> next{};
    // Where no fault is consistent: the operations, the most suspicious first.
    std::vector<suspect> suspects{};
};

diagnosis diagnose(const table &known, const evidence &told);

// The log without the printed lines that the table does not have for a case (kernel messages,
// times), and with whether its line numbers are those of the table's tavor.
evidence in_terms_of(const table &known, evidence told);

} // namespace diagnosis

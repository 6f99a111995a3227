// SPDX-License-Identifier: MIT
//
// What several reports say of a run and of its cases in the same words.
#pragma once

#include <string>
#include <vector>

#include "tools/explain/checks.h"
#include "tools/tavor-run/results/results.h"

namespace tavor_run {

// Where in the sources: of a failure the check that gave the message, else the case.
explain::place place_of(const case_result &what);
// "suites/kel_tlv.cpp:120"; empty when it is not known.
std::string text_of(const explain::place &where);

// What the shim and second looks at a case brought, to be shown under titles.
struct text_section {
    std::string title{};
    std::vector<std::string> lines{};
};
std::vector<text_section> sections_of(const case_result &what);

// "1.234", in seconds.
std::string seconds_text(std::chrono::microseconds duration, int digits = 3);

// The sum of what was measured.
std::chrono::microseconds total_time(const std::vector<case_result> &results);
// The longest ten of those that took a millisecond and more, the longest first.
std::vector<const case_result *> slowest(const std::vector<case_result> &results);

} // namespace tavor_run

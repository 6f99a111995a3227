// SPDX-License-Identifier: MIT
//
// The registries of tavor and tavor-more as data, read from the lists that they are built from:
// nothing has to be run to know them.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tools {

struct test_case {
    std::string_view name;
    std::string_view suite;
};

constexpr std::string_view TAVOR = "tavor";
constexpr std::string_view TAVOR_MORE = "tavor-more";

// The cases of the program of that name; those of TAVOR for every name but TAVOR_MORE. In table
// order: a case's number is its index.
std::span<const test_case> cases_of(std::string_view program);

// Makes all that follows in this process be about the cases of that program; until then it is about
// tavor's. To be called before the first question, and not by threads.
void use_cases_of(std::string_view program);

// The cases of the program in use.
std::span<const test_case> all_cases();

// The number of the case of that name, -1 when there is none.
int case_number(std::string_view name);

// The suite of the case of that name, empty when there is none.
std::string suite_of(std::string_view name);

} // namespace tools

// SPDX-License-Identifier: MIT
//
// tavor's registry as data, read from the list that tavor is built from: nothing has to be
// run to know it.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tools {

struct test_case {
    std::string_view name;
    std::string_view suite;
};

// In table order: a case's number is its index.
std::span<const test_case> all_cases();

// The number of the case of that name, -1 when there is none.
int case_number(std::string_view name);

// The suite of the case of that name, empty when there is none.
std::string suite_of(std::string_view name);

} // namespace tools

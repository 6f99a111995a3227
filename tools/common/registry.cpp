// SPDX-License-Identifier: MIT
//
// The lists of cases read into tables.
#include "tools/common/registry.h"

#include <array>
#include <unordered_map>

namespace tools {

namespace {

#define TEST(suite, name) {#suite "_" #name, #suite},
constexpr auto CASES_OF_TAVOR = std::to_array<test_case>({
#include "runner/test_list.def"
});
constexpr auto CASES_OF_TAVOR_MORE = std::to_array<test_case>({
#include "more/test_list.def"
});
#undef TEST

std::span<const test_case> cases_in_use = CASES_OF_TAVOR;

const std::unordered_map<std::string_view, int> &numbers()
{
    static const auto NUMBERS = [] {
        std::unordered_map<std::string_view, int> by_name;
        for (std::size_t i = 0; i < cases_in_use.size(); i++) {
            by_name[cases_in_use[i].name] = static_cast<int>(i);
        }
        return by_name;
    }();
    return NUMBERS;
}

} // namespace

std::span<const test_case> cases_of(std::string_view program)
{
    if (program == TAVOR_MORE) return CASES_OF_TAVOR_MORE;
    return CASES_OF_TAVOR;
}

void use_cases_of(std::string_view program)
{
    cases_in_use = cases_of(program);
}

std::span<const test_case> all_cases()
{
    return cases_in_use;
}

int case_number(std::string_view name)
{
    const auto found = numbers().find(name);
    return found == numbers().end() ? -1 : found->second;
}

std::string suite_of(std::string_view name)
{
    const int number = case_number(name);
    return number < 0 ? "" : std::string(cases_in_use[static_cast<std::size_t>(number)].suite);
}

} // namespace tools

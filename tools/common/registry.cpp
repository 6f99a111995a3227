// SPDX-License-Identifier: MIT
//
// runner/test_list.def read into a table.
#include "tools/common/registry.h"

#include <array>
#include <unordered_map>

namespace tools {

namespace {

constexpr auto CASES = std::to_array<test_case>({
#define TEST(suite, name) {#suite "_" #name, #suite},
#include "runner/test_list.def"
#undef TEST
});

const std::unordered_map<std::string_view, int> &numbers()
{
    static const auto NUMBERS = [] {
        std::unordered_map<std::string_view, int> by_name;
        for (std::size_t i = 0; i < CASES.size(); i++) {
            by_name[CASES[i].name] = static_cast<int>(i);
        }
        return by_name;
    }();
    return NUMBERS;
}

} // namespace

std::span<const test_case> all_cases()
{
    return CASES;
}

int case_number(std::string_view name)
{
    const auto found = numbers().find(name);
    return found == numbers().end() ? -1 : found->second;
}

std::string suite_of(std::string_view name)
{
    const int number = case_number(name);
    return number < 0 ? "" : std::string(CASES[static_cast<std::size_t>(number)].suite);
}

} // namespace tools

// SPDX-License-Identifier: MIT
//
// Chooses fault points, counts their hits, and reports at exit, with
// KEL_REFERENCE_FAULTS_REPORT=path, a line "name hits fired" for each point chosen.

#include "reference/faults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <string_view>

#include "reference/load.h"

namespace kel_reference {

bool any_fault_chosen = false;

namespace {

struct fault_row {
    const char *name;
    const char *meaning;
};

constexpr fault_row ROWS[] = {
#define FAULT(family, operation, kind, meaning) {#family "." #operation "." #kind, meaning},
#include "reference/faults.def"
#undef FAULT
};

// Which hits of a point are to fire, counted from 1; none by default.
struct choice {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::atomic<std::size_t> hits = 0;
    std::atomic<std::size_t> fired = 0;
};

std::array<choice, static_cast<std::size_t>(fault::count)> choices;

void choose(std::string_view word)
{
    constexpr const char *VARIABLE = "KEL_REFERENCE_FAULTS";
    const std::string_view name = word.substr(0, word.find('#'));
    const auto *row = std::ranges::find(
        ROWS, name, [](const fault_row &each) { return std::string_view(each.name); });
    if (row == std::end(ROWS)) refuse_setting(VARIABLE, word, "no such fault");

    choice &chosen = choices[static_cast<std::size_t>(row - std::begin(ROWS))];
    if (chosen.last) refuse_setting(VARIABLE, word, "chosen twice");
    chosen.first = 1;
    chosen.last = std::numeric_limits<std::uint64_t>::max();
    any_fault_chosen = true;
    if (name.size() == word.size()) return;

    const std::string_view number = word.substr(name.size() + 1);
    const char *end_of_word = number.data() + number.size();
    const auto [end, error] = std::from_chars(number.data(), end_of_word, chosen.first);
    const std::string_view rest(end, static_cast<std::size_t>(end_of_word - end));
    if (error != std::errc{} || chosen.first == 0 || (!rest.empty() && rest != "+")) {
        refuse_setting(VARIABLE, word, "not name, name#n or name#n+");
    }
    if (rest.empty()) chosen.last = chosen.first;
}

__attribute__((destructor)) void report()
{
    const char *path = std::getenv("KEL_REFERENCE_FAULTS_REPORT");
    std::FILE *file = path && any_fault_chosen ? std::fopen(path, "we") : nullptr;
    if (!file) return;
    for (std::size_t index = 0; index < choices.size(); index++) {
        const choice &each = choices[index];
        if (!each.last) continue;
        std::fprintf(file, "%s %llu %llu\n", ROWS[index].name,
                     static_cast<unsigned long long>(each.hits),
                     static_cast<unsigned long long>(each.fired));
    }
    std::fclose(file);
}

} // namespace

bool fault_is_due(fault point)
{
    choice &asked = choices[static_cast<std::size_t>(point)];
    if (!asked.last) return false;
    const std::uint64_t hit = ++asked.hits;
    if (hit < asked.first || hit > asked.last) return false;
    asked.fired++;
    kel_reference_fault_fired(ROWS[static_cast<std::size_t>(point)].name);
    return true;
}

void choose_faults(const std::vector<std::string_view> &words)
{
    std::ranges::for_each(words, choose);
}

// A line each: name and meaning, a tab between.
void list_faults()
{
    for (const fault_row &row : ROWS) std::printf("%s\t%s\n", row.name, row.meaning);
}

} // namespace kel_reference

__attribute__((noinline)) void kel_reference_fault_fired(const char *)
{
    asm volatile(""); // keeps calls of an empty function from being dropped
}

// SPDX-License-Identifier: MIT
//
// Choosing faults, finding those that are due, and counting what they did.

#include "reference/faults/faults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>

#include "reference/faults/catalogue.h"
#include "reference/faults/inside.h"
#include "reference/faults/language.h"
#include "reference/load.h"

namespace kel_reference {

bool faults_are_chosen = false;

namespace {

struct chosen_fault {
    std::string text;
    written_fault written;
    faults::any_function wrong = nullptr; // null: inside the model
    std::atomic<std::uint64_t> hits = 0;
    std::atomic<std::uint64_t> fired = 0;
};

struct inside_row {
    const char *target;
    const char *kind;
    const char *meaning;
};

constexpr inside_row INSIDE[] = {
#define INSIDE_ROW(target, kind, meaning) {#target, #kind, meaning},
    INSIDE_FAULTS(INSIDE_ROW)
#undef INSIDE_ROW
};

// Never destroyed: the library may be called until the very end of the process.
struct choices {
    std::deque<chosen_fault> all; // as given
    std::array<std::vector<chosen_fault *>, OPERATIONS> of_operation;
    std::array<std::vector<chosen_fault *>, std::size(INSIDE)> inside;
    std::array<std::atomic<std::uint64_t>, OPERATIONS> calls{};
    std::array<std::atomic<std::uint64_t>, std::size(INSIDE)> asked{};
};

choices &chosen()
{
    static choices &instance = *new choices;
    return instance;
}

const faults::catalogue &all_faults()
{
    static const faults::catalogue made = [] {
        faults::catalogue rows;
        faults::add_client_faults(rows);
        faults::add_transport_faults(rows);
        faults::add_event_faults(rows);
        faults::add_buf_faults(rows);
        faults::add_packet_faults(rows);
        faults::add_bufgroup_faults(rows);
        faults::add_metadata_faults(rows);
        faults::add_tlv_faults(rows);
        faults::add_writing_faults(rows);
        return rows;
    }();
    return made;
}

const char *name_of(operation target)
{
    return OPERATION_NAMES[static_cast<std::size_t>(target)];
}

// Where the fault is to act. False: there is no such fault.
bool enlist(chosen_fault &added)
{
    const auto is_inside = [&](const inside_row &row) {
        return added.written.target == row.target && added.written.action == row.kind;
    };
    const auto *inside = std::ranges::find_if(INSIDE, is_inside);
    if (inside != std::end(INSIDE)) {
        chosen().inside[static_cast<std::size_t>(inside - INSIDE)].push_back(&added);
        return true;
    }
    const auto is_operations = [&](const faults::row &row) {
        return added.written.target == name_of(row.target) && added.written.action == row.kind;
    };
    const auto &rows = all_faults().rows;
    const auto row = std::ranges::find_if(rows, is_operations);
    if (row == rows.end()) return false;
    added.wrong = row->wrong;
    chosen().of_operation[static_cast<std::size_t>(row->target)].push_back(&added);
    return true;
}

bool is_target(std::string_view name)
{
    return std::ranges::any_of(OPERATION_NAMES, [&](const char *each) { return name == each; }) ||
           std::ranges::any_of(INSIDE, [&](const inside_row &row) { return name == row.target; });
}

void count_fired(chosen_fault &due)
{
    due.fired++;
    kel_reference_fault_fired(due.text.c_str());
}

__attribute__((destructor)) void report()
{
    const char *path = std::getenv("KEL_REFERENCE_FAULTS_REPORT");
    std::FILE *file = path && faults_are_chosen ? std::fopen(path, "we") : nullptr;
    if (!file) return;
    for (const chosen_fault &each : chosen().all) {
        std::fprintf(file, "fault %s hits %llu fired %llu\n", each.text.c_str(),
                     static_cast<unsigned long long>(each.hits),
                     static_cast<unsigned long long>(each.fired));
    }
    std::fclose(file);
}

} // namespace

namespace faults {

namespace {

// The call in progress on this thread: its number among those of its operation, and how many of
// the operation's faults have been asked already.
thread_local std::uint64_t current_call = 0;
thread_local std::size_t already_asked = 0;

} // namespace

void begin_call(state &library, operation entered)
{
    write_again(library);
    current_call = ++chosen().calls[static_cast<std::size_t>(entered)];
    already_asked = 0;
}

any_function take_due(operation target)
{
    const auto &candidates = chosen().of_operation[static_cast<std::size_t>(target)];
    while (already_asked < candidates.size()) {
        chosen_fault &asked = *candidates[already_asked++];
        if (!asked.written.matches(current_call)) continue;
        asked.hits++;
        count_fired(asked);
        return asked.wrong;
    }
    return nullptr;
}

} // namespace faults

bool is_due(fault point)
{
    const auto index = static_cast<std::size_t>(point);
    const std::uint64_t number = ++chosen().asked[index];
    bool due = false;
    for (chosen_fault *each : chosen().inside[index]) {
        if (!each->written.matches(number)) continue;
        each->hits++;
        count_fired(*each);
        due = true;
    }
    return due;
}

void choose_faults(const std::vector<std::string_view> &words)
{
    for (const std::string_view word : words) {
        const char *wrong = kel_reference_choose_fault(std::string(word).c_str());
        if (wrong) refuse_setting("KEL_REFERENCE_FAULTS", word, wrong);
    }
}

void list_faults()
{
    kel_reference_list_faults();
}

} // namespace kel_reference

using namespace kel_reference;

void kel_reference_list_faults()
{
    for (const faults::row &row : all_faults().rows) {
        std::printf("%s:%s\t%s\n", name_of(row.target), row.kind, row.meaning);
    }
    for (const inside_row &row : INSIDE) {
        std::printf("%s:%s\t%s\n", row.target, row.kind, row.meaning);
    }
}

const char *kel_reference_choose_fault(const char *text)
{
    auto &all = chosen().all;
    chosen_fault &added = all.emplace_back();
    added.text = text;
    const char *wrong = read_fault(added.text, added.written);
    if (!wrong && !is_target(added.written.target)) wrong = "no such operation";
    if (!wrong && !enlist(added)) wrong = "no such fault";
    if (wrong) {
        all.pop_back();
        return wrong;
    }
    faults_are_chosen = true;
    return nullptr;
}

bool kel_reference_count_fault(const char *text, std::uint64_t *hits, std::uint64_t *fired)
{
    const auto &all = chosen().all;
    const auto found = std::ranges::find(all, text, &chosen_fault::text);
    if (found == all.end()) return false;
    *hits = found->hits;
    *fired = found->fired;
    return true;
}

__attribute__((noinline)) void kel_reference_fault_fired(const char *)
{
    asm volatile(""); // keeps calls of an empty function from being dropped
}

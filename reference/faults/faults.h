// SPDX-License-Identifier: MIT
//
// Which faults are chosen. The library that is shipped and the faulty one are the same file:
// until one is chosen, an operation only looks whether any is.
//
// In the process of a program under test:
//
//   KEL_REFERENCE_FAULTS="trim_head#1:keeps_offsets recv#2+:newest"
//
// Wrong names end the process with a message. KEL_REFERENCE_LIST=faults prints all there are, and
// KEL_REFERENCE_FAULTS_REPORT=path has a line "fault <text> hits <n> fired <n>" for each chosen.
#pragma once

#include <cstdint>

#include "reference/operations.h"

namespace kel_reference {

extern bool faults_are_chosen;

namespace faults {

// Counts the call of an operation that is entered.
void begin_call(state &library, operation entered);

} // namespace faults

} // namespace kel_reference

// Chooses one more fault, before any operation is called. Returns null, or what is wrong with
// the text: it may be the shim's then.
extern "C" __attribute__((visibility("default"))) const char *
kel_reference_choose_fault(const char *text);

// How often a fault that was chosen could act, and did. False for one that was not.
extern "C" __attribute__((visibility("default"))) bool
kel_reference_count_fault(const char *text, std::uint64_t *hits, std::uint64_t *fired);

// Prints a line for each fault: operation:kind, a tab and its meaning.
extern "C" __attribute__((visibility("default"))) void kel_reference_list_faults();

// Called on every fault that acts; does nothing and holds a breakpoint.
extern "C" __attribute__((visibility("default"))) void kel_reference_fault_fired(const char *text);

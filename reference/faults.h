// SPDX-License-Identifier: MIT
//
// Fault points: places where the library can be told to be wrong, so that a test program
// can be shown to notice. Chosen by KEL_REFERENCE_FAULTS when the library is loaded and
// inert otherwise: the library that is shipped and the faulty one are the same file.
//
//   KEL_REFERENCE_FAULTS="packet.trim_head.keeps_offsets buf.get_data.short#2+"
//
// A point fires at every hit, at the n-th (#n), or from the n-th on (#n+). An unknown name
// ends the process with a message. KEL_REFERENCE_LIST=faults prints all points.
#pragma once

#include <cstdint>

namespace kel_reference {

enum class fault : std::uint32_t {
#define FAULT(family, operation, kind, meaning) family##_##operation##_##kind,
#include "reference/faults.def"
#undef FAULT
    count
};

extern bool any_fault_chosen;

bool fault_is_due(fault point);

// Whether the operation is to go wrong here. Counts the hit.
inline bool fires(fault point)
{
    return __builtin_expect(any_fault_chosen, false) && fault_is_due(point);
}

} // namespace kel_reference

// Called on every fault that fires; does nothing and holds a breakpoint.
extern "C" __attribute__((visibility("default"))) void kel_reference_fault_fired(const char *point);

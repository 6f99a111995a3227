// SPDX-License-Identifier: MIT
//
// The few faults that no saboteur of an operation can bring about: what they change happens on
// the library's own initiative, too, or shows at once. The model asks for each at one place:
//
//   unless(fault::signal_not_shown) show();
#pragma once

#include "reference/faults/faults.h"

namespace kel_reference {

// FAULT(target, kind, meaning): written `target#n:kind`.
#define INSIDE_FAULTS(FAULT)                                                                       \
    FAULT(signal, not_shown, "a signal does not make the descriptor readable")                     \
    FAULT(event, not_shown, "a pending event raises no exceptional condition")

enum class fault : unsigned {
#define INSIDE_FAULT(target, kind, meaning) target##_##kind,
    INSIDE_FAULTS(INSIDE_FAULT)
#undef INSIDE_FAULT
};

// Counts the hit.
bool is_due(fault point);

} // namespace kel_reference

#define unless(point) if (!(::kel_reference::faults_are_chosen && ::kel_reference::is_due(point)))

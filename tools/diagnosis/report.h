// SPDX-License-Identifier: MIT
//
// A diagnosis as people and as programs read it.
#pragma once

#include <string>

#include "tools/diagnosis/diagnosis.h"

namespace diagnosis {

std::string to_text(const table &known, const evidence &told, const diagnosis &made);

// One object: {"failed", "good", "faults": [[{"fault", "text"}, ...], ...],
// "next": null or {"case", "explain", "ends": [{"faults", "as"}]},
// "operations": [{"operation", "score", "failed", "good"}, ...]}.
std::string to_json(const diagnosis &made);

} // namespace diagnosis

// SPDX-License-Identifier: MIT
//
// What all that changes sources has to know of their text.
#pragma once

#include <string>
#include <vector>

namespace mutation {

// Where code stands, as against comments, string literals and directives.
std::vector<bool> code_map(const std::string &text);

} // namespace mutation

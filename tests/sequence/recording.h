// SPDX-License-Identifier: MIT
//
// Cases of tavor recorded as sequences.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/sequence/sequence.h"

namespace support {

// The text that the shim writes while tavor runs the case.
std::string recorded_text(const std::string &case_name,
                          const std::vector<std::string> &environment = {},
                          std::chrono::seconds limit = std::chrono::seconds(60));

sequence::call_sequence recorded(const std::string &case_name,
                                 const std::vector<std::string> &environment = {},
                                 std::chrono::seconds limit = std::chrono::seconds(60));

} // namespace support

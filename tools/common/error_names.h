// SPDX-License-Identifier: MIT
//
// Names of error numbers and of libkel's notices.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tools {

// "EINVAL" for 22, "KEL_LOW_THRESHOLD_REACHED" for that notice; null for 0 and for numbers
// without a name. Allocates nothing.
const char *known_error_name(std::uint64_t error);

// The name, else the number in decimal.
std::string error_name(std::uint64_t error);

// The number of a name; 0 if it is none.
std::uint32_t error_number(std::string_view name);

} // namespace tools

// SPDX-License-Identifier: MIT
//
// Names of error numbers and of libkel's notices.
#pragma once

#include <string>

namespace tools {

// "EINVAL" for 22, "KEL_LOW_THRESHOLD_REACHED" for that notice, else the number in decimal.
std::string error_name(unsigned error);

// The number of a name, or of a number written in decimal or 0x hexadecimal; 0 if it is none.
int error_number(const std::string &name);

} // namespace tools

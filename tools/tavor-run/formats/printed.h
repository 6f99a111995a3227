// SPDX-License-Identifier: MIT
//
// What a case printed, for reports that are made of lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tavor_run {

// The lines of `output`, made printable. Of many the first and the last ones, with a line in
// between that says how many are missing; of long ones the beginning.
std::vector<std::string> printed_lines(std::string_view output);

} // namespace tavor_run

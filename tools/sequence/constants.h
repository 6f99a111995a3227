// SPDX-License-Identifier: MIT
//
// The names that numbers have in a sequence's text.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/common/interface.h"

namespace sequence {

// Null when the number has none in that form.
const char *constant_name(interface::form shown, std::uint64_t number);

std::optional<std::uint64_t> constant_number(std::string_view name);

} // namespace sequence

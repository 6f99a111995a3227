// SPDX-License-Identifier: MIT
//
// Choices that the contract leaves open. Each is an unsigned number with a default and at
// least one other legal value, listed in options.def and chosen by
// KEL_REFERENCE_OPTIONS="name=value ..." when the library is loaded.
#pragma once

#include <cstdint>

namespace kel_reference {

struct options {
#define OPTION(name, default_value, other_values, meaning) std::uint32_t name = default_value;
#include "reference/options.def"
#undef OPTION
};

extern options options_in_force;

// As read from the environment, once. An unknown name or a value that is not legal ends the
// process with a message: silently testing the default would prove nothing.
inline const options &chosen_options()
{
    return options_in_force;
}

} // namespace kel_reference

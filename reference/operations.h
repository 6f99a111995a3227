// SPDX-License-Identifier: MIT
//
// The operations of the interface as numbers, and the model's function for each: the same
// arguments after the library's state, whose lock is held while it works.
#pragma once

#include <cstddef>
#include <iterator>

#include "kelapi/kel.h"

namespace kel_reference {

struct state;

enum class operation : unsigned {
#define OPERATION(function, ...) function,
#include "kelapi/operations.def"
};

inline constexpr const char *OPERATION_NAMES[] = {
#define OPERATION(function, ...) &#function[sizeof "kel_" - 1],
#include "kelapi/operations.def"
};

inline constexpr std::size_t OPERATIONS = std::size(OPERATION_NAMES);

template <typename function> struct with_state;
template <typename result, typename... arguments> struct with_state<result(arguments...)> {
    using type = result(state &, arguments...);
};

namespace model {

#define OPERATION(function, ...) with_state<decltype(::function)>::type function;
#include "kelapi/operations.def"

} // namespace model

} // namespace kel_reference

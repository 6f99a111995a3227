// SPDX-License-Identifier: MIT
//
// Numbers and addresses of any width, to 64 bits and back.
#pragma once

#include <cstdint>
#include <type_traits>

namespace keltrace {

// With the sign extended.
template <typename Type> std::uint64_t widened(Type value)
{
    if constexpr (std::is_pointer_v<Type>) {
        return reinterpret_cast<std::uintptr_t>(value);
    } else {
        return static_cast<std::uint64_t>(value);
    }
}

template <typename Type> Type narrowed(std::uint64_t value)
{
    if constexpr (std::is_pointer_v<Type>) {
        return reinterpret_cast<Type>(static_cast<std::uintptr_t>(value));
    } else {
        return static_cast<Type>(value);
    }
}

} // namespace keltrace

// SPDX-License-Identifier: MIT
//
// kelapi/operations.def as types and constant tables. Every line of the list is held against the
// header's declaration here.
#ifndef TOOLS_INTERFACE_H
#define TOOLS_INTERFACE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <type_traits>

#include "kelapi/kel.h"

namespace interface {

enum class direction { in, out, inout };
enum class form {
    none,
    handle,
    decimal,
    hexadecimal,
    flag,
    error,
    text,
    address,
    bytes,
    role,
    interface_kind,
    offset_kind,
    group_flags,
    event,
    thresholds,
    timeout,
    metadata,
    iovecs,
    packet_list,
    buffer_list
};
enum class object { none, client, packet, buffer, bufgroup, tag, dynamic_tag, tlv, event };
enum class effect { keeps, obtains, releases, gives, replaces };

enum class result_kind {
#define RESULT_KIND(kind, ...) kind,
#include "kelapi/operations.def"
};

enum class argument_kind {
#define ARGUMENT_KIND(kind, ...) kind,
#include "kelapi/operations.def"
};

template <result_kind Kind> struct result_type_of;
template <argument_kind Kind> struct argument_type_of;

#define RESULT_KIND(kind, c_type, ...)                                                             \
    template <> struct result_type_of<result_kind::kind> {                                         \
        using type = c_type;                                                                       \
    };
#define ARGUMENT_KIND(kind, c_type, ...)                                                           \
    template <> struct argument_type_of<argument_kind::kind> {                                     \
        using type = c_type;                                                                       \
    };
#include "kelapi/operations.def"

template <result_kind Kind> using result_type = typename result_type_of<Kind>::type;
template <argument_kind Kind> using argument_type = typename argument_type_of<Kind>::type;

struct result_info {
    interface::form form;
    interface::object object;
    interface::effect effect;
    std::size_t width; // bytes; 0: no result
};

struct argument_info {
    interface::direction direction;
    interface::form form;
    interface::object object;
    interface::effect effect;
    std::size_t width;        // bytes of the argument itself
    std::size_t target_width; // bytes of what it names; 0 when it names nothing or plain bytes
    bool scalar_target;
};

template <typename Type> constexpr std::size_t width_of()
{
    if constexpr (std::is_void_v<Type>)
        return 0;
    else
        return sizeof(Type);
}

template <typename Type> constexpr std::size_t target_width_of()
{
    if constexpr (std::is_pointer_v<Type>)
        return width_of<std::remove_pointer_t<Type>>();
    else
        return 0;
}

inline constexpr result_info RESULT_INFO[] = {
#define RESULT_KIND(kind, type, shown, what, does)                                                 \
    {form::shown, object::what, effect::does, width_of<type>()},
#include "kelapi/operations.def"
};

inline constexpr argument_info ARGUMENT_INFO[] = {
#define ARGUMENT_KIND(kind, type, way, shown, what, does, presence)                                \
    {direction::way,                                                                               \
     form::shown,                                                                                  \
     object::what,                                                                                 \
     effect::does,                                                                                 \
     sizeof(type),                                                                                 \
     target_width_of<type>(),                                                                      \
     std::is_scalar_v<std::remove_pointer_t<type>>},
#include "kelapi/operations.def"
};

constexpr const argument_info &info(argument_kind kind)
{
    return ARGUMENT_INFO[static_cast<std::size_t>(kind)];
}

constexpr const result_info &info(result_kind kind)
{
    return RESULT_INFO[static_cast<std::size_t>(kind)];
}

struct argument {
    argument_kind kind;
    const char *name;
};

inline constexpr std::size_t ARGUMENT_MAX = 7;

struct operation_info {
    const char *function; // as the linker knows it
    const char *name;     // as faults and reports name it
    bool system;
    result_kind result;
    std::size_t argument_count;
    std::array<argument, ARGUMENT_MAX> arguments;

    constexpr std::span<const argument> list() const
    {
        return std::span(arguments).first(argument_count);
    }

    constexpr int find(argument_kind kind) const
    {
        for (std::size_t i = 0; i < argument_count; ++i)
            if (arguments[i].kind == kind) return static_cast<int>(i);
        return -1;
    }
};

inline constexpr operation_info OPERATIONS[] = {
#define INTERFACE_INFO(function, result, count, ...)                                               \
    {#function, &#function[sizeof "kel_" - 1], false, result_kind::result, count, {{__VA_ARGS__}}},
#define INTERFACE_ARGUMENT(kind, name)                                                             \
    argument                                                                                       \
    {                                                                                              \
        argument_kind::kind, #name                                                                 \
    }
#define OPERATION_0(f, r) INTERFACE_INFO(f, r, 0, )
#define OPERATION_1(f, r, k1, n1) INTERFACE_INFO(f, r, 1, INTERFACE_ARGUMENT(k1, n1))
#define OPERATION_2(f, r, k1, n1, k2, n2)                                                          \
    INTERFACE_INFO(f, r, 2, INTERFACE_ARGUMENT(k1, n1), INTERFACE_ARGUMENT(k2, n2))
#define OPERATION_3(f, r, k1, n1, k2, n2, k3, n3)                                                  \
    INTERFACE_INFO(f, r, 3, INTERFACE_ARGUMENT(k1, n1), INTERFACE_ARGUMENT(k2, n2),                \
                   INTERFACE_ARGUMENT(k3, n3))
#define OPERATION_4(f, r, k1, n1, k2, n2, k3, n3, k4, n4)                                          \
    INTERFACE_INFO(f, r, 4, INTERFACE_ARGUMENT(k1, n1), INTERFACE_ARGUMENT(k2, n2),                \
                   INTERFACE_ARGUMENT(k3, n3), INTERFACE_ARGUMENT(k4, n4))
#define OPERATION_5(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5)                                  \
    INTERFACE_INFO(f, r, 5, INTERFACE_ARGUMENT(k1, n1), INTERFACE_ARGUMENT(k2, n2),                \
                   INTERFACE_ARGUMENT(k3, n3), INTERFACE_ARGUMENT(k4, n4),                         \
                   INTERFACE_ARGUMENT(k5, n5))
#define OPERATION_6(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6)                          \
    INTERFACE_INFO(f, r, 6, INTERFACE_ARGUMENT(k1, n1), INTERFACE_ARGUMENT(k2, n2),                \
                   INTERFACE_ARGUMENT(k3, n3), INTERFACE_ARGUMENT(k4, n4),                         \
                   INTERFACE_ARGUMENT(k5, n5), INTERFACE_ARGUMENT(k6, n6))
#define OPERATION_7(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6, k7, n7)                  \
    INTERFACE_INFO(f, r, 7, INTERFACE_ARGUMENT(k1, n1), INTERFACE_ARGUMENT(k2, n2),                \
                   INTERFACE_ARGUMENT(k3, n3), INTERFACE_ARGUMENT(k4, n4),                         \
                   INTERFACE_ARGUMENT(k5, n5), INTERFACE_ARGUMENT(k6, n6),                         \
                   INTERFACE_ARGUMENT(k7, n7))
#include "kelapi/operations.def"
#undef INTERFACE_INFO
#undef INTERFACE_ARGUMENT
};

// The list and the headers agree.
#define INTERFACE_SAME(f, r, ...)                                                                  \
    static_assert(std::is_same_v<decltype(&f), result_type<result_kind::r> (*)(__VA_ARGS__)>,      \
                  #f " differs from its declaration");
#define INTERFACE_TYPE(kind) argument_type<argument_kind::kind>
#define OPERATION_0(f, r) INTERFACE_SAME(f, r, )
#define OPERATION_1(f, r, k1, n1) INTERFACE_SAME(f, r, INTERFACE_TYPE(k1))
#define OPERATION_2(f, r, k1, n1, k2, n2)                                                          \
    INTERFACE_SAME(f, r, INTERFACE_TYPE(k1), INTERFACE_TYPE(k2))
#define OPERATION_3(f, r, k1, n1, k2, n2, k3, n3)                                                  \
    INTERFACE_SAME(f, r, INTERFACE_TYPE(k1), INTERFACE_TYPE(k2), INTERFACE_TYPE(k3))
#define OPERATION_4(f, r, k1, n1, k2, n2, k3, n3, k4, n4)                                          \
    INTERFACE_SAME(f, r, INTERFACE_TYPE(k1), INTERFACE_TYPE(k2), INTERFACE_TYPE(k3),               \
                   INTERFACE_TYPE(k4))
#define OPERATION_5(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5)                                  \
    INTERFACE_SAME(f, r, INTERFACE_TYPE(k1), INTERFACE_TYPE(k2), INTERFACE_TYPE(k3),               \
                   INTERFACE_TYPE(k4), INTERFACE_TYPE(k5))
#define OPERATION_6(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6)                          \
    INTERFACE_SAME(f, r, INTERFACE_TYPE(k1), INTERFACE_TYPE(k2), INTERFACE_TYPE(k3),               \
                   INTERFACE_TYPE(k4), INTERFACE_TYPE(k5), INTERFACE_TYPE(k6))
#define OPERATION_7(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6, k7, n7)                  \
    INTERFACE_SAME(f, r, INTERFACE_TYPE(k1), INTERFACE_TYPE(k2), INTERFACE_TYPE(k3),               \
                   INTERFACE_TYPE(k4), INTERFACE_TYPE(k5), INTERFACE_TYPE(k6), INTERFACE_TYPE(k7))
#include "kelapi/operations.def"
#undef INTERFACE_SAME
#undef INTERFACE_TYPE

} // namespace interface

#endif

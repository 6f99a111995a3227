// SPDX-License-Identifier: MIT
//
// kelapi/operations.def as types and constant tables, and beside it the calls to the system that
// the shim knows. Every line of the list is held against the header's declaration here.
#ifndef KELTRACE_OPERATIONS_H
#define KELTRACE_OPERATIONS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "kelapi/kel.h"

namespace keltrace {

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
    keltrace::form form;
    keltrace::object object;
    keltrace::effect effect;
    std::size_t width; // bytes; 0: no result
};

struct argument_info {
    keltrace::direction direction;
    keltrace::form form;
    keltrace::object object;
    keltrace::effect effect;
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

// What tavor takes from the system, and can be refused or told otherwise.
#define KELTRACE_SYSTEM_CALLS(CALL)                                                                \
    CALL(malloc)                                                                                   \
    CALL(calloc)                                                                                   \
    CALL(pthread_create)                                                                           \
    CALL(select)                                                                                   \
    CALL(open)                                                                                     \
    CALL(ioctl)                                                                                    \
    CALL(sleep)                                                                                    \
    CALL(gettimeofday)

enum class operation : unsigned {
#define OPERATION(name, ...) name,
#include "kelapi/operations.def"
#define KELTRACE_CALL(name) system_##name,
    KELTRACE_SYSTEM_CALLS(KELTRACE_CALL)
#undef KELTRACE_CALL
};

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

inline constexpr operation_info OPERATION_INFO[] = {
#define KELTRACE_INFO(function, result, count, ...)                                                \
    {#function, &#function[sizeof "kel_" - 1], false, result_kind::result, count, {{__VA_ARGS__}}},
#define KELTRACE_ARGUMENT(kind, name)                                                              \
    argument                                                                                       \
    {                                                                                              \
        argument_kind::kind, #name                                                                 \
    }
#define OPERATION_0(f, r) KELTRACE_INFO(f, r, 0, )
#define OPERATION_1(f, r, k1, n1) KELTRACE_INFO(f, r, 1, KELTRACE_ARGUMENT(k1, n1))
#define OPERATION_2(f, r, k1, n1, k2, n2)                                                          \
    KELTRACE_INFO(f, r, 2, KELTRACE_ARGUMENT(k1, n1), KELTRACE_ARGUMENT(k2, n2))
#define OPERATION_3(f, r, k1, n1, k2, n2, k3, n3)                                                  \
    KELTRACE_INFO(f, r, 3, KELTRACE_ARGUMENT(k1, n1), KELTRACE_ARGUMENT(k2, n2),                   \
                  KELTRACE_ARGUMENT(k3, n3))
#define OPERATION_4(f, r, k1, n1, k2, n2, k3, n3, k4, n4)                                          \
    KELTRACE_INFO(f, r, 4, KELTRACE_ARGUMENT(k1, n1), KELTRACE_ARGUMENT(k2, n2),                   \
                  KELTRACE_ARGUMENT(k3, n3), KELTRACE_ARGUMENT(k4, n4))
#define OPERATION_5(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5)                                  \
    KELTRACE_INFO(f, r, 5, KELTRACE_ARGUMENT(k1, n1), KELTRACE_ARGUMENT(k2, n2),                   \
                  KELTRACE_ARGUMENT(k3, n3), KELTRACE_ARGUMENT(k4, n4), KELTRACE_ARGUMENT(k5, n5))
#define OPERATION_6(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6)                          \
    KELTRACE_INFO(f, r, 6, KELTRACE_ARGUMENT(k1, n1), KELTRACE_ARGUMENT(k2, n2),                   \
                  KELTRACE_ARGUMENT(k3, n3), KELTRACE_ARGUMENT(k4, n4), KELTRACE_ARGUMENT(k5, n5), \
                  KELTRACE_ARGUMENT(k6, n6))
#define OPERATION_7(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6, k7, n7)                  \
    KELTRACE_INFO(f, r, 7, KELTRACE_ARGUMENT(k1, n1), KELTRACE_ARGUMENT(k2, n2),                   \
                  KELTRACE_ARGUMENT(k3, n3), KELTRACE_ARGUMENT(k4, n4), KELTRACE_ARGUMENT(k5, n5), \
                  KELTRACE_ARGUMENT(k6, n6), KELTRACE_ARGUMENT(k7, n7))
#include "kelapi/operations.def"
#undef KELTRACE_INFO
#undef KELTRACE_ARGUMENT
#define KELTRACE_CALL(name) {#name, #name, true, result_kind::nothing, 0, {}},
    KELTRACE_SYSTEM_CALLS(KELTRACE_CALL)
#undef KELTRACE_CALL
};

inline constexpr std::size_t OPERATION_COUNT = std::size(OPERATION_INFO);

constexpr const operation_info &info(operation which)
{
    return OPERATION_INFO[static_cast<std::size_t>(which)];
}

// The list and the headers agree.
#define KELTRACE_SAME(f, r, ...)                                                                   \
    static_assert(std::is_same_v<decltype(&f), result_type<result_kind::r> (*)(__VA_ARGS__)>,      \
                  #f " differs from its declaration");
#define KELTRACE_TYPE(kind) argument_type<argument_kind::kind>
#define OPERATION_0(f, r) KELTRACE_SAME(f, r, )
#define OPERATION_1(f, r, k1, n1) KELTRACE_SAME(f, r, KELTRACE_TYPE(k1))
#define OPERATION_2(f, r, k1, n1, k2, n2) KELTRACE_SAME(f, r, KELTRACE_TYPE(k1), KELTRACE_TYPE(k2))
#define OPERATION_3(f, r, k1, n1, k2, n2, k3, n3)                                                  \
    KELTRACE_SAME(f, r, KELTRACE_TYPE(k1), KELTRACE_TYPE(k2), KELTRACE_TYPE(k3))
#define OPERATION_4(f, r, k1, n1, k2, n2, k3, n3, k4, n4)                                          \
    KELTRACE_SAME(f, r, KELTRACE_TYPE(k1), KELTRACE_TYPE(k2), KELTRACE_TYPE(k3), KELTRACE_TYPE(k4))
#define OPERATION_5(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5)                                  \
    KELTRACE_SAME(f, r, KELTRACE_TYPE(k1), KELTRACE_TYPE(k2), KELTRACE_TYPE(k3),                   \
                  KELTRACE_TYPE(k4), KELTRACE_TYPE(k5))
#define OPERATION_6(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6)                          \
    KELTRACE_SAME(f, r, KELTRACE_TYPE(k1), KELTRACE_TYPE(k2), KELTRACE_TYPE(k3),                   \
                  KELTRACE_TYPE(k4), KELTRACE_TYPE(k5), KELTRACE_TYPE(k6))
#define OPERATION_7(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6, k7, n7)                  \
    KELTRACE_SAME(f, r, KELTRACE_TYPE(k1), KELTRACE_TYPE(k2), KELTRACE_TYPE(k3),                   \
                  KELTRACE_TYPE(k4), KELTRACE_TYPE(k5), KELTRACE_TYPE(k6), KELTRACE_TYPE(k7))
#include "kelapi/operations.def"
#undef KELTRACE_SAME
#undef KELTRACE_TYPE

} // namespace keltrace

#endif

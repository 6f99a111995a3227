// SPDX-License-Identifier: MIT
//
// kelapi/operations.def as types and constant tables. Every line of the list is held against the
// header's declaration here.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <span>
#include <string_view>
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
enum class presence { required, optional, value };

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
    interface::presence presence;
    bool scalar_target;
    std::size_t width;        // bytes of the argument itself
    std::size_t target_width; // bytes of what it names; 0 when it names nothing or plain bytes
};

template <typename Type> constexpr std::size_t width_of()
{
    if constexpr (std::is_void_v<Type>) {
        return 0;
    } else {
        return sizeof(Type);
    }
}

template <typename Type> constexpr std::size_t target_width_of()
{
    if constexpr (std::is_pointer_v<Type>) {
        return width_of<std::remove_pointer_t<Type>>();
    } else {
        return 0;
    }
}

inline constexpr result_info RESULT_INFO[] = {
#define RESULT_KIND(kind, type, shown, what, does)                                                 \
    {form::shown, object::what, effect::does, width_of<type>()},
#include "kelapi/operations.def"
};

inline constexpr argument_info ARGUMENT_INFO[] = {
#define ARGUMENT_KIND(kind, type, way, shown, what, does, needed)                                  \
    {direction::way,   form::shown,                                                                \
     object::what,     effect::does,                                                               \
     presence::needed, std::is_scalar_v<std::remove_pointer_t<type>>,                              \
     sizeof(type),     target_width_of<type>()},
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

// The most that an operation has.
inline constexpr std::size_t ARGUMENT_MAX = std::max({
#define KIND(kind, name) argument_kind::kind
#define OPERATION(function, result, ...)                                                           \
    std::initializer_list<argument_kind>{FOR_EACH_ARGUMENT(KIND, __VA_ARGS__)}.size(),
#include "kelapi/operations.def"
#undef KIND
});

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
        for (std::size_t i = 0; i < argument_count; ++i) {
            if (arguments[i].kind == kind) return static_cast<int>(i);
        }
        return -1;
    }
};

constexpr operation_info library_operation(const char *function, result_kind result,
                                           std::initializer_list<argument> arguments)
{
    operation_info listed{function, function + sizeof "kel_" - 1, false, result, 0, {}};
    for (const argument &each : arguments) listed.arguments[listed.argument_count++] = each;
    return listed;
}

inline constexpr operation_info OPERATIONS[] = {
#define ARGUMENT(kind, name)                                                                       \
    interface::argument {                                                                          \
        argument_kind::kind, #name                                                                 \
    }
#define OPERATION(function, result, ...)                                                           \
    library_operation(#function, result_kind::result, {FOR_EACH_ARGUMENT(ARGUMENT, __VA_ARGS__)}),
#include "kelapi/operations.def"
#undef ARGUMENT
};

// Null when there is none of that name, which has no kel_ prefix.
constexpr const operation_info *find_operation(std::string_view name)
{
    const auto *found = std::ranges::find(OPERATIONS, name, &operation_info::name);
    return found == std::end(OPERATIONS) ? nullptr : found;
}

// Whether success means that an object was obtained, released, handed over or replaced.
constexpr bool changes_ownership(const operation_info &which)
{
    return info(which.result).effect != effect::keeps ||
           std::ranges::any_of(which.list(), [](const argument &passed) {
               return info(passed.kind).effect != effect::keeps;
           });
}

// The list and the headers agree.
#define TYPE(kind, name) argument_type<argument_kind::kind>
#define OPERATION(f, r, ...)                                                                       \
    static_assert(std::is_same_v<decltype(&f), result_type<result_kind::r> (*)(                    \
                                                   FOR_EACH_ARGUMENT(TYPE, __VA_ARGS__))>,         \
                  #f " differs from its declaration");
#include "kelapi/operations.def"
#undef TYPE

} // namespace interface

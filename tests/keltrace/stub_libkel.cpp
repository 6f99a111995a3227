// SPDX-License-Identifier: MIT
//
// A libkel without a library behind it: every operation prints what it was given, stores a value
// that tells its width through each argument, and succeeds, or has the result that the environment
// says: STUB_RESULT_<operation>.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "tools/keltrace/operations.h"
#include "tools/keltrace/widths.h"

namespace {

using namespace keltrace;
using long_number = unsigned long long;

constexpr char DATA[] = "abcdefgh";
constexpr std::size_t DATA_LENGTH = sizeof DATA - 1;

template <operation Id, std::size_t I, typename Arguments> void print(const Arguments &arguments)
{
    constexpr auto entry = info(Id).arguments[I];
    const auto value = std::get<I>(arguments);
    printf("%s%s=", I == 0 ? "" : " ", entry.name);
    if constexpr (!std::is_pointer_v<std::remove_cv_t<decltype(value)>>) {
        printf("%lld", static_cast<long long>(value));
    } else if (value == nullptr) {
        printf("null");
    } else if constexpr (entry.kind == argument_kind::source) {
        printf("%.*s", static_cast<int>(std::get<I + 1>(arguments)),
               static_cast<const char *>(value));
    } else {
        printf("&");
    }
}

void store(kel_event &event)
{
    event = {KEL_EVENT_TAG, 4, 1, 2, 0x20, 0};
}

void store(kel_bufgroup_thresholds &thresholds)
{
    thresholds = {3, 1, 2};
}

void store(kel_packet_list &list)
{
    list.results[0].packet = 0x5003;
    list.allocated = 1;
}

void store(kel_buffer_list &list)
{
    list = {};
    list.buffers[0] = 0x5004;
    list.allocated = 1;
}

void store(kel_iovec &entry)
{
    entry.iov_base = 64;
    entry.iov_len = 32;
}

void store(kel_metadata_group &group)
{
    group.length = 32;
}

template <typename Scalar> void store(Scalar &scalar)
{
    scalar = narrowed<Scalar>(8 * sizeof scalar);
}

void copy_data(void *destination, const std::uint32_t *length)
{
    if (length != nullptr) memcpy(destination, DATA, std::min<std::size_t>(*length, DATA_LENGTH));
}

template <operation Id, std::size_t I, typename Arguments> void fill(const Arguments &arguments)
{
    using enum argument_kind;
    constexpr auto kind = info(Id).arguments[I].kind;
    const auto value = std::get<I>(arguments);
    if constexpr (std::is_pointer_v<std::remove_cv_t<decltype(value)>> &&
                  info(kind).direction != direction::in) {
        if (value == nullptr) return;
        if constexpr (kind == out_error) {
            *value = 0;
        } else if constexpr (kind == head) {
            *value += 1;
        } else if constexpr (kind == destination_length) {
            *value = std::min<std::uint32_t>(*value, DATA_LENGTH);
        } else if constexpr (kind == destination) {
            copy_data(value, std::get<I + 1>(arguments));
        } else {
            store(*value);
        }
    }
}

template <operation Id> std::uint64_t result()
{
    const std::string variable = std::string("STUB_RESULT_") + info(Id).name;
    if (const char *text = getenv(variable.c_str())) return strtoull(text, nullptr, 0);
    switch (info(Id).result) {
    case result_kind::error:
        return 0;
    case result_kind::new_packet:
        return 0x5001;
    case result_kind::new_buffer:
        return 0x5002;
    default:
        return 7;
    }
}

template <operation Id, typename... Values> std::uint64_t perform(Values... values)
{
    const std::tuple<Values...> arguments(values...);
    const std::uint64_t outcome = result<Id>();
    [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        printf("  %s(", info(Id).name);
        (print<Id, I>(arguments), ...);
        printf(")\n");
        if (info(info(Id).result).form == form::error && outcome != 0) return;
        (fill<Id, I>(arguments), ...);
    }
    (std::index_sequence_for<Values...>());
    return outcome;
}

} // namespace

#define RESULT(kind) keltrace::result_type<keltrace::result_kind::kind>
#define PARAMETER(kind, name) keltrace::argument_type<keltrace::argument_kind::kind> name
#define NAME(kind, name) name
#define OPERATION(function, result, ...)                                                           \
    RESULT(result) function(FOR_EACH_ARGUMENT(PARAMETER, __VA_ARGS__))                             \
    {                                                                                              \
        return static_cast<RESULT(result)>(                                                        \
            perform<operation::function>(FOR_EACH_ARGUMENT(NAME, __VA_ARGS__)));                   \
    }
#include "kelapi/operations.def"

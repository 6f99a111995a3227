// SPDX-License-Identifier: MIT
//
// The operations as callers find them. Each takes the library's lock, and hands its arguments to
// the model's function of the same name, or to faults that were chosen in its place.

#include <mutex>

#include "reference/faults/catalogue.h"
#include "reference/faults/faults.h"
#include "reference/operations.h"
#include "reference/state.h"

namespace kel_reference {

namespace {

// Carries out one call that came from `caller`.
template <operation entered> auto enter(const void *caller, auto... arguments)
{
    state &shared = library();
    const std::lock_guard guard(shared.lock);
    shared.caller = caller;
    if (faults_are_chosen) [[unlikely]] {
        faults::begin_call(shared, entered);
        return faults::right_one<entered>{}(shared, arguments...);
    }
    return faults::model_of<entered>(shared, arguments...);
}

} // namespace

} // namespace kel_reference

using namespace kel_reference;

#define RESULT_KIND(kind, type, ...) using result_##kind = type;
#define ARGUMENT_KIND(kind, type, ...) using argument_##kind = type;
#include "kelapi/operations.def"

#define ENTER(function, ...)                                                                       \
    return enter<operation::function>(__builtin_return_address(0) __VA_OPT__(, ) __VA_ARGS__);

#define OPERATION_0(f, r)                                                                          \
    result_##r f()                                                                                 \
    {                                                                                              \
        ENTER(f)                                                                                   \
    }
#define OPERATION_1(f, r, k1, n1)                                                                  \
    result_##r f(argument_##k1 n1)                                                                 \
    {                                                                                              \
        ENTER(f, n1)                                                                               \
    }
#define OPERATION_2(f, r, k1, n1, k2, n2)                                                          \
    result_##r f(argument_##k1 n1, argument_##k2 n2)                                               \
    {                                                                                              \
        ENTER(f, n1, n2)                                                                           \
    }
#define OPERATION_3(f, r, k1, n1, k2, n2, k3, n3)                                                  \
    result_##r f(argument_##k1 n1, argument_##k2 n2, argument_##k3 n3)                             \
    {                                                                                              \
        ENTER(f, n1, n2, n3)                                                                       \
    }
#define OPERATION_4(f, r, k1, n1, k2, n2, k3, n3, k4, n4)                                          \
    result_##r f(argument_##k1 n1, argument_##k2 n2, argument_##k3 n3, argument_##k4 n4)           \
    {                                                                                              \
        ENTER(f, n1, n2, n3, n4)                                                                   \
    }
#define OPERATION_5(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5)                                  \
    result_##r f(argument_##k1 n1, argument_##k2 n2, argument_##k3 n3, argument_##k4 n4,           \
                 argument_##k5 n5)                                                                 \
    {                                                                                              \
        ENTER(f, n1, n2, n3, n4, n5)                                                               \
    }
#define OPERATION_6(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6)                          \
    result_##r f(argument_##k1 n1, argument_##k2 n2, argument_##k3 n3, argument_##k4 n4,           \
                 argument_##k5 n5, argument_##k6 n6)                                               \
    {                                                                                              \
        ENTER(f, n1, n2, n3, n4, n5, n6)                                                           \
    }
#define OPERATION_7(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6, k7, n7)                  \
    result_##r f(argument_##k1 n1, argument_##k2 n2, argument_##k3 n3, argument_##k4 n4,           \
                 argument_##k5 n5, argument_##k6 n6, argument_##k7 n7)                             \
    {                                                                                              \
        ENTER(f, n1, n2, n3, n4, n5, n6, n7)                                                       \
    }
#include "kelapi/operations.def"

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

#define PARAMETER(kind, name) argument_##kind name
#define NAME(kind, name) name
#define OPERATION(function, result, ...)                                                           \
    result_##result function(FOR_EACH_ARGUMENT(PARAMETER, __VA_ARGS__))                            \
    {                                                                                              \
        return enter<operation::function>(__builtin_return_address(0) __VA_OPT__(, )               \
                                              FOR_EACH_ARGUMENT(NAME, __VA_ARGS__));               \
    }
#include "kelapi/operations.def"

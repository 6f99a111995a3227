// SPDX-License-Identifier: MIT
//
// The operations of libkel as the program finds them: each passes on to the library behind it, and
// the program's own calls are counted, traced and made to fail on the way.
#include <optional>
#include <sched.h>
#include <tuple>
#include <type_traits>

#include "tools/keltrace/call_faults.h"
#include "tools/keltrace/call_trace.h"
#include "tools/keltrace/census.h"
#include "tools/keltrace/census_rules.h"
#include "tools/keltrace/operations.h"
#include "tools/keltrace/own_code.h"
#include "tools/keltrace/record.h"
#include "tools/keltrace/state.h"

namespace keltrace {

namespace {

template <operation Id, typename Result> bool has_succeeded(Result result)
{
    constexpr auto returned = info(info(Id).result);
    if constexpr (returned.form == form::error)
        return result == 0 || result == KEL_HIGH_THRESHOLD_REACHED ||
               result == KEL_LOW_THRESHOLD_REACHED;
    else if constexpr (returned.form == form::handle)
        return result != 0;
    else
        return true;
}

// The result of an operation without one.
struct no_result {
    constexpr no_result() = default;
    constexpr explicit no_result(std::uint64_t) {}
    constexpr operator std::uint32_t() const { return 0; }
};

template <typename Result, typename Function, typename Arguments>
auto call(Function *function, const Arguments &arguments)
{
    if constexpr (std::is_void_v<Result>) {
        std::apply(function, arguments);
        return no_result{};
    } else {
        return std::apply(function, arguments);
    }
}

// A thread that tries again and again what is refused may wait for another one, which then is not
// to wait for its processor.
void yield_if_refused_again(operation which, bool succeeded)
{
    static thread_local std::optional<operation> refused;
    if (!succeeded && refused == which) sched_yield();
    refused = succeeded ? std::nullopt : std::optional(which);
}

template <operation Id, typename Result, typename... Arguments>
auto observed_call(Result (*function)(Arguments...), std::uint64_t number, Arguments... arguments)
{
    using stored = std::conditional_t<std::is_void_v<Result>, no_result, Result>;
    using tuple = std::tuple<Arguments...>;
    const tuple seen(arguments...);
    call_faults<Id, stored, Arguments...> faults(number, seen);
    std::optional<call_trace<Id, tuple>> line;
    std::optional<census_rules<Id, tuple>> account;
    std::optional<record::call> recorded;

    if (trace::wanted()) line.emplace(seen).before();
    if (census::wanted()) account.emplace(seen).before();
    if (record::wanted()) recorded.emplace(static_cast<sequence::operation>(Id), record::raw(seen));
    faults.before();
    if (faults.work) faults.result = call<Result>(function, faults.passed);
    faults.after();

    const bool succeeded = has_succeeded<Id>(faults.result);
    if (account && succeeded) account->after(faults.result);
    if (recorded) recorded->returned(widened(faults.result));
    if (line) line->after(number, faults.result, succeeded);
    yield_if_refused_again(Id, succeeded);
    return faults.result;
}

template <operation Id, typename Result, typename... Arguments>
Result forward(const void *return_address, Arguments... arguments)
{
    static constinit std::atomic<void *> found{nullptr};
    auto *function =
        reinterpret_cast<Result (*)(Arguments...)>(next_function(found, info(Id).function));
    if (!is_own_code(return_address)) return function(arguments...);

    const std::uint64_t number = count_call(Id);
    if (faults_of(Id).empty() && !trace::wanted() && !census::wanted() && !record::wanted())
        return function(arguments...);
    return static_cast<Result>(observed_call<Id>(function, number, arguments...));
}

} // namespace

} // namespace keltrace

#define KELTRACE_TYPE(kind) keltrace::argument_type<keltrace::argument_kind::kind>
#define KELTRACE_RESULT(kind) keltrace::result_type<keltrace::result_kind::kind>
#define KELTRACE_FORWARD(f, r, ...)                                                                \
    {                                                                                              \
        return keltrace::forward<keltrace::operation::f, KELTRACE_RESULT(r)>(                      \
            __builtin_return_address(0) __VA_OPT__(, ) __VA_ARGS__);                               \
    }

#define OPERATION_0(f, r) KELTRACE_RESULT(r) f(void) KELTRACE_FORWARD(f, r)
#define OPERATION_1(f, r, k1, n1)                                                                  \
    KELTRACE_RESULT(r) f(KELTRACE_TYPE(k1) n1) KELTRACE_FORWARD(f, r, n1)
#define OPERATION_2(f, r, k1, n1, k2, n2)                                                          \
    KELTRACE_RESULT(r)                                                                             \
    f(KELTRACE_TYPE(k1) n1, KELTRACE_TYPE(k2) n2) KELTRACE_FORWARD(f, r, n1, n2)
#define OPERATION_3(f, r, k1, n1, k2, n2, k3, n3)                                                  \
    KELTRACE_RESULT(r)                                                                             \
    f(KELTRACE_TYPE(k1) n1, KELTRACE_TYPE(k2) n2, KELTRACE_TYPE(k3) n3)                            \
        KELTRACE_FORWARD(f, r, n1, n2, n3)
#define OPERATION_4(f, r, k1, n1, k2, n2, k3, n3, k4, n4)                                          \
    KELTRACE_RESULT(r)                                                                             \
    f(KELTRACE_TYPE(k1) n1, KELTRACE_TYPE(k2) n2, KELTRACE_TYPE(k3) n3, KELTRACE_TYPE(k4) n4)      \
        KELTRACE_FORWARD(f, r, n1, n2, n3, n4)
#define OPERATION_5(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5)                                  \
    KELTRACE_RESULT(r)                                                                             \
    f(KELTRACE_TYPE(k1) n1, KELTRACE_TYPE(k2) n2, KELTRACE_TYPE(k3) n3, KELTRACE_TYPE(k4) n4,      \
      KELTRACE_TYPE(k5) n5) KELTRACE_FORWARD(f, r, n1, n2, n3, n4, n5)
#define OPERATION_6(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6)                          \
    KELTRACE_RESULT(r)                                                                             \
    f(KELTRACE_TYPE(k1) n1, KELTRACE_TYPE(k2) n2, KELTRACE_TYPE(k3) n3, KELTRACE_TYPE(k4) n4,      \
      KELTRACE_TYPE(k5) n5, KELTRACE_TYPE(k6) n6) KELTRACE_FORWARD(f, r, n1, n2, n3, n4, n5, n6)
#define OPERATION_7(f, r, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6, k7, n7)                  \
    KELTRACE_RESULT(r)                                                                             \
    f(KELTRACE_TYPE(k1) n1, KELTRACE_TYPE(k2) n2, KELTRACE_TYPE(k3) n3, KELTRACE_TYPE(k4) n4,      \
      KELTRACE_TYPE(k5) n5, KELTRACE_TYPE(k6) n6, KELTRACE_TYPE(k7) n7)                            \
        KELTRACE_FORWARD(f, r, n1, n2, n3, n4, n5, n6, n7)
#include "kelapi/operations.def"

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
    if constexpr (returned.form == form::error) {
        return result == 0 || result == KEL_HIGH_THRESHOLD_REACHED ||
               result == KEL_LOW_THRESHOLD_REACHED;
    } else if constexpr (returned.form == form::handle) {
        return result != 0;
    } else {
        return true;
    }
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
// to wait for its processor. One that has tried for long goes round: it is to be seen computing.
void yield_if_refused_again(operation which, bool succeeded)
{
    constexpr unsigned PATIENCE = 100;
    static thread_local std::optional<operation> refused;
    static thread_local unsigned tries = 0;
    tries = !succeeded && refused == which ? tries + 1 : 0;
    if (tries > 0 && tries < PATIENCE) sched_yield();
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

    if (trace::wanted() || census::calls_wanted()) line.emplace(seen).before();
    if (census::wanted()) account.emplace(seen).before();
    if (record::wanted()) recorded.emplace(static_cast<sequence::operation>(Id), record::raw(seen));
    faults.before();
    if (faults.work) faults.result = call<Result>(function, faults.passed);
    faults.after();

    const bool succeeded = has_succeeded<Id>(faults.result);
    if (account && succeeded) account->after(faults.result, line ? line->text() : "");
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
    if (faults_of(Id).empty() && !trace::wanted() && !census::wanted() && !record::wanted()) {
        return function(arguments...);
    }
    return static_cast<Result>(observed_call<Id>(function, number, arguments...));
}

} // namespace

} // namespace keltrace

#define RESULT(kind) keltrace::result_type<keltrace::result_kind::kind>
#define PARAMETER(kind, name) keltrace::argument_type<keltrace::argument_kind::kind> name
#define NAME(kind, name) name
#define OPERATION(function, result, ...)                                                           \
    RESULT(result) function(FOR_EACH_ARGUMENT(PARAMETER, __VA_ARGS__))                             \
    {                                                                                              \
        return keltrace::forward<keltrace::operation::function, RESULT(result)>(                   \
            __builtin_return_address(0) __VA_OPT__(, ) FOR_EACH_ARGUMENT(NAME, __VA_ARGS__));      \
    }
#include "kelapi/operations.def"

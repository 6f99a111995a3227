// SPDX-License-Identifier: MIT
//
// The trace line of one call of the library: its arguments before, its result and what it stored
// after the call, and the faults that were meant for it.
#pragma once

#include <algorithm>
#include <tuple>
#include <utility>

#include "tools/keltrace/operations.h"
#include "tools/keltrace/show.h"
#include "tools/keltrace/state.h"
#include "tools/keltrace/trace.h"
#include "tools/keltrace/widths.h"

namespace keltrace {

inline void show_faults(trace_line &line, operation which, std::uint64_t number)
{
    for (const fault *each : faults_of(which)) {
        if (each->matches(number)) line.add(" !%s", each->text.c_str());
    }
}

template <operation Id, typename Arguments> class call_trace {
public:
    explicit call_trace(const Arguments &arguments) : arguments_(arguments) {}

    void before()
    {
        trace::begin(line_, Id);
        line_.open_list("(");
        show_passed(indices());
        line_.close_list(")");
        trace::started(line_, Id);
    }

    template <typename Result> void after(std::uint64_t number, Result result, bool succeeded)
    {
        constexpr auto returned = info(info(Id).result);
        if constexpr (returned.form != form::none) {
            line_.add(" = ");
            show_number(line_, returned.form, widened(result));
        }
        show_stored(succeeded, indices());
        show_faults(line_, Id, number);
        trace::returned(line_);
    }

    // Before `after` the call as it was made.
    const char *text() const { return line_.text(); }

private:
    static constexpr auto indices() { return std::make_index_sequence<info(Id).argument_count>(); }

    template <std::size_t... I> void show_passed(std::index_sequence<I...>)
    {
        (show_passed<I>(std::get<I>(arguments_)), ...);
    }

    template <std::size_t I, typename Value> void show_passed(Value value)
    {
        constexpr auto entry = info(Id).arguments[I];
        constexpr auto about = info(entry.kind);
        line_.next_item();
        line_.add("%s=", entry.name);
        if constexpr (!std::is_pointer_v<Value>) {
            show_number(line_, about.form, widened(value));
        } else if (value == nullptr) {
            line_.add("null");
        } else if constexpr (about.direction == direction::out) {
            line_.add("&");
        } else if constexpr (entry.kind == argument_kind::source) {
            show_bytes(line_, value, std::get<I + 1>(arguments_));
        } else {
            show_named(about.form, value);
        }
    }

    // What was stored. An operation that failed stores nothing but its error and a count.
    template <std::size_t... I>
    void show_stored([[maybe_unused]] bool succeeded, std::index_sequence<I...>)
    {
        const std::size_t before = line_.length();
        line_.open_list(" [");
        const std::size_t opened = line_.length();
        (show_stored<I>(succeeded, std::get<I>(arguments_)), ...);
        if (line_.length() == opened) {
            line_.truncate(before);
        } else {
            line_.close_list("]");
        }
    }

    template <std::size_t I, typename Value> void show_stored(bool succeeded, Value value)
    {
        constexpr auto entry = info(Id).arguments[I];
        constexpr auto about = info(entry.kind);
        if constexpr (std::is_pointer_v<Value> && about.direction != direction::in) {
            constexpr bool always =
                entry.kind == argument_kind::out_error || about.direction == direction::inout;
            if (value == nullptr || !(succeeded || always)) return;
            line_.next_item();
            line_.add("%s=", entry.name);
            if constexpr (entry.kind == argument_kind::destination) {
                const std::uint32_t *length = std::get<I + 1>(arguments_);
                show_bytes(line_, value, length == nullptr ? 0 : *length);
            } else {
                show_named(about.form, value);
            }
        }
    }

    template <typename Value> void show_named(form shown, Value *target)
    {
        if constexpr (std::is_scalar_v<Value> && !std::is_same_v<Value, const char>) {
            show_number(line_, shown, widened(*target));
        } else {
            show_target(line_, target);
        }
    }

    trace_line line_;
    const Arguments &arguments_;
};

} // namespace keltrace

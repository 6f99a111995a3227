// SPDX-License-Identifier: MIT
//
// The faults asked for, separated by blanks (reference/faults/language.h). Parsing refuses what
// could never take effect, so that a plan that is accepted means what it says.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reference/faults/language.h"
#include "tools/keltrace/operations.h"

namespace keltrace {

enum class action {
    error,         // not done, and refused
    lost,          // not done, and success pretended
    after,         // done, and refused
    result,        // done, and another result
    set_argument,  // done, and a value stored through an argument
    add_argument,  // done, and a value added to what an argument names
    pass_argument, // another value passed
    flip,          // one bit of the copied data changed
    fail,          // no memory
    add,           // another time of day
    delay,
    nothing
};

struct fault {
    std::string text;
    kel_reference::written_fault written; // of that text
    bool of_library = false;              // the library behind the shim carries it out
    operation target{};
    action what = action::nothing;
    std::size_t argument = 0;        // from 0
    std::optional<std::size_t> word; // of a record: its 32-bit words, from 0
    std::uint64_t value = 0;         // two's complement where signed

    std::atomic<std::uint64_t> hits{0};  // calls that it was meant for
    std::atomic<std::uint64_t> fired{0}; // calls that it changed

    bool matches(std::uint64_t call) const { return written.matches(call); }
    std::int64_t signed_value() const { return static_cast<std::int64_t>(value); }
};

struct fault_plan {
    std::deque<fault> faults; // as given
    std::array<std::vector<fault *>, OPERATION_COUNT> by_operation;
};

// Takes a fault that is none of the shim's. Returns null, or what is wrong with it.
using offer_to_library = const char *(const char *text);

// Reads the list into an empty plan; where the library has faults of its own, those that the shim
// does not know are offered to it. Returns what is wrong, or an empty text.
std::string parse_plan(std::string_view list, fault_plan &plan, offer_to_library *offer = nullptr);

} // namespace keltrace

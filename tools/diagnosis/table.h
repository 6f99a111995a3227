// SPDX-License-Identifier: MIT
//
// The table of known faults: how cases end with a library that has one fault, and which operations
// each case calls.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace diagnosis {

enum class ending : std::uint8_t {
    good, // passed or ignored
    fail,
    crash,
    hang,
    stopped, // in logs: crash or hang, the log tells no more
};

// How a case ended, with what it said.
struct outcome {
    diagnosis::ending ending = ending::good;
    std::string message{};           // of a fail; of a crash the signal's name
    std::set<std::string> printed{}; // lines that the case printed itself
    // The first call that differs from the contract, as explain finds it; empty: not asked for.
    std::string call{};

    auto operator<=>(const outcome &) const = default;
};

// By the case's name; a case may end in several ways from run to run.
using outcomes = std::map<std::string, std::set<outcome>, std::less<>>;

struct known_fault {
    std::string name; // operation:kind
    std::string text; // in words
    // Those that do not end as with a right library, and those whose calls tell it from others.
    outcomes cases{};
};

struct table {
    outcomes right{}; // cases that print lines with a right library, too
    std::map<std::string, std::vector<std::string>, std::less<>> operations{}; // of each case
    std::vector<known_fault> faults{};
};

// Throws tools::usage_error, with the line, when the text is no such table.
table table_of(std::string_view text, const std::string &name);
table read_table(const std::string &path);
std::string to_text(const table &whole);

// The table that is installed with this program.
std::string default_table();

// How the case can end with the fault; with null: with a right library.
const std::set<outcome> &endings_of(const table &whole, const known_fault *fault,
                                    std::string_view case_name);

// "fail: message", "crash SIGSEGV", "hang", "good".
std::string text_of(const outcome &one);

} // namespace diagnosis

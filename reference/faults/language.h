// SPDX-License-Identifier: MIT
//
// How faults are written, the shim's and the library's alike:
//
//   <target>#<n>[+]:<action>
//
// The n-th call of the target, counted from 1, goes wrong; with `+` all from that one on. A
// target is an operation without `kel_`, a function of the system, or a part of the library.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace kel_reference {

struct written_fault {
    std::string_view target;
    std::uint64_t first = 0;
    bool onward = false;
    std::string_view action;

    bool matches(std::uint64_t call) const { return onward ? call >= first : call == first; }
};

// Takes the text apart. Returns null, or what is wrong with it.
inline const char *read_fault(std::string_view text, written_fault &fault)
{
    const auto mark = text.find('#');
    if (mark == text.npos) return "no call number: <operation>#<n>[+]:<action>";
    fault.target = text.substr(0, mark);

    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + mark + 1, end, fault.first);
    if (error != std::errc{} || fault.first == 0) return "bad call number";
    std::string_view rest(stop, static_cast<std::size_t>(end - stop));
    fault.onward = rest.starts_with('+');
    if (fault.onward) rest.remove_prefix(1);
    if (!rest.starts_with(':')) return "no action: <operation>#<n>[+]:<action>";
    fault.action = rest.substr(1);
    return nullptr;
}

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// The output formats of a command as a table: its help, its errors and the choice come from it.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "tools/common/usage_error.h"

namespace tavor_run {

template <typename Maker> struct output_format {
    std::string_view name;
    Maker make;
};

// "text, junit, tap"
template <typename Table> std::string names_in(const Table &formats)
{
    std::string names;
    for (const auto &each : formats) {
        names += (names.empty() ? "" : ", ") + std::string(each.name);
    }
    return names;
}

// A usage error with the names when there is none.
template <typename Table> const auto &format_named(const Table &formats, std::string_view name)
{
    const auto found = std::find_if(formats.begin(), formats.end(),
                                    [&](const auto &each) { return each.name == name; });
    if (found == formats.end()) {
        throw tools::usage_error("no such format: " + std::string(name) + " (" + names_in(formats) +
                                 ")");
    }
    return *found;
}

} // namespace tavor_run

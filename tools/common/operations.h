// SPDX-License-Identifier: MIT
//
// The list of libkel's operations as data.
#pragma once

#include <span>
#include <string_view>
#include <vector>

namespace tools {

struct argument_kind {
    std::string_view name;
    std::string_view type;
    std::string_view direction; // in, out, inout
    std::string_view object;
    std::string_view effect; // keeps, obtains, releases, gives, replaces
    std::string_view presence;
};

struct argument {
    const argument_kind *kind;
    std::string_view name;
};

struct operation {
    std::string_view name; // without the kel_ prefix
    std::string_view result;
    std::vector<argument> arguments;
};

// In the order of the interface.
std::span<const operation> all_operations();

// Null when there is none of that name; the name is given without the kel_ prefix.
const operation *find_operation(std::string_view name);

// Whether success means that an object was obtained, released, handed over or replaced.
bool changes_ownership(const operation &which);

} // namespace tools

// SPDX-License-Identifier: MIT
//
// What a sequence's variables stand for in one library: the way from names to numbers and back.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "tools/sequence/sequence.h"

namespace sequence {

// An address belongs to an object: the distances from the first one seen there mean something.
struct address_space {
    variable object = NO_VARIABLE;
    operation kind = 0;
    int parameter = 0;
    std::size_t entry = 0;

    auto operator<=>(const address_space &) const = default;
};

class bindings {
public:
    // The number of a scalar; 0 for a variable that nothing has been bound to.
    std::uint64_t number_of(const scalar &named) const;

    // The variable that stands for the number, else the number itself.
    scalar name_of(role what, std::uint64_t number) const;

    bool is_known(role what, std::uint64_t number) const;

    void bind(variable name, role what, std::uint64_t number);

    // The address by its distance from the space's first one; none when there is none yet.
    std::optional<scalar> name_of(const address_space &space, std::uint64_t address) const;
    void bind(variable name, const address_space &space, std::uint64_t address);

private:
    static constexpr std::size_t ROLES = static_cast<std::size_t>(role::program_address) + 1;

    std::vector<std::uint64_t> numbers_;
    std::array<std::unordered_map<std::uint64_t, variable>, ROLES> names_;
    std::map<address_space, variable> bases_;
};

} // namespace sequence

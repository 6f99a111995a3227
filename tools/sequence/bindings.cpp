// SPDX-License-Identifier: MIT
#include "tools/sequence/bindings.h"

namespace sequence {

namespace {

constexpr role OBJECT_ROLES[] = {role::tag, role::bufgroup};

} // namespace

std::uint64_t bindings::number_of(const scalar &named) const
{
    if (named.name < 0) return named.number;
    const auto index = static_cast<std::size_t>(named.name);
    return (index < numbers_.size() ? numbers_[index] : 0) + named.number;
}

bool bindings::is_known(role what, std::uint64_t number) const
{
    return names_[static_cast<std::size_t>(what)].contains(number);
}

scalar bindings::name_of(role what, std::uint64_t number) const
{
    if (number == 0) return {};
    if (what == role::object) {
        for (const role each : OBJECT_ROLES) {
            if (is_known(each, number)) return name_of(each, number);
        }
        return {number};
    }
    const auto &known = names_[static_cast<std::size_t>(what)];
    const auto found = known.find(number);
    return found == known.end() ? scalar{number} : scalar{0, found->second};
}

void bindings::bind(variable name, role what, std::uint64_t number)
{
    const auto index = static_cast<std::size_t>(name);
    if (index >= numbers_.size()) numbers_.resize(index + 1);
    numbers_[index] = number;
    if (number != 0) names_[static_cast<std::size_t>(what)][number] = name;
}

std::optional<scalar> bindings::name_of(const address_space &space, std::uint64_t address) const
{
    const auto base = bases_.find(space);
    if (base == bases_.end()) return std::nullopt;
    return scalar{address - numbers_[static_cast<std::size_t>(base->second)], base->second};
}

void bindings::bind(variable name, const address_space &space, std::uint64_t address)
{
    bind(name, role::address, address);
    bases_[space] = name;
}

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// kelapi/operations.def read into tables.
#include "tools/common/operations.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace tools {

namespace {

constexpr auto ARGUMENT_KINDS = std::to_array<argument_kind>({
#define ARGUMENT_KIND(kind, type, direction, form, object, effect, presence)                       \
    {#kind, #type, #direction, #object, #effect, #presence},
#include "kelapi/operations.def"
});

const argument_kind *kind_named(std::string_view name)
{
    const auto *found = std::find_if(ARGUMENT_KINDS.begin(), ARGUMENT_KINDS.end(),
                                     [&](const argument_kind &kind) { return kind.name == name; });
    if (found == ARGUMENT_KINDS.end()) {
        throw std::logic_error("no such kind of argument: " + std::string(name));
    }
    return found;
}

// `words` holds kinds and names in turn.
operation described(std::string_view name, std::string_view result,
                    std::initializer_list<std::string_view> words)
{
    constexpr std::string_view PREFIX = "kel_";
    operation described{name.substr(PREFIX.size()), result, {}};
    for (const auto *word = words.begin(); word != words.end(); word += 2) {
        described.arguments.push_back({kind_named(word[0]), word[1]});
    }
    return described;
}

std::vector<operation> read_operations()
{
    return {
#define OPERATION_0(operation, result) described(#operation, #result, {}),
#define OPERATION_1(operation, result, k1, n1) described(#operation, #result, {#k1, #n1}),
#define OPERATION_2(operation, result, k1, n1, k2, n2)                                             \
    described(#operation, #result, {#k1, #n1, #k2, #n2}),
#define OPERATION_3(operation, result, k1, n1, k2, n2, k3, n3)                                     \
    described(#operation, #result, {#k1, #n1, #k2, #n2, #k3, #n3}),
#define OPERATION_4(operation, result, k1, n1, k2, n2, k3, n3, k4, n4)                             \
    described(#operation, #result, {#k1, #n1, #k2, #n2, #k3, #n3, #k4, #n4}),
#define OPERATION_5(operation, result, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5)                     \
    described(#operation, #result, {#k1, #n1, #k2, #n2, #k3, #n3, #k4, #n4, #k5, #n5}),
#define OPERATION_6(operation, result, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6)             \
    described(#operation, #result, {#k1, #n1, #k2, #n2, #k3, #n3, #k4, #n4, #k5, #n5, #k6, #n6}),
#define OPERATION_7(operation, result, k1, n1, k2, n2, k3, n3, k4, n4, k5, n5, k6, n6, k7, n7)     \
    described(#operation, #result,                                                                 \
              {#k1, #n1, #k2, #n2, #k3, #n3, #k4, #n4, #k5, #n5, #k6, #n6, #k7, #n7}),
#include "kelapi/operations.def"
    };
}

} // namespace

std::span<const operation> all_operations()
{
    static const std::vector<operation> OPERATIONS = read_operations();
    return OPERATIONS;
}

const operation *find_operation(std::string_view name)
{
    for (const operation &candidate : all_operations()) {
        if (candidate.name == name) {
            return &candidate;
        }
    }
    return nullptr;
}

bool changes_ownership(const operation &which)
{
    const auto changes = [](const argument &passed) { return passed.kind->effect != "keeps"; };
    return which.result.starts_with("new_") ||
           std::any_of(which.arguments.begin(), which.arguments.end(), changes);
}

} // namespace tools

// SPDX-License-Identifier: MIT
#include "tools/sequence/constants.h"

#include <array>

#include "kelapi/kel.h"
#include "tools/common/error_names.h"

namespace sequence {

namespace {

using interface::form;

struct constant {
    form shown;
    std::uint64_t number;
    const char *name;
};

constexpr auto CONSTANTS = std::to_array<constant>({
    {form::role, KEL_ROLE_ALWAYS, "ALWAYS"},
    {form::role, KEL_ROLE_ACTIVE, "ACTIVE"},
    {form::role, KEL_ROLE_STANDBY, "STANDBY"},
    {form::interface_kind, IF_INPUT, "IF_INPUT"},
    {form::interface_kind, IF_OUTPUT, "IF_OUTPUT"},
    {form::interface_kind, IF_INPUT_L2_PHYSICAL, "IF_INPUT_L2_PHYSICAL"},
    {form::interface_kind, IF_INPUT_L2_LOGICAL, "IF_INPUT_L2_LOGICAL"},
    {form::offset_kind, OFFSET_DATA, "OFFSET_DATA"},
    {form::offset_kind, OFFSET_NETWORK, "OFFSET_NETWORK"},
    {form::offset_kind, OFFSET_TRANSPORT, "OFFSET_TRANSPORT"},
    {form::offset_kind, OFFSET_APP, "OFFSET_APP"},
});

} // namespace

const char *constant_name(form shown, std::uint64_t number)
{
    if (shown == form::error) return tools::known_error_name(number);
    for (const constant &each : CONSTANTS) {
        if (each.shown == shown && each.number == number) return each.name;
    }
    return nullptr;
}

std::optional<std::uint64_t> constant_number(std::string_view name)
{
    for (const constant &each : CONSTANTS) {
        if (name == each.name) return each.number;
    }
    if (const std::uint32_t error = tools::error_number(name)) return error;
    return std::nullopt;
}

} // namespace sequence

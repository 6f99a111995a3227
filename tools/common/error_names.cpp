// SPDX-License-Identifier: MIT
//
// Error names from the C library, which knows them all.
#include "tools/common/error_names.h"

#include <cstring>

#include "kelapi/types.h"

namespace tools {

namespace {

constexpr std::uint32_t LAST_ERROR = 133; // of Linux's numbering

} // namespace

const char *known_error_name(std::uint64_t error)
{
    if (error == KEL_HIGH_THRESHOLD_REACHED) return "KEL_HIGH_THRESHOLD_REACHED";
    if (error == KEL_LOW_THRESHOLD_REACHED) return "KEL_LOW_THRESHOLD_REACHED";
    if (error == 0 || error > LAST_ERROR) return nullptr;
    return strerrorname_np(static_cast<int>(error));
}

std::string error_name(std::uint64_t error)
{
    const char *name = known_error_name(error);
    return name ? name : std::to_string(error);
}

std::uint32_t error_number(std::string_view name)
{
    for (const std::uint32_t notice : {KEL_HIGH_THRESHOLD_REACHED, KEL_LOW_THRESHOLD_REACHED}) {
        if (name == known_error_name(notice)) return notice;
    }
    for (std::uint32_t error = 1; error <= LAST_ERROR; error++) {
        const char *known = known_error_name(error);
        if (known && name == known) return error;
    }
    return 0;
}

} // namespace tools

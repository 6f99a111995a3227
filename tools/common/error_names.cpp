// SPDX-License-Identifier: MIT
//
// Error names from the C library, which knows them all.
#include "tools/common/error_names.h"

#include <cstdlib>
#include <cstring>

#include "kelapi/types.h"

namespace tools {

namespace {

constexpr int LAST_ERROR = 133; // of Linux's numbering

} // namespace

std::string error_name(unsigned error)
{
    if (error == KEL_HIGH_THRESHOLD_REACHED) {
        return "KEL_HIGH_THRESHOLD_REACHED";
    }
    if (error == KEL_LOW_THRESHOLD_REACHED) {
        return "KEL_LOW_THRESHOLD_REACHED";
    }
    const char *name = error <= LAST_ERROR ? strerrorname_np(static_cast<int>(error)) : nullptr;
    return name && error != 0 ? name : std::to_string(error);
}

int error_number(const std::string &name)
{
    if (!name.empty() && name[0] >= '0' && name[0] <= '9') {
        return static_cast<int>(std::strtoul(name.c_str(), nullptr, 0));
    }
    for (unsigned error : {KEL_HIGH_THRESHOLD_REACHED, KEL_LOW_THRESHOLD_REACHED}) {
        if (name == error_name(error)) {
            return static_cast<int>(error);
        }
    }
    for (int error = 1; error <= LAST_ERROR; error++) {
        const char *known = strerrorname_np(error);
        if (known && name == known) {
            return error;
        }
    }
    return 0;
}

} // namespace tools

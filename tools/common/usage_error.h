// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace tools {

// Something that the user asked for and that cannot be.
class usage_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace tools

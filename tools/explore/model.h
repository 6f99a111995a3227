// SPDX-License-Identifier: MIT
//
// The reference library in this process, twice: the model that says what is right, and its shadow,
// which makes the same calls with other bytes in memory that nobody has written. Data in which the
// two differ means nothing.
#pragma once

#include <cstdint>
#include <string>

#include "kelapi/kel.h"
#include "tools/sequence/library.h"
#include "tools/sequence/oracle.h"

namespace explore {

// A library's operations by name and type, for whoever wants to know something of its state.
struct kel_functions {
#define OPERATION(name, ...) decltype(&(::name)) name;
#include "kelapi/operations.def"
};

class model {
public:
    // Throws tools::usage_error when the library cannot be loaded.
    model(const std::string &reference, const sequence::configuration &profile);

    const sequence::library &right() const { return right_; }
    const sequence::library &shadow() const { return shadow_; }
    const kel_functions &asked() const { return asked_; }

private:
    sequence::library right_;
    std::string shadow_path_;
    sequence::library shadow_;
    kel_functions asked_;
};

} // namespace explore

// SPDX-License-Identifier: MIT
//
// What the contract says of an operation: the comment at its declaration.
#pragma once

#include <string>
#include <string_view>

namespace explain {

// "kelapi/metadata.h: Stores the offset of kind `kind`..."; empty when there is none.
std::string clause_of(std::string_view function);

} // namespace explain

// SPDX-License-Identifier: MIT
//
// The elements of reserved groups, with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

std::uint32_t elements_left(const bufgroup_object &group);
// The address behind an element's head room; null when none is left.
std::byte *take_element(bufgroup_object &group);
// `within` is any address in the element.
void give_back_element(bufgroup_object &group, std::byte *within);
void release_elements(state &library, bufgroup_object &group);

} // namespace kel_reference

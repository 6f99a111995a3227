// SPDX-License-Identifier: MIT
//
// What the region device does with a request, apart from being a device.
#pragma once

namespace kel_reference {

// Carries out a request on the record at `argument`, an address in the caller's memory that
// may be anything. Returns 0 or why it failed.
int region_request(unsigned long request, void *argument);

} // namespace kel_reference

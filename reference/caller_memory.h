// SPDX-License-Identifier: MIT
//
// Access to addresses that may not be accessible: whatever they are, the process goes on.
#pragma once

#include <cstddef>

namespace kel_reference {

// Copies `size` bytes, at most a page. False when the address cannot be read or written.
bool read_caller_memory(const void *address, void *destination, std::size_t size);
bool write_caller_memory(void *address, const void *source, std::size_t size);

} // namespace kel_reference

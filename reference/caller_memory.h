// SPDX-License-Identifier: MIT
//
// Access to addresses that may not be accessible: whatever they are, the process goes on.
#pragma once

#include <cstddef>
#include <cstring>

#include "reference/options.h"

namespace kel_reference {

// Copies `size` bytes, at most a page. False when the address cannot be read or written.
bool read_caller_memory(const void *address, void *destination, std::size_t size);
bool write_caller_memory(void *address, const void *source, std::size_t size);

// Ends a call that has read the record, which may be null. Only a library whose declarations have
// no const may use it up, but its callers cannot tell.
template <class Record> void record_was_read(const Record *record)
{
    constexpr int USED_UP = 0xa5;
    if (!record || !chosen_options().records_are_used_up) return;
    std::memset(const_cast<Record *>(record), USED_UP, sizeof *record);
}

} // namespace kel_reference

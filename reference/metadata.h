// SPDX-License-Identifier: MIT
//
// What packets need of their metadata, with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Sets the fields of a packet just obtained, all of them 0, to what they begin with.
void set_fresh_metadata(packet_metadata &metadata);

// Whether `kind` is one of the offset kinds that exist.
bool is_offset_kind(std::uint32_t kind);

// How the offsets but OFFSET_DATA follow a change at the front of the data.
void raise_offsets(packet_metadata &metadata, std::uint32_t size);
void lower_offsets(packet_metadata &metadata, std::uint32_t size);

} // namespace kel_reference

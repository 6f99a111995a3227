// SPDX-License-Identifier: MIT
//
// What packets need of TLVs, with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Whether TLVs of that size are offered.
bool is_tlv_size(std::uint32_t size);

// Allocates a TLV at the end of the packet's list: 0, EINVAL, EEXIST, ENOSPC or ENOMEM.
std::uint32_t allocate_tlv(packet_object &packet, std::uint32_t id, std::uint32_t size);

// Gives the packet copies of the source's TLVs: 0 or ENOMEM.
std::uint32_t copy_tlvs(packet_object &packet, const packet_object &source);

} // namespace kel_reference

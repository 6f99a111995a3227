// SPDX-License-Identifier: MIT
//
// TLVs. Arguments are checked before the id is looked up.

#include "reference/tlv.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "reference/operations.h"
#include "reference/options.h"

namespace kel_reference {

namespace {

tlv_block *find_tlv(packet_object &packet, std::uint32_t id)
{
    const auto found = std::ranges::find(packet.tlvs, id, &tlv_block::id);
    return found == packet.tlvs.end() ? nullptr : &*found;
}

std::uint32_t size_of(const tlv_block &tlv)
{
    return static_cast<std::uint32_t>(tlv.data.size());
}

// Succeeds with the TLV of a valid packet; `error` is EINVAL or ENOENT otherwise.
tlv_block *find_on_packet(state &library, kel_packet packet, std::uint32_t id,
                          bool arguments_are_valid, std::uint32_t &error)
{
    packet_object *carrier = library.packets.find(packet);
    error = EINVAL;
    if (!carrier || !arguments_are_valid) return nullptr;
    tlv_block *found = find_tlv(*carrier, id);
    error = found ? 0 : ENOENT;
    return found;
}

// What a refused read returns. Only an unknown id is promised to leave the length.
std::uint32_t refuse_read(std::uint32_t error, std::uint32_t *length)
{
    if (length && error != ENOENT && chosen_options().refused_tlv_read_zeroes) *length = 0;
    return error;
}

std::uint32_t read_tlv(const tlv_block &tlv, void *destination, std::uint32_t &length)
{
    if (length < size_of(tlv)) return refuse_read(ENOSPC, &length);
    length = size_of(tlv);
    if (length) std::memcpy(destination, tlv.data.data(), length);
    return 0;
}

std::uint32_t write_tlv(tlv_block &tlv, const void *source, std::uint32_t length)
{
    if (length > size_of(tlv)) return ENOSPC;
    if (length) std::memcpy(tlv.data.data(), source, length);
    return 0;
}

bool is_within(std::uint16_t version, std::uint16_t lowest, std::uint16_t highest)
{
    return version >= lowest && version <= highest;
}

} // namespace

bool is_tlv_size(std::uint32_t size)
{
    return size <= chosen_options().tlv_size_max;
}

std::uint32_t allocate_tlv(packet_object &packet, std::uint32_t id, std::uint32_t size)
{
    if (!id) return EINVAL;
    if (!is_tlv_size(size)) return ENOSPC;
    if (find_tlv(packet, id)) return EEXIST;
    try {
        tlv_block made;
        made.id = id;
        made.version = static_cast<std::uint16_t>(chosen_options().first_tlv_version);
        made.data.assign(size, static_cast<std::byte>(chosen_options().first_tlv_byte));
        packet.tlvs.push_back(std::move(made));
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
    return 0;
}

std::uint32_t copy_tlvs(packet_object &packet, const packet_object &source)
{
    try {
        packet.tlvs = source.tlvs;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
    return 0;
}

uint32_t model::kel_tlv_alloc(state &library, kel_packet packet, uint32_t id, uint32_t size)
{
    packet_object *carrier = library.packets.find(packet);
    if (!carrier) return EINVAL;
    const std::uint32_t error = allocate_tlv(*carrier, id, size);
    return error == ENOSPC ? chosen_options().tlv_size_error : error;
}

uint32_t model::kel_tlv_free(state &library, kel_packet packet, uint32_t id)
{
    packet_object *carrier = library.packets.find(packet);
    if (!carrier) return EINVAL;
    const auto freed = std::ranges::find(carrier->tlvs, id, &tlv_block::id);
    if (freed == carrier->tlvs.end()) return ENOENT;
    carrier->tlvs.erase(freed);
    return 0;
}

uint32_t model::kel_tlv_getdata(state &library, kel_packet packet, uint32_t id, void *destination,
                                uint32_t *length)
{
    std::uint32_t error = 0;
    const tlv_block *read = find_on_packet(library, packet, id, destination && length, error);
    return read ? read_tlv(*read, destination, *length) : refuse_read(error, length);
}

uint32_t model::kel_tlv_setdata(state &library, kel_packet packet, uint32_t id, const void *source,
                                uint32_t length)
{
    std::uint32_t error = 0;
    tlv_block *written = find_on_packet(library, packet, id, source, error);
    return written ? write_tlv(*written, source, length) : error;
}

uint32_t model::kel_tlv_get_head(state &library, kel_packet packet, uint32_t *id)
{
    const packet_object *carrier = library.packets.find(packet);
    if (!carrier || !id) return EINVAL;
    *id = carrier->tlvs.empty() ? 0 : carrier->tlvs.front().id;
    return 0;
}

uint32_t model::kel_tlv_get_next(state &library, kel_packet packet, uint32_t *id)
{
    packet_object *carrier = library.packets.find(packet);
    if (!carrier || !id) return EINVAL;
    const tlv_block *found = find_tlv(*carrier, *id);
    if (!found) return *id ? chosen_options().tlv_unknown_next_error : ENOENT;
    *id = found == &carrier->tlvs.back() ? 0 : found[1].id;
    return 0;
}

uint32_t model::kel_tlv_version_set(state &library, kel_packet packet, uint32_t id,
                                    uint16_t version)
{
    std::uint32_t error = 0;
    tlv_block *written = find_on_packet(library, packet, id, version, error);
    if (written) written->version = version;
    return error;
}

uint32_t model::kel_tlv_version_get(state &library, kel_packet packet, uint32_t id,
                                    uint16_t *version)
{
    std::uint32_t error = 0;
    const tlv_block *read = find_on_packet(library, packet, id, version, error);
    if (read) *version = read->version;
    return error;
}

uint32_t model::kel_tlv_version_check(state &library, kel_packet packet, uint32_t id,
                                      uint32_t lowest_word, uint32_t highest_word)
{
    const auto lowest = static_cast<std::uint16_t>(lowest_word);
    const auto highest = static_cast<std::uint16_t>(highest_word);
    const bool is_range =
        highest && lowest <= highest && (lowest || chosen_options().version_check_from_zero);
    std::uint32_t error = 0;
    const tlv_block *checked = find_on_packet(library, packet, id, is_range, error);
    if (!checked) return error;
    return is_within(checked->version, lowest, highest) ? 0 : ERANGE;
}

uint32_t model::kel_tlv_set_versioned_data(state &library, kel_packet packet, uint32_t id,
                                           const void *source, uint32_t length, uint16_t version)
{
    std::uint32_t error = 0;
    tlv_block *written = find_on_packet(library, packet, id, source && version, error);
    if (!written) return error;
    if (length > size_of(*written)) return ENOSPC;
    written->version = version;
    return write_tlv(*written, source, length);
}

uint32_t model::kel_tlv_get_versioned_data(state &library, kel_packet packet, uint32_t id,
                                           void *destination, uint32_t *length,
                                           uint32_t lowest_word, uint32_t highest_word,
                                           uint16_t *version)
{
    const auto lowest = static_cast<std::uint16_t>(lowest_word);
    const auto highest = static_cast<std::uint16_t>(highest_word);
    const std::uint16_t limit = highest ? highest : UINT16_MAX;
    std::uint32_t error = 0;
    const tlv_block *read =
        find_on_packet(library, packet, id, destination && length && lowest <= limit, error);
    if (!read) return refuse_read(error, length);
    if (!is_within(read->version, lowest, limit)) return refuse_read(ERANGE, length);
    error = read_tlv(*read, destination, *length);
    if (!error && version) *version = read->version;
    return error;
}

} // namespace kel_reference

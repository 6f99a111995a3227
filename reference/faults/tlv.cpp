// SPDX-License-Identifier: MIT
//
// Faults of TLVs.

#include <algorithm>
#include <cerrno>

#include "reference/faults/catalogue.h"
#include "reference/tlv.h"

namespace kel_reference::faults {

namespace {

// The TLV; one that nobody else sees where there is none.
tlv_block &tlv_of(state &library, kel_packet packet, std::uint32_t id)
{
    auto &tlvs = named<packet_object>(library, packet).tlvs;
    const auto found = std::ranges::find(tlvs, id, &tlv_block::id);
    static tlv_block &nobody = *new tlv_block;
    return found == tlvs.end() ? nobody : *found;
}

void add_allocating_faults(catalogue &faults)
{
    faults.add<kel_tlv_alloc>(
        "twice", "an id in use is allocated again",
        [](auto right, state &library, kel_packet packet, uint32_t id, uint32_t size) {
            auto &tlvs = named<packet_object>(library, packet).tlvs;
            const auto used = std::ranges::find(tlvs, id, &tlv_block::id) - tlvs.begin();
            const bool is_used = used < std::ssize(tlvs);
            const auto at = static_cast<std::size_t>(used);
            if (is_used) tlvs[at].id = 0;
            const std::uint32_t error = right(library, packet, id, size);
            if (is_used) tlvs[at].id = id;
            return error;
        });
    faults.add_before<kel_tlv_alloc>("one_short", "the TLV is one byte short",
                                     [](state &, kel_packet, uint32_t, uint32_t &size) {
                                         if (size && is_tlv_size(size)) size--;
                                     });
    faults.add_before<kel_get_packet_with_tlv>("tlv_one_short", "the TLV is one byte short",
                                               [](state &, kel_client, kel_bufgroup, uint32_t,
                                                  uint8_t, uint32_t, uint32_t &size, uint32_t *) {
                                                   if (size && is_tlv_size(size)) size--;
                                               });
    faults.add_before<kel_get_pkthdr_with_tlv>("tlv_one_short", "the TLV is one byte short",
                                               [](state &, kel_client, uint32_t, uint32_t &size) {
                                                   if (size && is_tlv_size(size)) size--;
                                               });
    faults.add_after<kel_tlv_alloc>("in_front", "a new TLV comes first",
                                    [](state &library, kel_packet packet, uint32_t, uint32_t) {
                                        auto &tlvs = library.packets.find(packet)->tlvs;
                                        std::rotate(tlvs.begin(), tlvs.end() - 1, tlvs.end());
                                    });
}

void add_freeing_faults(catalogue &faults)
{
    faults.add<kel_tlv_free>("damages_neighbour", "the data of the TLV behind it is cleared",
                             [](auto right, state &library, kel_packet packet, uint32_t id) {
                                 auto &tlvs = named<packet_object>(library, packet).tlvs;
                                 const auto at =
                                     std::ranges::find(tlvs, id, &tlv_block::id) - tlvs.begin();
                                 const std::uint32_t error = right(library, packet, id);
                                 if (error || tlvs.empty()) return error;
                                 const auto neighbour = std::min<std::size_t>(
                                     static_cast<std::size_t>(at), tlvs.size() - 1);
                                 std::ranges::fill(tlvs[neighbour].data, std::byte{0});
                                 return error;
                             });
    faults.add_after<kel_tlv_free>("frees_all", "all TLVs of the packet are freed",
                                   [](state &library, kel_packet packet, uint32_t) {
                                       library.packets.find(packet)->tlvs.clear();
                                   });
}

void add_data_faults(catalogue &faults)
{
    faults.add<kel_tlv_setdata, kel_tlv_set_versioned_data>(
        "one_short", "the last byte is not written",
        [](auto right, state &library, kel_packet packet, uint32_t id, const void *source,
           uint32_t length, auto... version) {
            const auto size = tlv_of(library, packet, id).data.size();
            const std::uint32_t less = length && length <= size ? length - 1 : length;
            return right(library, packet, id, source, less, version...);
        });
    faults.add_before<kel_tlv_setdata>(
        "first_tlv", "the data goes to the packet's first TLV",
        [](state &library, kel_packet packet, uint32_t &id, const void *, uint32_t) {
            const auto &tlvs = named<packet_object>(library, packet).tlvs;
            if (tlv_of(library, packet, id).id == id && id) id = tlvs.front().id;
        });
    faults.add_after<kel_tlv_setdata>("resets_version", "the version becomes 0",
                                      [](state &library, kel_packet packet, uint32_t id,
                                         const void *,
                                         uint32_t) { tlv_of(library, packet, id).version = 0; });
    faults.add<kel_tlv_set_versioned_data>(
        "keeps_version", "the version stays",
        [](auto right, state &library, kel_packet packet, uint32_t id, auto... arguments) {
            const kept version(tlv_of(library, packet, id).version);
            return right(library, packet, id, arguments...);
        });
}

} // namespace

void add_tlv_faults(catalogue &faults)
{
    add_allocating_faults(faults);
    add_freeing_faults(faults);
    add_data_faults(faults);
}

} // namespace kel_reference::faults

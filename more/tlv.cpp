// SPDX-License-Identifier: MIT
//
// TLVs: the size of one that a packet header is obtained with, and data that is written together
// with a version.
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/packet.h"
#include "kelapi/tlv.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_more_tlv, pkthdr_with_tlv_size)

namespace {

constexpr uint32_t TLV = 1;
constexpr uint16_t VERSION = 10;

// The area holds what was read of a TLV with TLV_SIZE bytes.
const char *judge_data(const uint8_t *area, uint32_t length)
{
    if (length != TLV_SIZE) return "wrong TLV size";
    return verify_data(area, TLV_SIZE, PATTERN_A) ? "TLV data mismatch" : nullptr;
}

} // namespace

CASE(kel_more_tlv, pkthdr_with_tlv_size, with_client)
{
    uint8_t area[TLV_SIZE];
    uint32_t length = TLV_SIZE;

    held.packet = kel_get_pkthdr_with_tlv(held.client, TLV, TLV_SIZE);
    if (!held.packet) return "kel_get_pkthdr_with_tlv failed";
    set_data(area, TLV_SIZE, PATTERN_A);
    if (kel_tlv_setdata(held.packet, TLV, area, TLV_SIZE)) return "kel_tlv_setdata failed";
    memset(area, 0, sizeof(area));
    if (kel_tlv_getdata(held.packet, TLV, area, &length)) return "kel_tlv_getdata failed";
    return judge_data(area, length);
}

CASE(kel_more_tlv, versioned_data, with_packet)
{
    uint8_t area[TLV_SIZE];
    uint32_t length = TLV_SIZE;
    uint16_t version = 0;

    if (kel_tlv_alloc(held.packet, TLV, TLV_SIZE)) return "kel_tlv_alloc failed";
    // First each byte becomes another than it shall be.
    set_data(area, TLV_SIZE, PATTERN_A);
    for (uint8_t &byte : area) byte = static_cast<uint8_t>(~byte);
    if (kel_tlv_setdata(held.packet, TLV, area, TLV_SIZE)) return "kel_tlv_setdata failed";
    set_data(area, TLV_SIZE, PATTERN_A);
    if (kel_tlv_set_versioned_data(held.packet, TLV, area, TLV_SIZE, VERSION)) {
        return "kel_tlv_set_versioned_data failed";
    }
    memset(area, 0, sizeof(area));
    if (kel_tlv_get_versioned_data(held.packet, TLV, area, &length, VERSION, VERSION, &version)) {
        return "kel_tlv_get_versioned_data failed";
    }
    if (version != VERSION) return "wrong version";
    return judge_data(area, length);
}

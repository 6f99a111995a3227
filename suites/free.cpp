// SPDX-License-Identifier: MIT
//
// Freeing a packet, a packet header or a buffer a second time must be refused, and told from
// freeing what never was.
#include <errno.h>

#include "kelapi/buf.h"
#include "kelapi/packet.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_free, pkt_free2)

namespace {

constexpr uint32_t TLV_ID = 1;

// Frees *handle twice. The second free must be refused. The handle is set to 0 whatever that free
// returns.
const char *free_twice(uint32_t *handle, uint32_t (*operation)(uint32_t),
                       const char *was_successful, const char *wrong_error)
{
    if (uint32_t error = operation(*handle)) return error_text(error);
    const uint32_t result = operation(*handle);
    *handle = 0;
    return judge_refusal(result, EPERM, was_successful, wrong_error);
}

const char *free_packet_twice(kel_packet *packet)
{
    return free_twice(packet, kel_free_packet, "free_packet was successful",
                      "free_packet wrong error");
}

const char *free_pkthdr_twice(kel_packet *header)
{
    return free_twice(header, kel_free_pkthdr, "free_pkthdr was successful",
                      "free_pkthdr wrong error");
}

} // namespace

CASE(kel_free, pkt_free2, with_client)
{
    if (uint32_t error = get_packet(held.client, STANDARD_SIZE, &held.packet)) {
        return error_text(error);
    }
    return free_packet_twice(&held.packet);
}

CASE(kel_free, pkthdr_free2pkt, with_client)
{
    held.packet = kel_get_pkthdr(held.client);
    if (!held.packet) return "get_pkthdr failed";
    return free_packet_twice(&held.packet);
}

CASE(kel_free, pkthdr_free2, with_client)
{
    held.packet = kel_get_pkthdr(held.client);
    if (!held.packet) return "get_pkthdr failed";
    return free_pkthdr_twice(&held.packet);
}

CASE(kel_free, pkttlv_free2, with_client)
{
    uint32_t error = ERROR_NOT_STORED;

    held.packet =
        kel_get_packet_with_tlv(held.client, 0, STANDARD_SIZE, 0, TLV_ID, TLV_SIZE, &error);
    if (error) return error_text(error);
    return free_packet_twice(&held.packet);
}

CASE(kel_free, pkthdrtlv_free2pkt, with_client)
{
    held.packet = kel_get_pkthdr_with_tlv(held.client, TLV_ID, TLV_SIZE);
    if (!held.packet) return "get_pkthdr_with_tlv failed";
    return free_packet_twice(&held.packet);
}

CASE(kel_free, pkthdrtlv_free2, with_client)
{
    held.packet = kel_get_pkthdr_with_tlv(held.client, TLV_ID, TLV_SIZE);
    if (!held.packet) return "get_pkthdr_with_tlv failed";
    return free_pkthdr_twice(&held.packet);
}

CASE(kel_free, buf_free2, with_client)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return free_twice(&held.buffer, kel_free_buffer, "free_buffer was successful",
                      "free_buffer wrong error");
}

CASE(kel_free, buf_free2chain, with_client)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return free_twice(&held.buffer, kel_free_bufchain, "free_bufchain was successful",
                      "free_bufchain wrong error");
}

CASE(kel_free, send_pkt, with_nothing, skip_case())
CASE(kel_free, recv_pkt, with_nothing, skip_case())

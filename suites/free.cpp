// SPDX-License-Identifier: MIT
//
// Freeing a packet, a packet header or a buffer a second time must be refused, and told from
// freeing what never was. Each case runs in the common frame with the default client; what is
// still held when a first free fails is released there: packet, buffer, client.
#include <errno.h>

#include "fixtures/fixtures.h"
#include "fixtures/frame.h"
#include "fixtures/message.h"
#include "kelapi/buf.h"
#include "kelapi/packet.h"
#include "runner/tests.h"
#include "suites/case_helpers.h"

#define FREE_CASE(name) CASE_STEPS(kel_free, name, run_client_steps, held_objects)

TEST_FILE(kel_free, pkt_free2)

namespace {

constexpr uint32_t OBJECT_SIZE = 1500;
constexpr uint32_t TLV_ID = 1;
constexpr uint32_t TLV_SIZE = 228;

// Frees *handle twice; the second free must be refused. Its result decides, so the handle is
// gone whatever it says.
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

FREE_CASE(pkt_free2)
{
    if (uint32_t error = get_packet(held.client, OBJECT_SIZE, &held.packet)) {
        return error_text(error);
    }
    return free_packet_twice(&held.packet);
}

FREE_CASE(pkthdr_free2pkt)
{
    held.packet = kel_get_pkthdr(held.client);
    if (!held.packet) return "get_pkthdr failed";
    return free_packet_twice(&held.packet);
}

FREE_CASE(pkthdr_free2)
{
    held.packet = kel_get_pkthdr(held.client);
    if (!held.packet) return "get_pkthdr failed";
    return free_pkthdr_twice(&held.packet);
}

FREE_CASE(pkttlv_free2)
{
    uint32_t error = ERROR_NOT_STORED;

    held.packet = kel_get_packet_with_tlv(held.client, 0, OBJECT_SIZE, 0, TLV_ID, TLV_SIZE, &error);
    if (error) return error_text(error);
    return free_packet_twice(&held.packet);
}

FREE_CASE(pkthdrtlv_free2pkt)
{
    held.packet = kel_get_pkthdr_with_tlv(held.client, TLV_ID, TLV_SIZE);
    if (!held.packet) return "get_pkthdr_with_tlv failed";
    return free_packet_twice(&held.packet);
}

FREE_CASE(pkthdrtlv_free2)
{
    held.packet = kel_get_pkthdr_with_tlv(held.client, TLV_ID, TLV_SIZE);
    if (!held.packet) return "get_pkthdr_with_tlv failed";
    return free_pkthdr_twice(&held.packet);
}

FREE_CASE(buf_free2)
{
    if (uint32_t error = get_buffer(held.client, OBJECT_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return free_twice(&held.buffer, kel_free_buffer, "free_buffer was successful",
                      "free_buffer wrong error");
}

FREE_CASE(buf_free2chain)
{
    if (uint32_t error = get_buffer(held.client, OBJECT_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return free_twice(&held.buffer, kel_free_bufchain, "free_bufchain was successful",
                      "free_bufchain wrong error");
}

TEST_CASE(kel_free, send_pkt)
{
    return skip_case();
}

TEST_CASE(kel_free, recv_pkt)
{
    return skip_case();
}

// SPDX-License-Identifier: MIT
//
// Receive queues and their signals. A client is signalled from the moment a signal is due
// until its queue is empty, so that handing a packet over mostly touches no descriptor.

#include "reference/transport.h"

#include <cerrno>

#include "reference/client.h"
#include "reference/daemon.h"
#include "reference/faults.h"
#include "reference/objects.h"
#include "reference/operations.h"

namespace kel_reference {

void signal_packets(state &library, client_object &client)
{
    client.signalled = true;
    cancel_flush(library, client);
    if (!fires(fault::signal_descriptor_stays_idle)) client.descriptor.set_readable(true);
}

namespace {

void end_signal(state &library, client_object &client)
{
    client.signalled = false;
    cancel_flush(library, client);
    if (!fires(fault::signal_descriptor_stays_readable)) client.descriptor.set_readable(false);
}

bool threshold_is_reached(const client_object &client)
{
    if (fires(fault::signal_threshold_never)) return false;
    const std::uint32_t early = fires(fault::signal_threshold_too_early);
    const std::uint32_t late = fires(fault::signal_threshold_too_late);
    return client.queued + early >= client.signal_threshold + late;
}

// `sent` stands in the client's queue now.
void signal_arrival(state &library, client_object &client, const packet_object &sent)
{
    if (client.signalled) return;
    const bool is_deferred = sent.no_signal && !fires(fault::signal_send_ignores_no_signal);
    if (!is_deferred && fires(fault::signal_send_lost)) return;
    if (!is_deferred || threshold_is_reached(client)) {
        signal_packets(library, client);
    } else {
        defer_signal(library, client);
    }
}

void insert_before(client_object &client, packet_object &packet, packet_object *next)
{
    packet_object *previous = next ? next->previous_queued : client.last_queued;
    packet.next_queued = next;
    packet.previous_queued = previous;
    (previous ? previous->next_queued : client.first_queued) = &packet;
    (next ? next->previous_queued : client.last_queued) = &packet;
    packet.queued_at = &client;
    client.queued++;
}

void enqueue(state &library, client_object &receiver, packet_object &sent)
{
    if (sent.holder != &receiver && !fires(fault::transport_send_keeps_holder)) {
        change_holder(sent, receiver);
    }
    insert_before(receiver, sent,
                  fires(fault::transport_send_reorders) ? receiver.last_queued : nullptr);
    signal_arrival(library, receiver, sent);
}

std::uint32_t send_to(state &library, client_object &receiver, packet_object &sent)
{
    const std::uint32_t limit =
        queue_limit(receiver) - (fires(fault::transport_send_refuses_early) ? 1 : 0);
    if (receiver.queued >= limit && !fires(fault::transport_send_ignores_depth)) return EAGAIN;
    if (fires(fault::transport_send_loses_packet)) {
        release_packet(library, sent);
    } else {
        enqueue(library, receiver, sent);
    }
    return 0;
}

packet_object *next_to_receive(const client_object &client)
{
    if (fires(fault::transport_recv_nothing)) return nullptr;
    return fires(fault::transport_recv_newest) ? client.last_queued : client.first_queued;
}

} // namespace

void dequeue(state &library, packet_object &packet)
{
    client_object &client = *packet.queued_at;
    (packet.previous_queued ? packet.previous_queued->next_queued : client.first_queued) =
        packet.next_queued;
    (packet.next_queued ? packet.next_queued->previous_queued : client.last_queued) =
        packet.previous_queued;
    packet.next_queued = nullptr;
    packet.previous_queued = nullptr;
    packet.queued_at = nullptr;
    client.queued--;
    if (client.queued == 0 || fires(fault::signal_descriptor_ends_early)) {
        end_signal(library, client);
    }
    queue_has_room(library, client);
}

uint32_t model::kel_send(state &library, kel_client client, kel_packet packet)
{
    client_object *sender = library.clients.find(client);
    if (!sender) return client_refusal(library, client);
    packet_object *sent = library.packets.find(packet);
    if (!sent || sent->queued_at) return EINVAL;
    if (sent->length == 0 && !fires(fault::transport_send_accepts_empty)) return EINVAL;

    client_object *receiver = receiver_of(library, sent->metadata.tag);
    if (fires(fault::transport_send_to_wrong_client)) receiver = sender;
    return receiver ? send_to(library, *receiver, *sent) : ENOENT;
}

kel_packet model::kel_recv(state &library, kel_client client)
{
    const client_object *receiver = library.clients.find(client);
    packet_object *received = receiver ? next_to_receive(*receiver) : nullptr;
    if (!received) return 0;
    if (!fires(fault::transport_recv_keeps_packet)) dequeue(library, *received);
    return received->handle;
}

uint32_t model::kel_queue_is_empty(state &library, kel_client client)
{
    const client_object *asked = library.clients.find(client);
    if (!asked) return EINVAL; // never another number: 1 would say that the queue is empty
    const std::uint32_t unseen = fires(fault::queue_count_one_short);
    return asked->queued <= unseen && !fires(fault::queue_count_never_empty);
}

uint32_t model::kel_pkt_no_sig_required(state &library, kel_packet packet, uint8_t flag)
{
    packet_object *marked = library.packets.find(packet);
    if (!marked) return EINVAL;
    marked->no_signal = flag != 0;
    return 0;
}

uint32_t model::kel_set_sig_threshold(state &library, kel_client client, uint32_t packets)
{
    client_object *changed = library.clients.find(client);
    if (!changed) return client_refusal(library, client);
    if (packets == 0) return EINVAL;
    if (!fires(fault::signal_threshold_not_set)) changed->signal_threshold = packets;
    if (changed->flush_pending && threshold_is_reached(*changed)) {
        signal_packets(library, *changed);
    }
    return 0;
}

uint32_t model::kel_set_client_signal_interval(state &library, kel_client client,
                                               uint32_t milliseconds)
{
    client_object *changed = library.clients.find(client);
    if (!changed) return client_refusal(library, client);
    if (!fires(fault::signal_interval_not_set)) {
        changed->signal_interval = std::chrono::milliseconds(milliseconds);
    }
    reschedule_flush(*changed);
    return 0;
}

} // namespace kel_reference

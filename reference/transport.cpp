// SPDX-License-Identifier: MIT
//
// Receive queues and their signals. A client is signalled from the moment a signal is due
// until its queue is empty, so that handing a packet over mostly touches no descriptor.

#include "reference/transport.h"

#include <cerrno>

#include "reference/client.h"
#include "reference/daemon.h"
#include "reference/faults/inside.h"
#include "reference/objects.h"
#include "reference/operations.h"

namespace kel_reference {

void signal_packets(state &library, client_object &client)
{
    client.signalled = true;
    cancel_flush(library, client);
    unless(fault::signal_not_shown) client.descriptor.set_readable(true);
}

void end_signal(state &library, client_object &client)
{
    client.signalled = false;
    cancel_flush(library, client);
    client.descriptor.set_readable(false);
}

namespace {

bool threshold_is_reached(const client_object &client)
{
    return client.queued >= client.signal_threshold;
}

// `sent` stands in the client's queue now.
void signal_arrival(state &library, client_object &client, const packet_object &sent)
{
    if (client.signalled) return;
    if (!sent.no_signal || threshold_is_reached(client)) {
        signal_packets(library, client);
    } else {
        defer_signal(library, client);
    }
}

} // namespace

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

namespace {

void enqueue(state &library, client_object &receiver, packet_object &sent)
{
    if (sent.holder != &receiver) change_holder(sent, receiver);
    insert_before(receiver, sent, nullptr);
    signal_arrival(library, receiver, sent);
}

} // namespace

std::uint32_t send_to(state &library, client_object &receiver, packet_object &sent)
{
    if (receiver.queued >= queue_limit(receiver)) return EAGAIN;
    enqueue(library, receiver, sent);
    return 0;
}

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
    if (client.queued == 0) end_signal(library, client);
    queue_has_room(library, client);
}

uint32_t model::kel_send(state &library, kel_client client, kel_packet packet)
{
    client_object *sender = library.clients.find(client);
    if (!sender) return client_refusal(library, client);
    packet_object *sent = library.packets.find(packet);
    if (!sent || sent->queued_at) return EINVAL;
    if (sent->length == 0) return EINVAL;

    client_object *receiver = receiver_of(library, sent->metadata.tag);
    return receiver ? send_to(library, *receiver, *sent) : ENOENT;
}

kel_packet model::kel_recv(state &library, kel_client client)
{
    const client_object *receiver = library.clients.find(client);
    packet_object *received = receiver ? receiver->first_queued : nullptr;
    if (!received) return 0;
    dequeue(library, *received);
    return received->handle;
}

uint32_t model::kel_queue_is_empty(state &library, kel_client client)
{
    const client_object *asked = library.clients.find(client);
    if (!asked) return EINVAL; // never another number: 1 would say that the queue is empty
    return asked->queued == 0;
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
    changed->signal_threshold = packets;
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
    changed->signal_interval = std::chrono::milliseconds(milliseconds);
    reschedule_flush(*changed);
    return 0;
}

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Receive queues and their signals. A client is signalled from the moment a signal is due
// until its queue is empty, so that handing a packet over mostly touches no descriptor.

#include "reference/transport.h"

#include <algorithm>
#include <cerrno>

#include "reference/client.h"
#include "reference/daemon.h"
#include "reference/event.h"
#include "reference/faults/inside.h"
#include "reference/operations.h"
#include "reference/packet.h"
#include "reference/tag.h"

namespace kel_reference {

std::uint32_t queue_limit(const client_object &client)
{
    constexpr std::uint32_t LEAST_DEPTH = 8;
    return std::max(client.asked_depth, LEAST_DEPTH);
}

namespace {

clock::time_point flush_time(const client_object &client)
{
    return client.last_deferred_send + client.signal_interval;
}

} // namespace

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

clock::time_point flush_clients(state &library)
{
    const clock::time_point now = clock::now();
    clock::time_point next_flush = clock::time_point::max();
    client_object *next = nullptr;
    for (client_object *each = library.clients_to_flush.front(); each; each = next) {
        next = intrusive_list<client_object>::next(*each);
        const clock::time_point due = flush_time(*each);
        if (due > now) {
            next_flush = std::min(next_flush, due);
        } else {
            signal_packets(library, *each);
        }
    }
    return next_flush;
}

void reschedule_flush(const client_object &client)
{
    if (client.flush_pending) wake_daemon_by(flush_time(client));
}

void cancel_flush(state &library, client_object &client)
{
    if (!client.flush_pending) return;
    client.flush_pending = false;
    library.clients_to_flush.remove(client);
}

namespace {

// Has the client signalled an interval from now, instead of from the last time it was asked.
void defer_signal(state &library, client_object &client)
{
    client.last_deferred_send = clock::now();
    if (!client.flush_pending) {
        client.flush_pending = true;
        library.clients_to_flush.push_back(client);
    }
    reschedule_flush(client);
}

bool threshold_is_reached(const client_object &client)
{
    return client.queue.size() >= client.signal_threshold;
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
    client.queue.insert_before(next, packet);
    packet.queued_at = &client;
}

std::uint32_t send_to(state &library, client_object &receiver, packet_object &sent)
{
    if (receiver.queue.size() >= queue_limit(receiver)) return EAGAIN;
    if (sent.holder != &receiver) change_holder(sent, receiver);
    insert_before(receiver, sent, nullptr);
    signal_arrival(library, receiver, sent);
    return 0;
}

void dequeue(state &library, packet_object &packet)
{
    client_object &client = *packet.queued_at;
    client.queue.remove(packet);
    packet.queued_at = nullptr;
    if (client.queue.empty()) end_signal(library, client);
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
    packet_object *received = receiver ? receiver->queue.front() : nullptr;
    if (!received) return 0;
    dequeue(library, *received);
    return received->handle;
}

uint32_t model::kel_queue_is_empty(state &library, kel_client client)
{
    const client_object *asked = library.clients.find(client);
    if (!asked) return EINVAL; // never another number: 1 would say that the queue is empty
    return asked->queue.empty();
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

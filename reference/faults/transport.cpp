// SPDX-License-Identifier: MIT
//
// Faults of sending, receiving and signalling. A send knows its receiver, and what becomes of
// the packet, so that most stand there.

#include <cerrno>

#include "reference/client.h"
#include "reference/faults/catalogue.h"
#include "reference/packet.h"
#include "reference/tag.h"
#include "reference/transport.h"

namespace kel_reference::faults {

namespace {

constexpr std::uint32_t NEVER = UINT32_MAX;

// Who gets the packet; a client that nobody else sees when nobody does.
client_object &receiver_of_packet(state &library, kel_packet packet)
{
    const kel_tag tag = named<packet_object>(library, packet).metadata.tag;
    const client_object *receiver = receiver_of(library, tag);
    return named<client_object>(library, receiver ? receiver->handle : 0);
}

bool may_be_sent(const packet_object &packet)
{
    return packet.handle && packet.length && !packet.queued_at;
}

// Holders of the packet's tag, each with another value in a member during the send.
template <typename type, typename changed> class kept_in_holders {
public:
    kept_in_holders(state &library, kel_packet packet, type client_object::*kept_member,
                    changed other)
        : member(kept_member)
    {
        const tag_object *entry =
            find_tag(library, named<packet_object>(library, packet).metadata.tag);
        if (!entry) return;
        for (client_object *each : entry->holders) {
            before.emplace_back(each, each->*member);
            each->*member = other(each->*member);
        }
    }
    kept_in_holders(const kept_in_holders &) = delete;
    kept_in_holders &operator=(const kept_in_holders &) = delete;
    ~kept_in_holders()
    {
        for (const auto &[holder, value] : before) holder->*member = value;
    }

private:
    type client_object::*member;
    std::vector<std::pair<client_object *, type>> before;
};

void add_delivery_faults(catalogue &faults)
{
    faults.add<kel_send>("to_oldest", "packets go to the client that became ACTIVE first",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             const kept_in_holders order(library, packet,
                                                         &client_object::active_since,
                                                         [](auto since) { return ~since; });
                             return right(library, client, packet);
                         });
    faults.add<kel_send>("to_standby", "packets go to STANDBY clients, too",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             const kept_in_holders roles(
                                 library, packet, &client_object::role,
                                 [](auto) -> std::uint32_t { return KEL_ROLE_ACTIVE; });
                             return right(library, client, packet);
                         });
    faults.add<kel_send>("to_sender", "the packet goes to its sender",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             client_object *sender = library.clients.find(client);
                             packet_object &sent = named<packet_object>(library, packet);
                             return sender && may_be_sent(sent) ? send_to(library, *sender, sent)
                                                                : right(library, client, packet);
                         });
    faults.add<kel_send>("accepts_empty", "a packet of length 0 is sent",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             packet_object &sent = named<packet_object>(library, packet);
                             const kept length(sent.length, sent.length ? sent.length : 1);
                             return right(library, client, packet);
                         });
    faults.add_after<kel_send>("reorders", "the packet overtakes the one before it",
                               [](state &library, kel_client, kel_packet packet) {
                                   packet_object &sent = *library.packets.find(packet);
                                   packet_object *overtaken = packet_queue::previous(sent);
                                   if (!overtaken) return;
                                   client_object &receiver = *sent.queued_at;
                                   dequeue(library, sent);
                                   insert_before(receiver, sent, overtaken);
                               });
    faults.add<kel_send>("loses_packet", "the packet is freed instead of queued",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             packet_object &sent = named<packet_object>(library, packet);
                             const client_object &receiver = receiver_of_packet(library, packet);
                             const bool is_taken = may_be_sent(sent) && receiver.handle &&
                                                   receiver.queue.size() < queue_limit(receiver);
                             if (!is_taken) return right(library, client, packet);
                             release_packet(library, sent);
                             return 0u;
                         });
    faults.add<kel_send>("ignores_depth", "a full queue takes more",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             client_object &receiver = receiver_of_packet(library, packet);
                             const kept depth(receiver.asked_depth, NEVER);
                             return right(library, client, packet);
                         });
    faults.add<kel_send>("refuses_early", "the queue is full one packet early",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             const client_object &receiver = receiver_of_packet(library, packet);
                             const bool is_last =
                                 receiver.queue.size() + 1 == queue_limit(receiver);
                             return is_last ? EAGAIN : right(library, client, packet);
                         });
    faults.add<kel_send>("keeps_holder", "the packet remains the sender's",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             packet_object &sent = named<packet_object>(library, packet);
                             client_object *holder = sent.holder;
                             const std::uint32_t error = right(library, client, packet);
                             if (!error) change_holder(sent, *holder);
                             return error;
                         });

    faults.add<kel_recv>("keeps_packet", "a received packet stays in the queue",
                         [](auto, state &library, kel_client client) {
                             const packet_object *first =
                                 named<client_object>(library, client).queue.front();
                             return first ? first->handle : 0;
                         });
    faults.add<kel_recv>("newest", "the newest packet is received first",
                         [](auto, state &library, kel_client client) {
                             packet_object *last =
                                 named<client_object>(library, client).queue.back();
                             if (last) dequeue(library, *last);
                             return last ? last->handle : 0;
                         });
    faults.add<kel_queue_is_empty>("one_short", "a queue with one packet counts as empty",
                                   [](auto right, state &library, kel_client client) {
                                       const auto &asked = named<client_object>(library, client);
                                       return asked.queue.size() == 1 ? 1 : right(library, client);
                                   });
}

// The signal threshold of the packet's receiver is another during the send.
template <typename changed>
std::uint32_t send_with_threshold(auto right, state &library, kel_client client, kel_packet packet,
                                  changed other)
{
    client_object &receiver = receiver_of_packet(library, packet);
    const kept threshold(receiver.signal_threshold, other(receiver.signal_threshold));
    return right(library, client, packet);
}

// The flush that a send has put off comes after another time.
void put_off(client_object &receiver, std::chrono::nanoseconds more)
{
    if (!receiver.flush_pending) return;
    receiver.last_deferred_send += more;
    reschedule_flush(receiver);
}

void add_signal_faults(catalogue &faults)
{
    faults.add<kel_send>("signals_early", "signals one packet before the threshold",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             return send_with_threshold(
                                 right, library, client, packet,
                                 [](auto right_one) { return right_one - 1; });
                         });
    faults.add<kel_send>("signals_late", "signals one packet after the threshold",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             return send_with_threshold(
                                 right, library, client, packet,
                                 [](auto right_one) { return right_one + 1; });
                         });
    faults.add<kel_send>("ignores_threshold", "reaching the threshold does not signal",
                         [](auto right, state &library, kel_client client, kel_packet packet) {
                             return send_with_threshold(right, library, client, packet,
                                                        [](auto) { return NEVER; });
                         });
    faults.add<kel_send>(
        "loses_signal", "a packet that needs a signal does not signal",
        [](auto right, state &library, kel_client client, kel_packet packet) {
            client_object &receiver = receiver_of_packet(library, packet);
            const bool is_deferred = named<packet_object>(library, packet).no_signal;
            const kept signalled(receiver.signalled, receiver.signalled || !is_deferred);
            return right(library, client, packet);
        });
    faults.add<kel_recv>("keeps_readable", "the descriptor of an empty queue stays readable",
                         [](auto right, state &library, kel_client client) {
                             client_object &receiver = named<client_object>(library, client);
                             const bool was_signalled = receiver.signalled;
                             const kel_packet received = right(library, client);
                             if (was_signalled) receiver.descriptor.set_readable(true);
                             return received;
                         });
    faults.add_to_made<kel_recv>("ends_signal", "the first packet received ends the signal",
                                 [](state &library, kel_packet, kel_client client) {
                                     end_signal(library, *library.clients.find(client));
                                 });

    faults.add_after<kel_send>("never_flushed", "the daemon does not signal deferred packets",
                               [](state &library, kel_client, kel_packet packet) {
                                   cancel_flush(library, receiver_of_packet(library, packet));
                               });
    faults.add_after<kel_send>("flushed_early",
                               "the daemon signals after an eighth of the interval",
                               [](state &library, kel_client, kel_packet packet) {
                                   client_object &receiver = receiver_of_packet(library, packet);
                                   put_off(receiver, -receiver.signal_interval * 7 / 8);
                               });
    faults.add_after<kel_send>("flushed_late", "the daemon signals after eight times the interval",
                               [](state &library, kel_client, kel_packet packet) {
                                   client_object &receiver = receiver_of_packet(library, packet);
                                   put_off(receiver, receiver.signal_interval * 7);
                               });
}

} // namespace

void add_transport_faults(catalogue &faults)
{
    add_delivery_faults(faults);
    add_signal_faults(faults);
}

} // namespace kel_reference::faults

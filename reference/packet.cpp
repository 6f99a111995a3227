// SPDX-License-Identifier: MIT
//
// Packets: getting and freeing them, joining buffers to them, growing, trimming, copying,
// duplicating.

#include "reference/packet.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "reference/bufgroup.h"
#include "reference/chain.h"
#include "reference/metadata.h"
#include "reference/operations.h"
#include "reference/options.h"
#include "reference/tlv.h"
#include "reference/transport.h"

namespace kel_reference {

namespace {

// The most TLVs that come with a packet.
constexpr std::uint32_t MAX_FIRST_TLVS = 64;

std::uint32_t process_id = 0;

// Asking the system for every packet would cost more than the packet.
std::uint32_t caller_pid()
{
    if (!process_id) {
        static const int registered = pthread_atfork(nullptr, nullptr, [] { process_id = 0; });
        static_cast<void>(registered);
        process_id = static_cast<std::uint32_t>(getpid());
    }
    return process_id;
}

packet_object *make_header(state &library, client_object &holder, bufgroup_object *group)
{
    packet_object *made = library.packets.create();
    if (!made) return nullptr;
    made->holder = &holder;
    made->group = group;
    set_fresh_metadata(made->metadata);
    made->caller_pid = caller_pid();
    made->caller_pc = reinterpret_cast<std::uintptr_t>(library.caller);
    holder.packets.push_back(*made);
    if (group) refer_to_group(*group);
    return made;
}

std::uint32_t allocate_first_tlvs(packet_object &packet, std::uint32_t number, std::uint32_t size)
{
    if (!chosen_options().with_tlv_counts) return allocate_tlv(packet, number, size);
    if (number > MAX_FIRST_TLVS) return ENOSPC;
    for (std::uint32_t id = 1; id <= number; id++) {
        if (const std::uint32_t error = allocate_tlv(packet, id, size)) return error;
    }
    return 0;
}

kel_packet handle_of(const packet_object *packet)
{
    return packet ? packet->handle : 0;
}

kel_packet make_bare_header(state &library, const packet_order &order)
{
    client_object *client = library.clients.find(order.client);
    packet_object *made = client ? make_header(library, *client, nullptr) : nullptr;
    if (!made) return 0;
    if (order.tlv && allocate_first_tlvs(*made, order.tlv, order.tlv_size)) {
        release_packet(library, *made);
        return 0;
    }
    return made->handle;
}

std::uint32_t free_by_handle(state &library, kel_packet packet)
{
    if (packet_object *freed = library.packets.find(packet)) {
        return release_packet(library, *freed);
    }
    return library.packets.is_stale(packet) ? EPERM : EINVAL;
}

void clear_offsets(packet_object &packet)
{
    packet.metadata.offsets.fill(0);
}

// Where in the data `offset` from the offset of that kind lies; false for an unknown kind.
bool find_position(const packet_object &packet, std::uint32_t kind, std::uint32_t offset,
                   std::uint64_t &position)
{
    if (kind >= chosen_options().data_kinds) return false;
    const bool from_start = kind == OFFSET_DATA && !chosen_options().data_start_moves_data;
    position = std::uint64_t{from_start ? 0 : packet.metadata.offsets[kind]} + offset;
    return true;
}

// The length of the stretch that a duplicate of `source` takes from `position` on; 0 when
// there is no such stretch.
std::uint32_t stretch_length(const packet_object &source, std::uint64_t position,
                             std::uint32_t asked)
{
    if (position >= source.length) return 0;
    const std::uint64_t left = source.length - position;
    if (asked == KEL_COPY_ALL) return static_cast<std::uint32_t>(left);
    return asked <= left ? asked : 0;
}

void duplicate_metadata(packet_object &made, const packet_object &source, std::uint32_t position)
{
    made.metadata = source.metadata;
    lower_offsets(made.metadata, position);
    std::uint32_t &data_start = made.metadata.offsets[OFFSET_DATA];
    if (position) data_start = 0;
}

packet_object *duplicate(state &library, packet_object &source, std::uint32_t position,
                         std::uint32_t length, std::uint32_t &error)
{
    const payer charged = payer_beside(*source.head);
    packet_object *made = make_header(library, *source.holder, charged.group);
    error = made ? 0 : ENOMEM;
    if (!made) return nullptr;

    error = copy_tlvs(*made, source);
    if (!error) {
        const obtained_chain chain = obtain_chain(library, charged, length, layout::gathered);
        error = chain.error;
        if (chain.head) {
            link_into_empty(*made, *chain.head);
            copy_chain(source.head, position, made->head, length);
            duplicate_metadata(*made, source, position);
            return made;
        }
    }
    release_packet(library, *made);
    return nullptr;
}

std::uint32_t trim_packet(state &library, packet_object &packet, std::uint32_t size, bool at_head)
{
    if (size > packet.length) return ERANGE;
    const auto trim = at_head ? trim_front : trim_back;
    trim(library, *packet.head, size, packet.length);
    if (at_head) lower_offsets(packet.metadata, size);
    if (!packet.head) clear_offsets(packet);
    return 0;
}

} // namespace

packet_object *make_packet(state &library, const packet_order &order, std::uint32_t &error)
{
    client_object *client = library.clients.find(order.client);
    bufgroup_object *group = nullptr;
    error = client ? find_group_for_use(library, *client, order.group, group) : EINVAL;
    if (error) return nullptr;

    packet_object *made = make_header(library, *client, group);
    if (!made) {
        error = ENOMEM;
        return nullptr;
    }
    error = order.tlv ? allocate_first_tlvs(*made, order.tlv, order.tlv_size) : 0;
    if (!error) {
        const obtained_chain chain =
            obtain_chain(library, {client, group}, order.size, order.wanted);
        error = chain.error;
        if (chain.head) {
            link_into_empty(*made, *chain.head);
            return made;
        }
    }
    release_packet(library, *made);
    return nullptr;
}

std::uint32_t release_packet(state &library, packet_object &packet)
{
    if (packet.queued_at) dequeue(library, packet);
    packet.holder->packets.remove(packet);
    const std::uint32_t notice = packet.head ? free_chain(library, *packet.head) : 0;
    bufgroup_object *group = packet.group;
    library.packets.release(packet);
    if (group) drop_group_reference(library, *group);
    return notice;
}

void change_holder(packet_object &packet, client_object &holder)
{
    packet.holder->packets.remove(packet);
    packet.holder = &holder;
    holder.packets.push_back(packet);
}

void release_packets(state &library, client_object &client)
{
    while (packet_object *held = client.packets.front()) {
        library.released_by_deregistration++;
        release_packet(library, *held);
    }
}

kel_packet model::kel_get_packet(state &library, kel_client client, kel_bufgroup group,
                                 uint32_t size, uint8_t contiguous, uint32_t *error)
{
    const layout wanted = contiguous ? layout::contiguous : layout::spread;
    std::uint32_t result = 0;
    packet_object *made = make_packet(library, {client, group, size, wanted, 0, 0}, result);
    store_error(error, result);
    return handle_of(made);
}

kel_packet model::kel_get_pkthdr(state &library, kel_client client)
{
    return make_bare_header(library, {client, 0, 0, layout::gathered, 0, 0});
}

kel_packet model::kel_get_packet_with_tlv(state &library, kel_client client, kel_bufgroup group,
                                          uint32_t size, uint8_t, uint32_t tlv, uint32_t tlv_size,
                                          uint32_t *error)
{
    std::uint32_t result = 0;
    packet_object *made =
        make_packet(library, {client, group, size, layout::gathered, tlv, tlv_size}, result);
    store_error(error, result);
    return handle_of(made);
}

kel_packet model::kel_get_pkthdr_with_tlv(state &library, kel_client client, uint32_t tlv,
                                          uint32_t tlv_size)
{
    return make_bare_header(library, {client, 0, 0, layout::gathered, tlv, tlv_size});
}

uint32_t model::kel_free_packet(state &library, kel_packet packet)
{
    return free_by_handle(library, packet);
}

uint32_t model::kel_free_pkthdr(state &library, kel_packet packet)
{
    return free_by_handle(library, packet);
}

kel_buffer model::kel_get_buf_head(state &library, kel_packet packet)
{
    const packet_object *asked = library.packets.find(packet);
    return asked && asked->head ? asked->head->handle : 0;
}

uint32_t model::kel_append(state &library, kel_packet packet, kel_buffer buffer)
{
    packet_object *grown = library.packets.find(packet);
    buffer_object *added = library.buffers.find(buffer);
    if (!grown || !added || added->packet) return EINVAL;
    if (!grown->head) {
        link_into_empty(*grown, *added);
    } else {
        link_behind(*grown->tail, *added);
    }
    return 0;
}

uint32_t model::kel_prepend(state &library, kel_packet packet, kel_buffer buffer)
{
    packet_object *grown = library.packets.find(packet);
    buffer_object *added = library.buffers.find(buffer);
    if (!grown || !added || added->packet) return EINVAL;
    if (!grown->head) {
        link_into_empty(*grown, *added);
    } else {
        link_before(*grown->head, *added);
    }
    return 0;
}

uint32_t model::kel_get_buf_count(state &library, kel_packet packet)
{
    const packet_object *asked = library.packets.find(packet);
    return asked ? asked->buffer_count : ~0u;
}

uint32_t model::kel_coalesce(state &library, kel_packet packet)
{
    packet_object *gathered = library.packets.find(packet);
    if (!gathered) return EINVAL;
    return gathered->buffer_count > 1 ? gather_chain(library, *gathered) : 0;
}

uint32_t model::kel_reserve_space(state &library, kel_packet packet, uint32_t size)
{
    packet_object *reserved = library.packets.find(packet);
    if (!reserved || !reserved->head) return EINVAL;
    if (reserved->space_reserved) return EINVAL;
    buffer_object &head = *reserved->head;
    if (size >= reserved->length || size > head.length) return ENOSPC;

    reserved->space_reserved = true;
    head.space_reserved = true;
    head.data_start += size;
    set_buffer_length(head, head.length - size);
    return 0;
}

uint32_t model::kel_head_space(state &library, kel_packet packet, uint32_t *size)
{
    const packet_object *asked = library.packets.find(packet);
    if (!asked || !asked->head || !size) return EINVAL;
    *size = asked->head->data_start;
    return 0;
}

uint32_t model::kel_add_head(state &library, kel_packet packet, uint32_t size)
{
    packet_object *grown = library.packets.find(packet);
    if (!grown || !grown->head) return EINVAL;
    buffer_object *head = grown->head;
    if (const std::uint32_t error = grow_front(library, head, size)) return error;
    raise_offsets(grown->metadata, size);
    return 0;
}

uint32_t model::kel_add_tail(state &library, kel_packet packet, uint32_t size)
{
    packet_object *grown = library.packets.find(packet);
    if (!grown || !grown->head) return EINVAL;
    return grow_back(library, *grown->head, size);
}

uint32_t model::kel_trim_head(state &library, kel_packet packet, uint32_t size)
{
    packet_object *trimmed = library.packets.find(packet);
    if (!trimmed || !trimmed->head) return EINVAL;
    return trim_packet(library, *trimmed, size, true);
}

uint32_t model::kel_trim_tail(state &library, kel_packet packet, uint32_t size)
{
    packet_object *trimmed = library.packets.find(packet);
    if (!trimmed || !trimmed->head) return EINVAL;
    return trim_packet(library, *trimmed, size, false);
}

uint32_t model::kel_set_data(state &library, kel_packet packet, uint32_t kind, uint32_t offset,
                             const void *source, uint32_t length)
{
    packet_object *written = library.packets.find(packet);
    std::uint64_t position = 0;
    if (!written || !source || !find_position(*written, kind, offset, position)) return EINVAL;
    if (position + length > written->length) return chosen_options().write_beyond_end_error;
    copy_in(written->head, position, source, length);
    return 0;
}

uint32_t model::kel_get_data(state &library, kel_packet packet, uint32_t kind, uint32_t offset,
                             void *destination, uint32_t *length)
{
    const packet_object *read = library.packets.find(packet);
    std::uint64_t position = 0;
    if (!read || !destination || !length || !find_position(*read, kind, offset, position)) {
        return EINVAL;
    }
    const std::uint32_t asked = *length;
    *length = copy_out(read->head, position, destination, asked);
    return *length == asked || chosen_options().get_data_short_succeeds ? 0 : ENOSPC;
}

kel_packet model::kel_duplicate(state &library, kel_packet packet, uint32_t kind, uint32_t offset,
                                uint32_t length, uint32_t *error)
{
    packet_object *source = library.packets.find(packet);
    if (!source || !source->head || !is_offset_kind(kind)) {
        store_error(error, EINVAL);
        return 0;
    }
    const std::uint64_t position = std::uint64_t{source->metadata.offsets[kind]} + offset;
    const std::uint32_t taken = length ? stretch_length(*source, position, length) : 0;
    std::uint32_t result = EINVAL;
    const packet_object *made =
        taken ? duplicate(library, *source, static_cast<std::uint32_t>(position), taken, result)
              : nullptr;
    store_error(error, result);
    return handle_of(made);
}

} // namespace kel_reference

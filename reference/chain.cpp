// SPDX-License-Identifier: MIT
//
// Chains of buffers: memory and accounts, links, trimming, growing, copying.

#include "reference/chain.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "reference/bufgroup.h"
#include "reference/bufgroup_reserved.h"
#include "reference/event.h"
#include "reference/options.h"

namespace kel_reference {

namespace {

// The most bytes that one request gets, however spread.
constexpr std::uint32_t MAX_REQUEST = 4u << 20;

std::uint32_t largest_piece(const bufgroup_object *group, layout wanted)
{
    if (group && group->reserved) return group->element_size;
    return wanted == layout::spread ? chosen_options().piece_size : chosen_options().contiguous_max;
}

// A buffer that nobody is charged for yet; null when there is no memory.
buffer_object *make_buffer(state &library, bufgroup_object *group, std::uint32_t size)
{
    buffer_object *made = library.buffers.create();
    if (!made) return nullptr;
    const bool from_elements = group && group->reserved;
    std::byte *memory = from_elements ? take_element(*group) : library.memory.allocate(size);
    if (!memory) {
        library.buffers.release(*made);
        return nullptr;
    }
    arena::leave_unwritten(memory, size);
    made->memory = memory;
    made->capacity = size;
    made->length = size;
    made->charged_bytes = size;
    made->group = group;
    return made;
}

void unmake_buffer(state &library, buffer_object &buffer)
{
    if (buffer.group && buffer.group->reserved) {
        give_back_element(*buffer.group, buffer.memory);
    } else {
        library.memory.free(buffer.memory, buffer.capacity);
    }
    library.buffers.release(buffer);
}

// `size` bytes in buffers of at most `piece`; null, with nothing taken, when there is no memory.
buffer_object *make_chain(state &library, bufgroup_object *group, std::uint32_t size,
                          std::uint32_t piece)
{
    buffer_object *head = nullptr;
    buffer_object *last = nullptr;
    std::uint32_t left = size;
    do {
        const std::uint32_t part = std::min(left, piece);
        buffer_object *made = make_buffer(library, group, part);
        if (!made) {
            while (last) {
                buffer_object *undone = last;
                last = last->previous;
                unmake_buffer(library, *undone);
            }
            return nullptr;
        }
        made->previous = last;
        (last ? last->next : head) = made;
        last = made;
        left -= part;
    } while (left);
    return head;
}

void count_in(usage &used, const buffer_object &buffer)
{
    used.buffers++;
    used.bytes += buffer.charged_bytes;
}

void count_out(usage &used, const buffer_object &buffer)
{
    used.buffers--;
    used.bytes -= buffer.charged_bytes;
}

void charge(buffer_object &buffer, client_object *client)
{
    if (client) {
        buffer.obtainer = client;
        client->buffers.push_back(buffer);
        count_in(client->used, buffer);
    }
    if (buffer.group) {
        refer_to_group(*buffer.group);
        count_in(buffer.group->used, buffer);
    }
}

void discharge(buffer_object &buffer)
{
    if (buffer.obtainer) {
        buffer.obtainer->buffers.remove(buffer);
        count_out(buffer.obtainer->used, buffer);
    }
    if (!buffer.group) return;
    count_out(buffer.group->used, buffer);
}

void unlink(buffer_object &buffer)
{
    if (buffer.previous) buffer.previous->next = buffer.next;
    if (buffer.next) buffer.next->previous = buffer.previous;
    if (packet_object *packet = buffer.packet) {
        if (packet->head == &buffer) packet->head = buffer.next;
        if (packet->tail == &buffer) packet->tail = buffer.previous;
        packet->buffer_count--;
        packet->length -= buffer.length;
    }
    buffer.next = nullptr;
    buffer.previous = nullptr;
    buffer.packet = nullptr;
}

// Makes the chain the packet's, where there is one, and returns its last buffer.
buffer_object &adopt(packet_object *packet, buffer_object &added)
{
    if (added.previous) added.previous->next = nullptr;
    added.previous = nullptr;
    buffer_object *last = &added;
    for (buffer_object *each = &added; each; each = each->next) {
        last = each;
        each->packet = packet;
        if (!packet) continue;
        packet->buffer_count++;
        packet->length += each->length;
    }
    return *last;
}

// Frees the buffer, and leaves it to the caller to tell its group and to drop the reference.
void take_back(state &library, buffer_object &buffer)
{
    unlink(buffer);
    discharge(buffer);
    unmake_buffer(library, buffer);
}

// A place in the data of a chain that moves on with what is copied.
class cursor {
public:
    cursor(buffer_object *first, std::uint64_t from) : at(first), offset(from) {}

    // The next stretch of at most `most` bytes that lie together; empty at the end.
    std::span<std::byte> next(std::uint32_t most)
    {
        while (at && offset >= at->length) {
            offset -= at->length;
            at = at->next;
        }
        if (!at) return {};
        std::byte *start = at->memory + at->data_start + offset;
        const auto size =
            static_cast<std::size_t>(std::min<std::uint64_t>(most, at->length - offset));
        offset += size;
        return {start, size};
    }

private:
    buffer_object *at;
    std::uint64_t offset;
};

// Calls visit(stretch, done) for stretches of up to `length` bytes in all and returns how many
// bytes there were.
template <typename visitor>
std::uint32_t for_each_stretch(cursor &place, std::uint32_t length, visitor visit)
{
    std::uint32_t done = 0;
    while (done < length) {
        const std::span<std::byte> stretch = place.next(length - done);
        if (stretch.empty()) break;
        visit(stretch, done);
        done += static_cast<std::uint32_t>(stretch.size());
    }
    return done;
}

std::uint32_t write(cursor &place, const std::byte *source, std::uint32_t length)
{
    return for_each_stretch(place, length, [source](std::span<std::byte> stretch, auto done) {
        std::memmove(stretch.data(), source + done, stretch.size());
    });
}

} // namespace

obtained_chain obtain_chain(state &library, const payer &charged, std::uint32_t size, layout wanted)
{
    bufgroup_object *group = charged.group;
    const std::uint32_t piece = largest_piece(group, wanted);
    if (size > (wanted == layout::contiguous ? piece : MAX_REQUEST)) return {nullptr, ENOMEM};
    const std::uint32_t count = size > piece ? (size - 1) / piece + 1 : 1;
    if (group && !group_admits(*group, count, size)) return {nullptr, ENOBUFS};
    if (group && group->reserved && elements_left(*group) < count) return {nullptr, ENOMEM};

    buffer_object *head = make_chain(library, group, size, piece);
    if (!head) return {nullptr, ENOMEM};
    const usage before = group ? group->used : usage{};
    for (buffer_object *each = head; each; each = each->next) charge(*each, charged.client);
    if (!group) return {head, 0};
    group_usage_has_changed(library, *group, before);
    return {head, group_reached_high(*group, before) ? KEL_HIGH_THRESHOLD_REACHED : 0};
}

std::uint32_t free_single(state &library, buffer_object &buffer)
{
    bufgroup_object *group = buffer.group;
    const usage before = group ? group->used : usage{};
    take_back(library, buffer);
    if (!group) return 0;
    group_usage_has_changed(library, *group, before);
    const bool came_down = group_came_down_to_low(*group, before);
    drop_group_reference(library, *group);
    return came_down ? KEL_LOW_THRESHOLD_REACHED : 0;
}

std::uint32_t free_chain(state &library, buffer_object &first)
{
    std::uint32_t notice = 0;
    for (buffer_object *freed = &first; freed;) {
        buffer_object *next = freed->next;
        notice = std::max(notice, free_single(library, *freed));
        freed = next;
    }
    return notice;
}

std::uint32_t gather_chain(state &library, packet_object &packet)
{
    const payer charged = payer_beside(*packet.head);
    bufgroup_object *group = charged.group;
    const std::uint32_t length = packet.length;
    if (length > largest_piece(group, layout::contiguous)) return ENOMEM;
    usage freed; // of what the group has in use
    for (const buffer_object *each = packet.head; each; each = each->next) {
        if (each->group == group) count_in(freed, *each);
    }
    const std::int64_t more_bytes = std::int64_t{length} - freed.bytes;
    if (group && !group_admits(*group, 1 - std::int64_t{freed.buffers}, more_bytes)) return ENOBUFS;
    buffer_object *made = make_buffer(library, group, length);
    if (!made) return ENOMEM;

    copy_chain(packet.head, 0, made, length);
    const usage before = group ? group->used : usage{};
    charge(*made, charged.client);
    while (buffer_object *gathered = packet.head) {
        if (gathered->group != group) {
            free_single(library, *gathered);
        } else {
            take_back(library, *gathered);
            if (group) drop_group_reference(library, *group);
        }
    }
    link_into_empty(packet, *made);
    if (group) group_usage_has_changed(library, *group, before);
    return 0;
}

payer payer_beside(const buffer_object &buffer)
{
    const packet_object *packet = buffer.packet;
    if (!packet) return {buffer.obtainer, buffer.group};
    return {packet->holder, packet->group ? packet->group : packet->head->group};
}

void forget_obtainer(buffer_object &buffer)
{
    buffer.obtainer->buffers.remove(buffer);
    buffer.obtainer = nullptr;
}

void release_buffers(state &library, client_object &client)
{
    while (buffer_object *obtained = client.buffers.front()) {
        buffer_object &first = head_of(*obtained);
        if (first.packet || first.obtainer != &client) {
            forget_obtainer(*obtained);
            continue;
        }
        library.released_by_deregistration += chain_count(&first);
        free_chain(library, first);
    }
}

buffer_object &head_of(buffer_object &buffer)
{
    if (buffer.packet) return *buffer.packet->head;
    buffer_object *first = &buffer;
    while (first->previous) first = first->previous;
    return *first;
}

buffer_object &tail_of(buffer_object &first)
{
    if (first.packet) return *first.packet->tail;
    buffer_object *last = &first;
    while (last->next) last = last->next;
    return *last;
}

std::uint32_t chain_count(const buffer_object *first)
{
    std::uint32_t count = 0;
    for (; first; first = first->next) count++;
    return count;
}

std::uint32_t chain_length(const buffer_object *first)
{
    std::uint32_t length = 0;
    for (; first; first = first->next) length += first->length;
    return length;
}

void set_buffer_length(buffer_object &buffer, std::uint32_t length)
{
    if (buffer.packet) buffer.packet->length += length - buffer.length;
    buffer.length = length;
}

void resize_buffer(buffer_object &buffer, std::uint32_t length)
{
    if (length > buffer.length) {
        arena::leave_unwritten(buffer.memory + buffer.data_start + buffer.length,
                               length - buffer.length);
    }
    set_buffer_length(buffer, length);
}

std::uint32_t tail_room(const buffer_object &buffer)
{
    return buffer.capacity - buffer.data_start - buffer.length;
}

void link_behind(buffer_object &last, buffer_object &added)
{
    buffer_object &added_last = adopt(last.packet, added);
    last.next = &added;
    added.previous = &last;
    if (last.packet) last.packet->tail = &added_last;
}

void link_before(buffer_object &first, buffer_object &added)
{
    buffer_object &added_last = adopt(first.packet, added);
    added.previous = first.previous;
    if (added.previous) added.previous->next = &added;
    added_last.next = &first;
    first.previous = &added_last;
    if (first.packet && first.packet->head == &first) first.packet->head = &added;
}

void link_into_empty(packet_object &packet, buffer_object &added)
{
    packet.tail = &adopt(&packet, added);
    packet.head = &added;
}

buffer_object *trim_front(state &library, buffer_object &first, std::uint32_t size,
                          std::uint32_t total)
{
    if (size == 0) return &first;
    if (size >= total) {
        free_chain(library, first);
        return nullptr;
    }
    buffer_object *left = &first;
    while (size && left->next && size >= left->length) {
        buffer_object *emptied = left;
        size -= emptied->length;
        left = emptied->next;
        free_single(library, *emptied);
    }
    left->data_start += size;
    set_buffer_length(*left, left->length - size);
    return left;
}

buffer_object *trim_back(state &library, buffer_object &first, std::uint32_t size,
                         std::uint32_t total)
{
    if (size == 0) return &first;
    if (size >= total) {
        free_chain(library, first);
        return nullptr;
    }
    buffer_object *left = &tail_of(first);
    while (size && left != &first && size >= left->length) {
        buffer_object *emptied = left;
        size -= emptied->length;
        left = emptied->previous;
        free_single(library, *emptied);
    }
    set_buffer_length(*left, left->length - size);
    return &first;
}

std::uint32_t grow_front(state &library, buffer_object *&first, std::uint32_t size)
{
    buffer_object &grown = *first;
    const bool fits = size <= grown.data_start;
    const bool fills_room = chosen_options().head_growth_fills_room && size > grown.data_start;
    const std::uint32_t inside = fits ? size : fills_room ? grown.data_start : 0;
    if (!fits) {
        const auto [head, error] =
            obtain_chain(library, payer_beside(grown), size - inside, layout::gathered);
        if (!head) return error;
        link_before(grown, *head);
        first = head;
    }
    grown.data_start -= inside;
    arena::leave_unwritten(grown.memory + grown.data_start, inside);
    set_buffer_length(grown, grown.length + inside);
    return 0;
}

std::uint32_t grow_back(state &library, buffer_object &first, std::uint32_t size)
{
    buffer_object &last = tail_of(first);
    const std::uint32_t room = tail_room(last);
    const bool fits = size <= room;
    const std::uint32_t inside = fits ? size : chosen_options().tail_growth_fills_room ? room : 0;
    if (!fits) {
        const auto [head, error] =
            obtain_chain(library, payer_beside(last), size - inside, layout::gathered);
        if (!head) return error;
        link_behind(last, *head);
    }
    resize_buffer(last, last.length + inside);
    return 0;
}

std::uint32_t copy_in(buffer_object *first, std::uint64_t offset, const void *source,
                      std::uint32_t length)
{
    cursor place(first, offset);
    return write(place, static_cast<const std::byte *>(source), length);
}

std::uint32_t copy_out(buffer_object *first, std::uint64_t offset, void *destination,
                       std::uint32_t length)
{
    cursor place(first, offset);
    auto *bytes = static_cast<std::byte *>(destination);
    return for_each_stretch(place, length, [bytes](std::span<std::byte> stretch, auto done) {
        std::memmove(bytes + done, stretch.data(), stretch.size());
    });
}

void copy_chain(buffer_object *source, std::uint64_t offset, buffer_object *destination,
                std::uint32_t length)
{
    cursor from(source, offset);
    cursor to(destination, 0);
    for_each_stretch(from, length, [&to](std::span<std::byte> stretch, auto) {
        write(to, stretch.data(), static_cast<std::uint32_t>(stretch.size()));
    });
}

} // namespace kel_reference

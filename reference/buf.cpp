// SPDX-License-Identifier: MIT
//
// Single buffers and chains of buffers by handle, and the buffer memory as a whole. On a
// buffer that stands in a packet the operations act on that packet's chain; the packet's
// length and buffer count follow, its offsets do not.

#include <cerrno>
#include <cstdint>

#include "reference/bufgroup.h"
#include "reference/chain.h"
#include "reference/operations.h"
#include "reference/options.h"

namespace kel_reference {

namespace {

kel_buffer handle_of(const buffer_object *buffer)
{
    return buffer ? buffer->handle : 0;
}

// The buffer that may be freed, or null and the error.
buffer_object *find_freeable(state &library, kel_buffer buffer, std::uint32_t &error)
{
    buffer_object *freed = library.buffers.find(buffer);
    error = 0;
    if (freed && !freed->packet) return freed;
    error = freed || library.buffers.is_stale(buffer) ? EPERM : EINVAL;
    return nullptr;
}

std::uint32_t result_of_free(std::uint32_t notice)
{
    return chosen_options().low_notice_from_buffers ? notice : 0;
}

enum class end_of_chain { head, tail };

std::uint32_t trim(state &library, kel_buffer *buffer, std::uint32_t size, end_of_chain end)
{
    buffer_object *first = buffer ? library.buffers.find(*buffer) : nullptr;
    if (!first) return EINVAL;
    const std::uint32_t total = chain_length(first);
    if (size > total) return ERANGE;
    const auto trim_end = end == end_of_chain::head ? trim_front : trim_back;
    *buffer = handle_of(trim_end(library, *first, size, total));
    return 0;
}

// The part of `buffer` at `offset` from its data start, within head room and data.
bool find_in_buffer(const buffer_object &buffer, std::int32_t offset, std::int64_t &found)
{
    const auto room = static_cast<std::int64_t>(buffer.data_start);
    found = offset;
    if (room && found < -room && chosen_options().dptr_clamps) found = -room;
    return found >= -room && found <= buffer.length;
}

buffer_object *duplicate(state &library, buffer_object &source, std::uint32_t offset,
                         std::uint32_t length, std::uint32_t &error)
{
    const std::uint32_t total = chain_length(&source);
    error = EINVAL;
    if (offset >= total) return nullptr;
    const std::uint32_t left = total - offset;
    if (length == KEL_COPY_ALL) length = left;
    if (length == 0 || length > left) return nullptr;

    const auto [head, result] =
        obtain_chain(library, payer_beside(source), length, layout::gathered);
    error = result;
    if (head) copy_chain(&source, offset, head, length);
    return head;
}

} // namespace

uint32_t model::kel_get_bufmem_start(state &library, uint64_t *start, uint32_t *length)
{
    if (!start || !length) return EINVAL;
    *start = reinterpret_cast<std::uintptr_t>(library.memory.start());
    *length = static_cast<std::uint32_t>(library.memory.size());
    return 0;
}

uint32_t model::kel_get_bufmem_info(state &library, uint64_t *bpa_paddr, uint64_t *bpa_vaddr,
                                    uint64_t *bpa_kvaddr, uint32_t *length)
{
    if (!bpa_paddr || !bpa_vaddr || !bpa_kvaddr || !length) return EINVAL;
    *bpa_paddr = arena::PHYSICAL_START;
    *bpa_vaddr = reinterpret_cast<std::uintptr_t>(library.memory.start());
    *bpa_kvaddr = arena::KERNEL_START;
    *length = static_cast<std::uint32_t>(library.memory.size());
    return 0;
}

kel_buffer model::kel_get_buffer(state &library, kel_client client, kel_bufgroup group,
                                 uint32_t size, uint8_t contiguous, uint32_t *error)
{
    payer charged{library.clients.find(client), nullptr};
    const bool is_known =
        charged.client && !find_group_for_use(library, *charged.client, group, charged.group);
    const layout wanted = contiguous ? layout::contiguous : layout::spread;
    const obtained_chain chain =
        is_known ? obtain_chain(library, charged, size, wanted) : obtained_chain{nullptr, EINVAL};
    store_error(error, chain.error);
    return handle_of(chain.head);
}

uint32_t model::kel_free_buffer(state &library, kel_buffer buffer)
{
    std::uint32_t error = 0;
    buffer_object *freed = find_freeable(library, buffer, error);
    if (!freed) return error;
    return result_of_free(free_single(library, *freed));
}

uint32_t model::kel_free_bufchain(state &library, kel_buffer buffer)
{
    std::uint32_t error = 0;
    buffer_object *freed = find_freeable(library, buffer, error);
    if (!freed) return error;
    if (freed->previous) freed->previous->next = nullptr;
    freed->previous = nullptr;
    return result_of_free(free_chain(library, *freed));
}

uint32_t model::kel_buf_append(state &library, kel_buffer buffer, kel_buffer added)
{
    buffer_object *first = library.buffers.find(buffer);
    buffer_object *appended = library.buffers.find(added);
    if (!first || !appended || appended->packet) return EINVAL;
    buffer_object &last = tail_of(*first);
    if (&last == &tail_of(*appended)) return EINVAL;
    link_behind(last, *appended);
    return 0;
}

kel_buffer model::kel_buf_get_next(state &library, kel_buffer buffer)
{
    const buffer_object *asked = library.buffers.find(buffer);
    return asked ? handle_of(asked->next) : 0;
}

uint32_t model::kel_buf_get_buf_count(state &library, kel_buffer buffer)
{
    return chain_count(library.buffers.find(buffer));
}

uint32_t model::kel_buf_get_dptr(state &library, kel_buffer buffer, int32_t offset, void **data,
                                 uint32_t *length)
{
    const buffer_object *asked = library.buffers.find(buffer);
    std::int64_t found = 0;
    if (!asked || !data || !length || !find_in_buffer(*asked, offset, found)) return EINVAL;
    *data = asked->memory + asked->data_start + found;
    *length = static_cast<std::uint32_t>(asked->length - found);
    return 0;
}

uint32_t model::kel_buf_get_length(state &library, kel_buffer buffer, uint32_t *length)
{
    const buffer_object *asked = library.buffers.find(buffer);
    if (!asked || !length) return EINVAL;
    *length = asked->length;
    return 0;
}

uint32_t model::kel_buf_set_length(state &library, kel_buffer buffer, uint32_t length)
{
    buffer_object *changed = library.buffers.find(buffer);
    if (!changed) return EINVAL;
    if (length > changed->capacity - changed->data_start) return ENOSPC;
    resize_buffer(*changed, length);
    return 0;
}

uint32_t model::kel_buf_reserve_space(state &library, kel_buffer buffer, uint32_t size)
{
    buffer_object *changed = library.buffers.find(buffer);
    if (!changed) return EINVAL;
    if (changed->space_reserved) return EINVAL;
    const std::uint32_t left =
        changed->length + (chosen_options().reserve_takes_room ? tail_room(*changed) : 0);
    if (size >= left) return ENOSPC;

    changed->space_reserved = true;
    resize_buffer(*changed, left);
    changed->data_start += size;
    set_buffer_length(*changed, left - size);
    return 0;
}

uint32_t model::kel_buf_set_data(state &library, kel_buffer buffer, uint32_t offset,
                                 const void *source, uint32_t length)
{
    buffer_object *first = library.buffers.find(buffer);
    if (!first || !source) return EINVAL;
    const std::uint64_t end = std::uint64_t{offset} + length;
    if (end > chain_length(first)) return chosen_options().write_beyond_end_error;
    copy_in(first, offset, source, length);
    return 0;
}

uint32_t model::kel_buf_get_data(state &library, kel_buffer buffer, uint32_t offset,
                                 void *destination, uint32_t *length)
{
    buffer_object *first = library.buffers.find(buffer);
    if (!first || !destination || !length) return EINVAL;
    const std::uint32_t asked = *length;
    *length = copy_out(first, offset, destination, asked);
    return *length == asked ? 0 : ENOSPC;
}

uint32_t model::kel_buf_trim_head(state &library, kel_buffer *buffer, uint32_t size)
{
    return trim(library, buffer, size, end_of_chain::head);
}

uint32_t model::kel_buf_trim_tail(state &library, kel_buffer *buffer, uint32_t size)
{
    return trim(library, buffer, size, end_of_chain::tail);
}

uint32_t model::kel_buf_adj(state &library, kel_buffer *buffer, int32_t size)
{
    const auto magnitude = static_cast<std::uint32_t>(size < 0 ? -std::int64_t{size} : size);
    return trim(library, buffer, magnitude, size < 0 ? end_of_chain::tail : end_of_chain::head);
}

uint32_t model::kel_buf_add_head(state &library, kel_buffer *buffer, uint32_t size)
{
    buffer_object *first = buffer ? library.buffers.find(*buffer) : nullptr;
    if (!first) return EINVAL;
    const std::uint32_t error = grow_front(library, first, size);
    if (!error) *buffer = first->handle;
    return error;
}

uint32_t model::kel_buf_add_tail(state &library, kel_buffer buffer, uint32_t size)
{
    buffer_object *first = library.buffers.find(buffer);
    return first ? grow_back(library, *first, size) : EINVAL;
}

uint32_t model::kel_buf_get_paddr(state &library, kel_buffer buffer, uint64_t *address,
                                  uint32_t *length)
{
    const buffer_object *asked = library.buffers.find(buffer);
    if (!asked || !address || !length) return EINVAL;
    *address = library.memory.physical_address(asked->memory + asked->data_start);
    *length = asked->length;
    return 0;
}

uint32_t model::kel_buf_get_paddr_iov(state &library, kel_buffer buffer, kel_iovec *entries,
                                      uint32_t *count)
{
    const buffer_object *first = library.buffers.find(buffer);
    if (!first || !entries || !count) return EINVAL;
    const std::uint32_t buffers = chain_count(first);
    if (buffers > *count) return ENOSPC;
    *count = 0;
    for (const buffer_object *each = first; each; each = each->next) {
        entries[(*count)++] = {library.memory.physical_address(each->memory + each->data_start),
                               each->length};
    }
    return 0;
}

kel_buffer model::kel_buf_duplicate(state &library, kel_buffer buffer, uint32_t offset,
                                    uint32_t length, uint32_t *error)
{
    buffer_object *source = library.buffers.find(buffer);
    std::uint32_t result = EINVAL;
    const buffer_object *made =
        source ? duplicate(library, *source, offset, length, result) : nullptr;
    store_error(error, result);
    return handle_of(made);
}

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Chains of buffers: obtaining and freeing with the accounts that go with it, trimming,
// growing, copying. What packets and bare chains have in common; a chain that stands in a
// packet keeps that packet's head, tail, count and length right by itself.
//
// All of it is called with the library's lock held.
#pragma once

#include "reference/state.h"

namespace kel_reference {

// Who is charged.
struct payer {
    client_object *client = nullptr;  // null: nobody
    bufgroup_object *group = nullptr; // null: default memory
};

enum class layout {
    contiguous, // one buffer
    spread,     // one buffer or several of the usual size
    gathered,   // as few buffers as possible
};

// With a head, `error` is 0 or the high-threshold notice.
struct obtained_chain {
    buffer_object *head = nullptr;
    std::uint32_t error = 0;
};

obtained_chain obtain_chain(state &library, const payer &charged, std::uint32_t size,
                            layout wanted);

// Both take what they free out of its chain and return 0 or the low-threshold notice.
std::uint32_t free_single(state &library, buffer_object &buffer);
std::uint32_t free_chain(state &library, buffer_object &first);

// Puts the packet's data into one new buffer instead of its chain: 0 or an error with nothing
// changed. The group that is charged sees its usage before and after, and nothing between.
std::uint32_t gather_chain(state &library, packet_object &packet);

// Who is charged for more buffers beside this one: its packet's holder and group, or the
// buffer's own obtainer and group.
payer payer_beside(const buffer_object &buffer);

// Frees the chains whose first buffer the client obtained. Its buffers in packets and in chains of
// others stay there and are charged to nobody.
void release_buffers(state &library, client_object &client);

// Takes the buffer off the count of its obtainer, who is gone; it remains its group's.
void forget_obtainer(buffer_object &buffer);

buffer_object &head_of(buffer_object &buffer);
buffer_object &tail_of(buffer_object &first);
std::uint32_t chain_count(const buffer_object *first);
std::uint32_t chain_length(const buffer_object *first);
void set_buffer_length(buffer_object &buffer, std::uint32_t length);
// Likewise, at the end of its data; what is new there was never written.
void resize_buffer(buffer_object &buffer, std::uint32_t length);
std::uint32_t tail_room(const buffer_object &buffer);

// Links a chain that is in no packet; if it has predecessors they are left behind.
void link_behind(buffer_object &last, buffer_object &added);
void link_before(buffer_object &first, buffer_object &added);
void link_into_empty(packet_object &packet, buffer_object &added);

// Remove `size` of the chain's `total` bytes and return the new first buffer, or null.
buffer_object *trim_front(state &library, buffer_object &first, std::uint32_t size,
                          std::uint32_t total);
buffer_object *trim_back(state &library, buffer_object &first, std::uint32_t size,
                         std::uint32_t total);

// Grow by `size` bytes at either end; 0 or an error with nothing changed. grow_front puts
// the new head in `first`.
std::uint32_t grow_front(state &library, buffer_object *&first, std::uint32_t size);
std::uint32_t grow_back(state &library, buffer_object &first, std::uint32_t size);

// Copy between the chain's data from `offset` on and flat memory, up to the end of the
// chain; return the number of bytes copied.
std::uint32_t copy_in(buffer_object *first, std::uint64_t offset, const void *source,
                      std::uint32_t length);
std::uint32_t copy_out(buffer_object *first, std::uint64_t offset, void *destination,
                       std::uint32_t length);

// Copies `length` bytes from `offset` on to the start of `destination`.
void copy_chain(buffer_object *source, std::uint64_t offset, buffer_object *destination,
                std::uint32_t length);

// Stores through an error pointer, which may be null.
inline void store_error(std::uint32_t *error, std::uint32_t value)
{
    if (error) *error = value;
}

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Faults of buffers and chains, and of what is counted for clients.

#include <cerrno>
#include <cstdlib>

#include "reference/chain.h"
#include "reference/faults/catalogue.h"

namespace kel_reference::faults {

namespace {

void add_freeing_faults(catalogue &faults)
{
    faults.add<kel_free_buffer, kel_free_bufchain>(
        "accepts_freed", "a second free succeeds",
        [](auto right, state &library, kel_buffer buffer) {
            const bool is_stale = library.buffers.is_stale(buffer);
            return is_stale ? 0 : right(library, buffer);
        });
    faults.add<kel_free_buffer, kel_free_bufchain>(
        "wrong_error", "a second free says EINVAL",
        [](auto right, state &library, kel_buffer buffer) {
            const bool is_stale = library.buffers.is_stale(buffer);
            return is_stale ? EINVAL : right(library, buffer);
        });
    faults.add<kel_free_bufchain>("first_only", "freeing a chain frees its first buffer",
                                  [](auto, state &library, kel_buffer buffer) {
                                      return model::kel_free_buffer(library, buffer);
                                  });
}

void add_counting_faults(catalogue &faults)
{
    const auto keep_counts = [](auto right, state &library, auto... arguments) {
        const kept_in_all counts(library.clients, &client_object::used);
        return right(library, arguments...);
    };
    faults.add<kel_get_buffer, kel_get_packet, kel_add_head, kel_add_tail>(
        "not_counted", "what is obtained does not count for the client", keep_counts);
    faults.add<kel_free_buffer, kel_free_bufchain, kel_free_packet, kel_trim_head, kel_trim_tail,
               kel_coalesce>("keeps_client_count", "what is freed goes on counting for the client",
                             keep_counts);
    faults.add<kel_get_buffer, kel_get_packet, kel_add_head, kel_add_tail>(
        "counted_twice", "what is obtained counts twice for the client",
        [](auto right, state &library, auto... arguments) {
            std::vector<usage> before;
            library.clients.for_each([&](client_object &each) { before.push_back(each.used); });
            const auto answer = right(library, arguments...);
            auto counted = before.begin();
            library.clients.for_each([&](client_object &each) {
                each.used.buffers += each.used.buffers - counted->buffers;
                each.used.bytes += each.used.bytes - counted->bytes;
                counted++;
            });
            return answer;
        });
}

void add_length_faults(catalogue &faults)
{
    faults.add_to_made<kel_get_buffer>(
        "one_short", "the buffer is one byte short",
        [](state &library, kel_buffer made, kel_client, kel_bufgroup, uint32_t size, auto...) {
            if (size) library.buffers.find(made)->length--;
        });
    faults.add_pretending<&buffer_object::data_start, 0u, kel_buf_set_length>(
        "ignores_head_room", "a length may reach beyond the memory's end by the head room");
    faults.add_pretending<&buffer_object::space_reserved, false, kel_buf_reserve_space>(
        "twice", "space can be reserved again");
    faults.add<kel_buf_reserve_space>(
        "takes_all", "the whole capacity can be reserved",
        [](auto right, state &library, kel_buffer buffer, uint32_t size) {
            buffer_object &changed = named<buffer_object>(library, buffer);
            if (!size || size != changed.length) return right(library, buffer, size);
            const std::uint32_t error = right(library, buffer, size - 1);
            if (!error) changed.data_start++;
            if (!error) set_buffer_length(changed, 0);
            return error;
        });
    faults.add_keeping<&buffer_object::data_start, kel_buf_reserve_space>("keeps_start",
                                                                          "the data start stays");
    faults.add<kel_buf_reserve_space>(
        "keeps_length", "the length stays",
        [](auto right, state &library, kel_buffer buffer, uint32_t size) {
            buffer_object &changed = named<buffer_object>(library, buffer);
            const std::uint32_t length = changed.length;
            const std::uint32_t error = right(library, buffer, size);
            set_buffer_length(changed, length);
            return error;
        });
    faults.add_pretending<&buffer_object::data_start, 0u, kel_buf_add_head>(
        "extends", "growth at the front takes a new buffer in spite of head room");
}

void add_chain_faults(catalogue &faults)
{
    faults.add_after<kel_buf_append>(
        "behind_first", "the chain is linked behind the first buffer instead of the last",
        [](state &library, kel_buffer buffer, kel_buffer added) {
            buffer_object &first = *library.buffers.find(buffer);
            buffer_object &appended = *library.buffers.find(added);
            if (first.next == &appended) return;
            buffer_object &last = tail_of(first);
            appended.previous->next = nullptr;
            if (first.packet) first.packet->tail = appended.previous;
            first.next->previous = &last;
            last.next = first.next;
            first.next = &appended;
            appended.previous = &first;
        });
    faults.add<kel_buf_trim_head>("other_end", "the chain is trimmed at its other end",
                                  [](auto, state &library, kel_buffer *buffer, uint32_t size) {
                                      return model::kel_buf_trim_tail(library, buffer, size);
                                  });
    faults.add<kel_buf_trim_tail>("other_end", "the chain is trimmed at its other end",
                                  [](auto, state &library, kel_buffer *buffer, uint32_t size) {
                                      return model::kel_buf_trim_head(library, buffer, size);
                                  });
    faults.add_before<kel_buf_adj>("other_end", "the sign is taken the other way round",
                                   [](state &, kel_buffer *, int32_t &size) { size = -size; });
    faults.add<kel_buf_trim_head, kel_buf_trim_tail, kel_buf_adj>(
        "keeps_chain", "a chain trimmed to nothing keeps an empty buffer",
        [](auto right, state &library, kel_buffer *buffer, auto size) {
            const buffer_object *first = buffer ? library.buffers.find(*buffer) : nullptr;
            const auto all = static_cast<std::int64_t>(chain_length(first));
            if (!buffer || !all || (size != all && size != -all)) {
                return right(library, buffer, size);
            }
            const std::uint32_t error =
                right(library, buffer, static_cast<decltype(size)>(size < 0 ? 1 - all : all - 1));
            set_buffer_length(*library.buffers.find(*buffer), 0);
            return error;
        });
    faults.add<kel_buf_set_data>(
        "first_buffer_only", "data that reaches beyond the first buffer is not written",
        [](auto right, state &library, kel_buffer buffer, uint32_t offset, const void *source,
           uint32_t length) {
            const buffer_object &first = named<buffer_object>(library, buffer);
            const std::uint64_t end = std::uint64_t{offset} + length;
            const bool is_lost = source && end > first.length && end <= chain_length(&first);
            return is_lost ? 0 : right(library, buffer, offset, source, length);
        });
}

void add_duplicate_faults(catalogue &faults)
{
    faults.add_before<kel_buf_duplicate>(
        "truncates", "a stretch that leaves the chain is cut instead of refused",
        [](state &library, kel_buffer buffer, uint32_t offset, uint32_t &length, uint32_t *) {
            const std::uint32_t total = chain_length(library.buffers.find(buffer));
            if (offset < total && length > total - offset) length = KEL_COPY_ALL;
        });
    faults.add<kel_buf_duplicate>(
        "wrong_length", "the duplicate is one byte short",
        [](auto right, state &library, kel_buffer buffer, uint32_t offset, uint32_t length,
           uint32_t *error) {
            const kel_buffer made = right(library, buffer, offset, length, error);
            if (!made) return made;
            const std::uint32_t taken = chain_length(library.buffers.find(made));
            model::kel_free_bufchain(library, made);
            return model::kel_buf_duplicate(library, buffer, offset, taken - 1, error);
        });
    faults.add_to_made<kel_buf_duplicate>(
        "from_front", "the duplicate begins at the front whatever the offset",
        [](state &library, kel_buffer made, kel_buffer buffer, uint32_t, uint32_t, uint32_t *) {
            buffer_object *first = library.buffers.find(made);
            copy_chain(library.buffers.find(buffer), 0, first, chain_length(first));
        });
    faults.add_to_made<kel_buf_duplicate>(
        "not_charged", "the duplicate counts for nobody",
        [](state &library, kel_buffer made, kel_buffer, uint32_t, uint32_t, uint32_t *) {
            for (buffer_object *each = library.buffers.find(made); each; each = each->next) {
                if (!each->obtainer) continue;
                each->obtainer->used.buffers--;
                each->obtainer->used.bytes -= each->charged_bytes;
                forget_obtainer(*each);
            }
        });
    faults.add<kel_buf_duplicate>(
        "too_many_buffers", "the duplicate is spread like any chain",
        [](auto right, state &library, kel_buffer buffer, uint32_t offset, uint32_t length,
           uint32_t *error) {
            const kel_buffer made = right(library, buffer, offset, length, error);
            if (!made) return made;
            buffer_object &source = *library.buffers.find(buffer);
            const std::uint32_t taken = chain_length(library.buffers.find(made));
            model::kel_free_bufchain(library, made);
            const obtained_chain spread =
                obtain_chain(library, payer_beside(source), taken, layout::spread);
            copy_chain(&source, offset, spread.head, taken);
            return spread.head->handle;
        });
}

} // namespace

void add_buf_faults(catalogue &faults)
{
    add_freeing_faults(faults);
    add_counting_faults(faults);
    add_length_faults(faults);
    add_chain_faults(faults);
    add_duplicate_faults(faults);
}

} // namespace kel_reference::faults

// SPDX-License-Identifier: MIT
//
// Faults of packets.

#include <cerrno>
#include <vector>

#include "reference/chain.h"
#include "reference/faults/catalogue.h"
#include "reference/metadata.h"
#include "reference/options.h"
#include "reference/packet.h"

namespace kel_reference::faults {

namespace {

void shorten(packet_object &packet)
{
    set_buffer_length(*packet.tail, packet.tail->length - 1);
}

// The head of the packet; a buffer that nobody else sees where there is none.
buffer_object &head_of(state &library, kel_packet packet)
{
    const buffer_object *head = named<packet_object>(library, packet).head;
    return named<buffer_object>(library, head ? head->handle : 0);
}

// Moves the buffer from its obtainer's count to another client's.
void recharge(buffer_object &buffer, client_object &client)
{
    buffer.obtainer->used.buffers--;
    buffer.obtainer->used.bytes -= buffer.charged_bytes;
    forget_obtainer(buffer);
    buffer.obtainer = &client;
    client.buffers.push_back(buffer);
    client.used.buffers++;
    client.used.bytes += buffer.charged_bytes;
}

void add_obtaining_faults(catalogue &faults)
{
    faults.add_to_made<kel_get_packet>(
        "one_short", "the packet is one byte short",
        [](state &library, kel_packet made, kel_client, kel_bufgroup, uint32_t size, auto...) {
            if (size) shorten(*library.packets.find(made));
        });
    faults.add_to_made<kel_get_packet>("with_tag", "a fresh packet has tag 1",
                                       [](state &library, kel_packet made, auto...) {
                                           library.packets.find(made)->metadata.tag = 1;
                                       });
    faults.add<kel_free_packet, kel_free_pkthdr>("accepts_freed", "a second free succeeds",
                                                 [](auto right, state &library, kel_packet packet) {
                                                     return library.packets.is_stale(packet)
                                                                ? 0
                                                                : right(library, packet);
                                                 });
    faults.add<kel_free_packet, kel_free_pkthdr>("wrong_error", "a second free says EINVAL",
                                                 [](auto right, state &library, kel_packet packet) {
                                                     return library.packets.is_stale(packet)
                                                                ? EINVAL
                                                                : right(library, packet);
                                                 });
}

void add_joining_faults(catalogue &faults)
{
    faults.add<kel_append>("in_front", "the buffer comes first",
                           [](auto, state &library, kel_packet packet, kel_buffer buffer) {
                               return model::kel_prepend(library, packet, buffer);
                           });
    faults.add<kel_prepend>("behind", "the buffer comes last",
                            [](auto, state &library, kel_packet packet, kel_buffer buffer) {
                                return model::kel_append(library, packet, buffer);
                            });
    faults.add_keeping<&packet_object::length, kel_append, kel_prepend>(
        "keeps_length", "the packet's length stays");
    faults.add_keeping<&packet_object::buffer_count, kel_append>("keeps_count",
                                                                 "the buffer count stays");
    faults.add<kel_coalesce>(
        "loses_tail", "only the first buffer's data is gathered",
        [](auto right, state &library, kel_packet packet) {
            const std::uint32_t gathered = head_of(library, packet).length;
            const std::uint32_t error = right(library, packet);
            const packet_object &changed = named<packet_object>(library, packet);
            if (error || gathered >= changed.length) return error;
            const std::vector<unsigned char> lost(
                changed.length - gathered,
                static_cast<unsigned char>(chosen_options().poison_byte));
            copy_in(changed.head, gathered, lost.data(), static_cast<std::uint32_t>(lost.size()));
            return error;
        });
    faults.add<kel_coalesce>(
        "keeps_charge", "the gathered data counts for the last buffer's obtainer",
        [](auto right, state &library, kel_packet packet) {
            const buffer_object *last = named<packet_object>(library, packet).tail;
            client_object *obtainer = last ? last->obtainer : nullptr;
            const std::uint32_t error = right(library, packet);
            buffer_object &head = head_of(library, packet);
            if (!error && obtainer && head.obtainer) recharge(head, *obtainer);
            return error;
        });
}

void add_reserving_faults(catalogue &faults)
{
    faults.add_pretending<&packet_object::space_reserved, false, kel_reserve_space>(
        "twice", "space can be reserved again");
    faults.add<kel_reserve_space>(
        "takes_all", "the whole length can be reserved",
        [](auto right, state &library, kel_packet packet, uint32_t size) {
            const bool is_all = size && size == named<packet_object>(library, packet).length;
            const std::uint32_t error = right(library, packet, is_all ? size - 1 : size);
            if (error || !is_all) return error;
            buffer_object &head = head_of(library, packet);
            head.data_start++;
            set_buffer_length(head, head.length - 1);
            return error;
        });
    faults.add<kel_reserve_space>("keeps_start", "the data start stays",
                                  [](auto right, state &library, kel_packet packet, uint32_t size) {
                                      const kept start(head_of(library, packet).data_start);
                                      return right(library, packet, size);
                                  });
    faults.add_keeping<&packet_object::length, kel_reserve_space>("keeps_length",
                                                                  "the packet's length stays");
    faults.add_after<kel_reserve_space>("moves_offsets", "the offsets move down",
                                        [](state &library, kel_packet packet, uint32_t size) {
                                            lower_offsets(library.packets.find(packet)->metadata,
                                                          size);
                                        });
}

void add_growing_faults(catalogue &faults)
{
    const auto ask_for_less = [](state &, kel_packet, uint32_t &size) {
        if (size) size--;
    };
    faults.add_before<kel_add_tail>("one_short", "the packet grows by one byte less", ask_for_less);
    faults.add<kel_add_head>("one_short", "the packet grows by one byte less",
                             [](auto right, state &library, kel_packet packet, uint32_t size) {
                                 if (!size) return right(library, packet, size);
                                 const std::uint32_t error = right(library, packet, size - 1);
                                 if (!error) {
                                     raise_offsets(library.packets.find(packet)->metadata, 1);
                                 }
                                 return error;
                             });
    faults.add<kel_add_head>("keeps_offsets", "the offsets stay",
                             [](auto right, state &library, kel_packet packet, uint32_t size) {
                                 auto &metadata = named<packet_object>(library, packet).metadata;
                                 const kept offsets(metadata.offsets);
                                 return right(library, packet, size);
                             });
    faults.add<kel_add_head>("extends",
                             "growth at the front takes a new buffer in spite of head room",
                             [](auto right, state &library, kel_packet packet, uint32_t size) {
                                 const kept start(head_of(library, packet).data_start, 0u);
                                 return right(library, packet, size);
                             });
    faults.add_after<kel_add_tail>("moves_offsets", "the offsets move up",
                                   [](state &library, kel_packet packet, uint32_t size) {
                                       raise_offsets(library.packets.find(packet)->metadata, size);
                                   });
}

void add_trimming_faults(catalogue &faults)
{
    faults.add<kel_trim_head>("at_tail", "the packet is trimmed at its end",
                              [](auto, state &library, kel_packet packet, uint32_t size) {
                                  return model::kel_trim_tail(library, packet, size);
                              });
    faults.add<kel_trim_tail>("at_head", "the packet is trimmed at its front",
                              [](auto, state &library, kel_packet packet, uint32_t size) {
                                  return model::kel_trim_head(library, packet, size);
                              });
    faults.add<kel_trim_head>("keeps_offsets", "the offsets stay",
                              [](auto right, state &library, kel_packet packet, uint32_t size) {
                                  auto &trimmed = named<packet_object>(library, packet);
                                  const auto offsets = trimmed.metadata.offsets;
                                  const std::uint32_t error = right(library, packet, size);
                                  if (trimmed.head) trimmed.metadata.offsets = offsets;
                                  return error;
                              });
    faults.add<kel_trim_head>("wraps_offsets", "an offset that would fall below 0 wraps",
                              [](auto right, state &library, kel_packet packet, uint32_t size) {
                                  auto &trimmed = named<packet_object>(library, packet);
                                  auto offsets = trimmed.metadata.offsets;
                                  const std::uint32_t error = right(library, packet, size);
                                  for (std::size_t kind = OFFSET_NETWORK; kind < offsets.size();
                                       kind++) {
                                      if (!error && trimmed.head) {
                                          trimmed.metadata.offsets[kind] = offsets[kind] - size;
                                      }
                                  }
                                  return error;
                              });
    faults.add_keeping<&packet_object::length, kel_trim_head, kel_trim_tail>(
        "keeps_length", "the packet's length stays");
    faults.add<kel_trim_head, kel_trim_tail>(
        "keeps_chain", "a packet trimmed to nothing keeps an empty buffer",
        [](auto right, state &library, kel_packet packet, uint32_t size) {
            const packet_object &trimmed = named<packet_object>(library, packet);
            const bool is_all = size && size == trimmed.length;
            const std::uint32_t error = right(library, packet, is_all ? size - 1 : size);
            for (buffer_object *each = is_all ? trimmed.head : nullptr; each; each = each->next) {
                set_buffer_length(*each, 0);
            }
            return error;
        });
    faults.add<kel_trim_head, kel_trim_tail>(
        "keeps_offsets_of_nothing", "a packet trimmed to nothing keeps its offsets",
        [](auto right, state &library, kel_packet packet, uint32_t size) {
            packet_object &trimmed = named<packet_object>(library, packet);
            const auto offsets = trimmed.metadata.offsets;
            const std::uint32_t error = right(library, packet, size);
            if (!trimmed.head) trimmed.metadata.offsets = offsets;
            return error;
        });
    faults.add<kel_set_data>(
        "first_buffer_only", "no more than the first buffer is written",
        [](auto right, state &library, kel_packet packet, uint32_t kind, uint32_t offset,
           const void *source, uint32_t length) {
            const packet_object &written = named<packet_object>(library, packet);
            buffer_object *second = written.head ? written.head->next : nullptr;
            std::vector<unsigned char> others(chain_length(second));
            const auto size = static_cast<std::uint32_t>(others.size());
            copy_out(second, 0, others.data(), size);
            const std::uint32_t error = right(library, packet, kind, offset, source, length);
            copy_in(second, 0, others.data(), size);
            return error;
        });
}

// `change(made, source, position)` changes a duplicate, which was taken from `position` on.
template <typename changing>
void add_duplicate_fault(catalogue &faults, const char *kind, const char *meaning, changing)
{
    faults.add_to_made<kel_duplicate>(
        kind, meaning,
        [](state &library, kel_packet made, kel_packet packet, uint32_t offset_kind,
           uint32_t offset, uint32_t, uint32_t *) {
            const packet_object &source = *library.packets.find(packet);
            changing{}(*library.packets.find(made), source,
                       source.metadata.offsets[offset_kind] + offset);
        });
}

void add_duplicate_faults(catalogue &faults)
{
    add_duplicate_fault(faults, "from_front",
                        "the duplicate begins at the front whatever the offset",
                        [](packet_object &made, const packet_object &source, uint32_t) {
                            copy_chain(source.head, 0, made.head, made.length);
                            made.metadata.offsets = source.metadata.offsets;
                        });
    add_duplicate_fault(faults, "loses_metadata", "the duplicate has fresh metadata",
                        [](packet_object &made, const packet_object &, uint32_t) {
                            made.metadata = {};
                            set_fresh_metadata(made.metadata);
                        });
    add_duplicate_fault(
        faults, "loses_tag", "the duplicate has no tag",
        [](packet_object &made, const packet_object &, uint32_t) { made.metadata.tag = 0; });
    add_duplicate_fault(
        faults, "loses_ifids", "the duplicate has no interface ids",
        [](packet_object &made, const packet_object &, uint32_t) { made.metadata.ifids.fill(0); });
    add_duplicate_fault(
        faults, "loses_tlvs", "the duplicate has no TLVs",
        [](packet_object &made, const packet_object &, uint32_t) { made.tlvs.clear(); });
    add_duplicate_fault(faults, "loses_last_tlv", "the duplicate lacks the last TLV",
                        [](packet_object &made, const packet_object &, uint32_t) {
                            if (!made.tlvs.empty()) made.tlvs.pop_back();
                        });
    add_duplicate_fault(faults, "keeps_offsets", "the duplicate has the source's offsets",
                        [](packet_object &made, const packet_object &source, uint32_t) {
                            made.metadata.offsets = source.metadata.offsets;
                        });
    add_duplicate_fault(faults, "counts_data_offset",
                        "the duplicate's OFFSET_DATA says where it was copied from",
                        [](packet_object &made, const packet_object &, uint32_t position) {
                            made.metadata.offsets[OFFSET_DATA] = position;
                        });
    add_duplicate_fault(faults, "wraps_offsets", "an offset that would fall below 0 wraps",
                        [](packet_object &made, const packet_object &source, uint32_t position) {
                            auto &offsets = made.metadata.offsets;
                            for (std::size_t kind = OFFSET_NETWORK; kind < offsets.size(); kind++) {
                                offsets[kind] = source.metadata.offsets[kind] - position;
                            }
                        });
    faults.add<kel_duplicate>(
        "wrong_length", "the duplicate is one byte short",
        [](auto right, state &library, kel_packet packet, uint32_t kind, uint32_t offset,
           uint32_t length, uint32_t *error) {
            const kel_packet made = right(library, packet, kind, offset, length, error);
            if (!made) return made;
            const std::uint32_t taken = library.packets.find(made)->length;
            model::kel_free_packet(library, made);
            return model::kel_duplicate(library, packet, kind, offset, taken - 1, error);
        });
    faults.add<kel_duplicate>("other_group", "the duplicate is taken from the default memory",
                              [](auto right, state &library, kel_packet packet, auto... stretch) {
                                  const kept packets_group(
                                      named<packet_object>(library, packet).group,
                                      static_cast<bufgroup_object *>(nullptr));
                                  const kept heads_group(head_of(library, packet).group,
                                                         static_cast<bufgroup_object *>(nullptr));
                                  return right(library, packet, stretch...);
                              });
}

} // namespace

void add_packet_faults(catalogue &faults)
{
    add_obtaining_faults(faults);
    add_joining_faults(faults);
    add_reserving_faults(faults);
    add_growing_faults(faults);
    add_trimming_faults(faults);
    add_duplicate_faults(faults);
}

} // namespace kel_reference::faults

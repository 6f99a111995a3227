// SPDX-License-Identifier: MIT
//
// Faults of all operations that take something from the caller's memory: a library that keeps the
// address and reads there when it is asked, and one that copies when the next operation is called.
// Both write once more what the memory holds by then, before the operation that is next, or
// before all that follow.

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "reference/caller_memory.h"
#include "reference/faults/catalogue.h"

namespace kel_reference::faults {

namespace {

enum class when { once, always };

struct repeated_write {
    when wanted;
    std::function<bool(state &)> write; // false: there is nothing to write to, or from, any more
};

std::vector<repeated_write> &repeated()
{
    static auto &instance = *new std::vector<repeated_write>;
    return instance;
}

// `write(library, now)` after a success, with a copy of what stands at `source` by then.
void repeat(when wanted, const void *source, std::uint32_t length, auto write)
{
    const auto write_now = [=](state &library) {
        std::vector<std::byte> now(length);
        return read_caller_memory(source, now.data(), length) && write(library, now.data());
    };
    repeated().push_back({wanted, write_now});
}

// Likewise for a record.
template <typename record> void repeat(when wanted, const record *source, auto write)
{
    repeat(wanted, source, sizeof(record), [=](state &library, std::byte *now) {
        return write(library, reinterpret_cast<record *>(now));
    });
}

// A part of the data of a chain that lies together.
struct stretch {
    kel_buffer buffer;
    std::byte *memory;
    std::uint32_t length;
};

// Where `length` bytes from `position` on were written. They stay there when the chain is trimmed.
std::vector<stretch> stretches_of(const buffer_object *first, std::uint64_t position,
                                  std::uint32_t length)
{
    std::vector<stretch> found;
    for (const buffer_object *each = first; each && length; each = each->next) {
        const auto skipped =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(position, each->length));
        const std::uint32_t part = std::min(length, each->length - skipped);
        position -= skipped;
        if (!part) continue;
        found.push_back({each->handle, each->memory + each->data_start + skipped, part});
        length -= part;
    }
    return found;
}

void repeat_in_chain(when wanted, const buffer_object *first, std::uint64_t position,
                     const void *source, std::uint32_t length)
{
    const auto written = stretches_of(first, position, length);
    repeat(wanted, source, length, [written](state &library, const std::byte *now) {
        for (const stretch &each : written) {
            if (!library.buffers.find(each.buffer)) return false;
            std::memcpy(each.memory, now, each.length);
            now += each.length;
        }
        return true;
    });
}

template <when wanted>
void add_data_faults(catalogue &faults, const char *kind, const char *meaning)
{
    faults.add_after<kel_set_data>(
        kind, meaning,
        [](state &library, kel_packet packet, uint32_t from, uint32_t offset, const void *source,
           uint32_t length) {
            const packet_object &written = *library.packets.find(packet);
            const std::uint32_t start = from == OFFSET_DATA ? 0 : written.metadata.offsets[from];
            repeat_in_chain(wanted, written.head, std::uint64_t{start} + offset, source, length);
        });
    faults.add_after<kel_buf_set_data>(kind, meaning,
                                       [](state &library, kel_buffer buffer, uint32_t offset,
                                          const void *source, uint32_t length) {
                                           repeat_in_chain(wanted, library.buffers.find(buffer),
                                                           offset, source, length);
                                       });
    faults.add_after<kel_tlv_setdata>(
        kind, meaning,
        [](state &, kel_packet packet, uint32_t id, const void *source, uint32_t length) {
            repeat(wanted, source, length, [=](state &later, const void *now) {
                return model::kel_tlv_setdata(later, packet, id, now, length) == 0;
            });
        });
    faults.add_after<kel_tlv_set_versioned_data>(
        kind, meaning,
        [](state &, kel_packet packet, uint32_t id, const void *source, uint32_t length, uint16_t) {
            repeat(wanted, source, length, [=](state &later, const void *now) {
                return model::kel_tlv_setdata(later, packet, id, now, length) == 0;
            });
        });
}

template <when wanted>
void add_record_faults(catalogue &faults, const char *kind, const char *meaning)
{
    faults.add_after<kel_metadata_set>(
        kind, meaning, [](state &, kel_metadata_group *group, kel_packet packet) {
            const std::uint32_t mask = group->mask;
            repeat(wanted, group, [=](state &later, kel_metadata_group *now) {
                now->mask = mask;
                return model::kel_metadata_set(later, now, packet) == 0;
            });
        });
    faults.add_after<kel_bufgroup_set_params>(
        kind, meaning,
        [](state &, kel_client, kel_bufgroup group, uint32_t mask,
           const kel_bufgroup_thresholds *buffers, const kel_bufgroup_thresholds *bytes) {
            const auto repeat_record = [=](std::uint32_t bit, const auto *source, auto member) {
                if (!(mask & bit)) return;
                repeat(wanted, source, [=](state &later, kel_bufgroup_thresholds *now) {
                    named<bufgroup_object>(later, group).*member = *now;
                    return later.bufgroups.find(group) != nullptr;
                });
            };
            repeat_record(KEL_BUFGROUP_BUFFERS, buffers, &bufgroup_object::buffers);
            repeat_record(KEL_BUFGROUP_BYTES, bytes, &bufgroup_object::bytes);
        });
    faults.add_after<kel_event_add>(
        kind, meaning, [](state &, kel_client client, const kel_event *event) {
            const kel_event armed = *event;
            repeat(wanted, event, [=](state &later, const kel_event *now) {
                client_object &owner = named<client_object>(later, client);
                for (auto *events : {&owner.events, &owner.pending_events}) {
                    for (kel_event &each : *events) {
                        if (each.type != armed.type || each.object != armed.object) continue;
                        each.context1 = now->context1;
                        each.context2 = now->context2;
                    }
                }
                return owner.handle != 0;
            });
        });
}

} // namespace

void write_again(state &library)
{
    std::erase_if(repeated(), [&](const repeated_write &each) {
        return !each.write(library) || each.wanted == when::once;
    });
}

void add_writing_faults(catalogue &faults)
{
    constexpr const char *KEEPS = "what the caller's memory holds is taken when it is asked for";
    constexpr const char *LATE = "what the caller's memory holds is taken by the next operation";
    add_data_faults<when::always>(faults, "keeps_address", KEEPS);
    add_data_faults<when::once>(faults, "copies_late", LATE);
    add_record_faults<when::always>(faults, "keeps_address", KEEPS);
    add_record_faults<when::once>(faults, "copies_late", LATE);
}

} // namespace kel_reference::faults

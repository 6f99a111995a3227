// SPDX-License-Identifier: MIT
//
// Reserved buffer groups and their elements, and the operations that take many packets or buffers
// in one call.

#include "reference/bufgroup_reserved.h"

#include <cerrno>

#include "reference/bufgroup.h"
#include "reference/chain.h"
#include "reference/operations.h"
#include "reference/options.h"
#include "reference/packet.h"

namespace kel_reference {

namespace {

// Elements begin at a multiple of this many bytes.
constexpr std::uint64_t ALIGNMENT = 64;

std::uint64_t pitch_of(std::uint32_t element_size, std::uint32_t head_room)
{
    return (std::uint64_t{element_size} + head_room + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
}

struct reservation {
    std::uint32_t element_size;
    std::uint32_t element_count;
    std::uint32_t head_room;
    bool no_poison;
};

// A group with its elements; null when the memory cannot be had.
bufgroup_object *make_reserved_group(state &library, const char *name, const reservation &asked)
{
    const std::uint64_t distance = pitch_of(asked.element_size, asked.head_room);
    if (asked.element_count > arena::REGIONS_SIZE / distance) return nullptr;
    // Nothing is lost where there are elements: they fit into the arena.
    const auto pitch = static_cast<std::size_t>(distance);
    std::byte *elements = library.memory.allocate_region(pitch * asked.element_count);
    if (!elements) return nullptr;
    bufgroup_object *made = make_group(library, name);
    if (!made) {
        library.memory.free_region(elements);
        return nullptr;
    }
    made->reserved = true;
    made->no_poison = asked.no_poison;
    made->element_size = asked.element_size;
    made->head_room = asked.head_room;
    made->elements = {elements, pitch, asked.element_count};
    return made;
}

std::uint32_t register_reserved(state &library, client_object &client, kel_bufgroup &stored,
                                const char *name, const reservation &asked)
{
    bufgroup_object *group = find_group_by_name(library, name);
    if (group && !group->reserved) return EINVAL;
    if (!group) group = make_reserved_group(library, name, asked);
    if (!group) return ENOMEM;
    join_group(client, *group);
    stored = group->handle;
    return 0;
}

} // namespace

std::uint32_t elements_left(const bufgroup_object &group)
{
    return static_cast<std::uint32_t>(group.elements.left());
}

std::byte *take_element(bufgroup_object &group)
{
    std::byte *taken = group.elements.take();
    if (!taken) return nullptr;
    arena::unpoison(taken, group.elements.block_size());
    return taken + group.head_room;
}

void give_back_element(bufgroup_object &group, std::byte *within)
{
    std::byte *element = group.elements.block_at(within);
    if (!group.no_poison) arena::poison(element, group.elements.block_size());
    group.elements.give_back(element);
}

void release_elements(state &library, bufgroup_object &group)
{
    library.memory.free_region(group.elements.start());
}

uint32_t model::kel_register_reserved_bufgroup(state &library, kel_client client,
                                               kel_bufgroup *group, const char *name,
                                               uint32_t element_size, uint32_t element_count,
                                               uint32_t head_room, uint32_t no_poison)
{
    client_object *registering = library.clients.find(client);
    if (!registering || !group || !is_group_name(name)) return EINVAL;
    if (!element_size || !element_count) return EINVAL;
    const std::uint32_t room = chosen_options().reserved_head_room ? 0 : head_room;
    return register_reserved(library, *registering, *group, name,
                             {element_size, element_count, room, no_poison != 0});
}

uint32_t model::kel_get_packet_list(state &library, kel_packet_list *list)
{
    if (!list || list->count > KEL_LIST_MAX) return EINVAL;
    list->allocated = 0;
    for (std::uint32_t index = 0; index < KEL_LIST_MAX; index++) {
        list->results[index] = {};
        if (index >= list->count) continue;
        const kel_packet_request &asked = list->requests[index];
        std::uint32_t error = 0;
        const packet_object *made = make_packet(
            library,
            {asked.client, asked.group, asked.size, layout::gathered, asked.tlv, asked.tlv_size},
            error);
        list->results[index] = {made ? made->handle : 0,
                                chosen_options().list_result_error ? error : 0};
        if (made) list->allocated++;
    }
    return 0;
}

uint32_t model::kel_get_buffer_list(state &library, kel_client client, kel_bufgroup group,
                                    uint32_t size, uint8_t contiguous, uint16_t count,
                                    kel_buffer_list *list)
{
    payer charged{library.clients.find(client), nullptr};
    if (!charged.client || !list || count > KEL_LIST_MAX) return EINVAL;
    if (find_group_for_use(library, *charged.client, group, charged.group)) return EINVAL;
    const layout wanted = contiguous ? layout::contiguous : layout::spread;
    *list = {};
    while (list->allocated < count) {
        const obtained_chain chain = obtain_chain(library, charged, size, wanted);
        if (!chain.head) break;
        list->buffers[list->allocated++] = chain.head->handle;
    }
    return 0;
}

} // namespace kel_reference

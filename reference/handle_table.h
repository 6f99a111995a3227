// SPDX-License-Identifier: MIT
//
// Tables that give out 32-bit handles: kind, generation and slot in one number, so that a
// handle of another kind, one that never was and one that is stale are told apart from a
// valid one without touching what it might have named.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <new>
#include <optional>

#include "reference/intrusive_list.h"

namespace kel_reference {

// The top three bits of a handle. 0, 6 and 7 are no kinds: the well-known handles that name
// nothing begin with them and can never be given out.
enum class handle_kind : std::uint32_t { client = 1, packet = 2, buffer = 3, bufgroup = 4 };

// Objects have a member `handle`, which the table sets. Their addresses do not change.
template <typename object, handle_kind kind> class handle_table {
public:
    // The object, or null unless the handle is valid.
    object *find(std::uint32_t handle)
    {
        slot *found = slot_of(handle);
        return found && is_current(*found, handle) ? &*found->content : nullptr;
    }

    // Whether the handle was valid once and is not any more.
    bool is_stale(std::uint32_t handle)
    {
        const slot *found = slot_of(handle);
        if (!found || is_current(*found, handle)) return false;
        const bool all_generations_used = found->generation > GENERATIONS;
        return all_generations_used || generation_of(handle) < found->generation;
    }

    // A fresh object; null when the table is full or there is no memory for more.
    object *create()
    {
        slot *occupied = free_slots.size() > QUARANTINE ? nullptr : add_slot();
        if (!occupied) occupied = free_slots.front();
        if (!occupied) return nullptr;
        free_slots.remove(*occupied);
        object &created = occupied->content.emplace();
        created.handle = static_cast<std::uint32_t>(kind) << KIND_SHIFT |
                         (occupied->generation & GENERATIONS) << INDEX_BITS | occupied->index;
        return &created;
    }

    void release(object &released)
    {
        slot &freed = slots[released.handle & INDEX_MASK];
        freed.content.reset();
        freed.generation++;
        free_slots.push_back(freed);
    }

    std::size_t size() const { return slots.size() - free_slots.size(); }

    // Calls visit(object &) for every live object, in slot order.
    template <typename visitor> void for_each(visitor visit)
    {
        for (slot &each : slots) {
            if (each.content) visit(*each.content);
        }
    }

private:
    static constexpr std::uint32_t INDEX_BITS = 20;
    static constexpr std::uint32_t INDEX_MASK = (1u << INDEX_BITS) - 1;
    static constexpr std::uint32_t GENERATIONS = 0x1ff;
    static constexpr std::uint32_t KIND_SHIFT = 29;
    static constexpr std::uint32_t MAX_SLOTS = 1u << INDEX_BITS;
    // Freed slots rest until this many are free, so that it takes long until a handle is given
    // out a second time.
    static constexpr std::uint32_t QUARANTINE = 256;

    struct slot : list_node<slot> { // node in the list of free ones
        explicit slot(std::uint32_t position) : index(position) {}
        const std::uint32_t index;
        std::uint32_t generation = 0; // how often the slot was freed
        std::optional<object> content;
    };

    static std::uint32_t generation_of(std::uint32_t handle)
    {
        return handle >> INDEX_BITS & GENERATIONS;
    }

    static bool is_current(const slot &found, std::uint32_t handle)
    {
        return found.content && generation_of(handle) == (found.generation & GENERATIONS);
    }

    slot *slot_of(std::uint32_t handle)
    {
        const std::uint32_t index = handle & INDEX_MASK;
        return handle >> KIND_SHIFT == static_cast<std::uint32_t>(kind) && index < slots.size()
                   ? &slots[index]
                   : nullptr;
    }

    // A free slot behind the last; null when there is no room for one.
    slot *add_slot()
    {
        if (slots.size() == MAX_SLOTS) return nullptr;
        try {
            slots.emplace_back(static_cast<std::uint32_t>(slots.size()));
        } catch (const std::bad_alloc &) {
            return nullptr;
        }
        free_slots.push_back(slots.back());
        return &slots.back();
    }

    std::deque<slot> slots;
    intrusive_list<slot> free_slots; // in the order in which they became free
};

} // namespace kel_reference

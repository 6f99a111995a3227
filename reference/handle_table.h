// SPDX-License-Identifier: MIT
//
// Tables that give out 32-bit handles: kind, generation and slot in one number, so that a
// handle of another kind, one that never was and one that is stale are told apart from a
// valid one without touching what it might have named.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "reference/object_pool.h"

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
        return found && is_current(*found, handle) ? found->content : nullptr;
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
        object *created = objects.create();
        if (!created) return nullptr;
        std::uint32_t index = 0;
        if (free_count <= QUARANTINE && add_slot()) {
            index = static_cast<std::uint32_t>(slots.size() - 1);
        } else if (free_count) {
            index = take_free();
        } else {
            objects.destroy(*created);
            return nullptr;
        }
        slot &occupied = slots[index];
        occupied.content = created;
        created->handle = static_cast<std::uint32_t>(kind) << KIND_SHIFT |
                          (occupied.generation & GENERATIONS) << INDEX_BITS | index;
        return created;
    }

    void release(object &released)
    {
        const std::uint32_t index = released.handle & INDEX_MASK;
        slot &freed = slots[index];
        objects.destroy(*freed.content);
        freed.content = nullptr;
        freed.generation++;
        put_free(index);
    }

    std::size_t size() const { return slots.size() - free_count; }

    // Calls visit(object &) for every live object, in slot order.
    template <typename visitor> void for_each(visitor visit)
    {
        for (const slot &each : slots) {
            if (each.content) visit(*each.content);
        }
    }

private:
    static constexpr std::uint32_t INDEX_BITS = 20;
    static constexpr std::uint32_t INDEX_MASK = (1u << INDEX_BITS) - 1;
    static constexpr std::uint32_t GENERATIONS = 0x1ff;
    static constexpr std::uint32_t KIND_SHIFT = 29;
    static constexpr std::uint32_t MAX_SLOTS = 1u << INDEX_BITS;
    // Freed slots rest until this many are free, so that a stale handle stays one for long.
    static constexpr std::uint32_t QUARANTINE = 256;

    struct slot {
        object *content = nullptr;    // null: the slot is free
        std::uint32_t generation = 0; // how often the slot was freed
        std::uint32_t next_free = 0;
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

    // A slot behind the last; false when there is no room for one.
    bool add_slot()
    {
        if (slots.size() == MAX_SLOTS) return false;
        try {
            slots.emplace_back();
        } catch (const std::bad_alloc &) {
            return false;
        }
        return true;
    }

    // Free slots are used again in the order in which they became free.
    std::uint32_t take_free()
    {
        const std::uint32_t taken = first_free;
        first_free = slots[taken].next_free;
        free_count--;
        return taken;
    }

    void put_free(std::uint32_t index)
    {
        if (free_count) {
            slots[last_free].next_free = index;
        } else {
            first_free = index;
        }
        last_free = index;
        free_count++;
    }

    std::vector<slot> slots;
    object_pool<object> objects;
    std::uint32_t free_count = 0;
    std::uint32_t first_free = 0; // of free_count slots
    std::uint32_t last_free = 0;
};

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Memory for objects of one type. What was given back last is used first, while it is still in
// the processor's cache. Memory goes back to the system never: tables stay as large as they
// had to be once.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

namespace kel_reference {

template <typename object> class object_pool {
public:
    // A fresh object; null when there is no memory.
    object *create()
    {
        if (!first_free && fresh_left == 0 && !add_chunk()) return nullptr;
        return ::new (first_free ? take_free() : take_fresh()) object;
    }

    void destroy(object &destroyed)
    {
        destroyed.~object();
        first_free = ::new (&destroyed) free_place{first_free};
    }

private:
    static constexpr std::size_t CHUNK_OBJECTS = 256;

    struct free_place {
        free_place *next;
    };
    union place {
        free_place free;
        alignas(object) std::array<std::byte, sizeof(object)> used;
    };
    using chunk = std::array<place, CHUNK_OBJECTS>;

    bool add_chunk()
    {
        try {
            chunks.push_back(std::make_unique_for_overwrite<chunk>());
        } catch (const std::bad_alloc &) {
            return false;
        }
        fresh_left = CHUNK_OBJECTS;
        return true;
    }

    void *take_free()
    {
        free_place *taken = first_free;
        first_free = taken->next;
        return taken;
    }

    void *take_fresh() { return &(*chunks.back())[--fresh_left]; }

    std::vector<std::unique_ptr<chunk>> chunks;
    std::size_t fresh_left = 0; // in the last chunk
    free_place *first_free = nullptr;
};

} // namespace kel_reference

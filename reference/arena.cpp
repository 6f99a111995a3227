// SPDX-License-Identifier: MIT
//
// The buffer memory: pools of blocks, and the stretches of reserved groups.

#include "reference/arena.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "reference/options.h"

#if defined(__SANITIZE_ADDRESS__)
#define ARENA_TELLS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ARENA_TELLS_SANITIZER 1
#endif
#endif

#ifdef ARENA_TELLS_SANITIZER
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size)                                                   \
    (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size)                                                 \
    (static_cast<void>(address), static_cast<void>(size))
#endif

namespace kel_reference {

// With room to take back all that is given out, so that freeing needs no memory.
block_pool::block_pool(std::byte *start, std::size_t block_size, std::size_t count)
    : first(start), pitch(block_size), blocks(count)
{
    freed.reserve(count);
}

std::byte *block_pool::take()
{
    if (!freed.empty()) {
        std::byte *taken = freed.back();
        freed.pop_back();
        return taken;
    }
    if (fresh_from == blocks) return nullptr;
    std::byte *taken = first + fresh_from * pitch;
    // The next one, too: until it is taken nobody else forbids its use.
    ASAN_POISON_MEMORY_REGION(taken, std::min<std::size_t>(blocks - fresh_from, 2) * pitch);
    fresh_from++;
    return taken;
}

std::byte *block_pool::block_at(const std::byte *within) const
{
    return first + static_cast<std::size_t>(within - first) / pitch * pitch;
}

arena::arena()
{
    void *area = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (area == MAP_FAILED) return;
    base = static_cast<std::byte *>(area);
    for (std::size_t index = 0; index < POOLS; index++) {
        const std::size_t block_size = std::size_t{MIN_BLOCK} << index;
        pools[index] = {base + index * POOL_SIZE, block_size, POOL_SIZE / block_size};
    }
}

std::byte *arena::allocate(std::uint32_t size)
{
    std::byte *block = pool_for(size).take();
    if (block) unpoison(block, size);
    return block;
}

void arena::free(std::byte *block, std::uint32_t size)
{
    poison(block, size);
    pool_for(size).give_back(block);
}

std::byte *arena::allocate_region(std::size_t size)
{
    if (!base || size == 0 || size > REGIONS_SIZE) return nullptr;
    // The first gap that is large enough.
    std::byte *place = base + POOLS * POOL_SIZE;
    for (const auto &[taken, taken_size] : regions) {
        if (static_cast<std::size_t>(taken - place) >= size) break;
        place = taken + taken_size;
    }
    if (static_cast<std::size_t>(base + SIZE - place) < size) return nullptr;
    regions.emplace(place, size);
    ASAN_POISON_MEMORY_REGION(place, size);
    return place;
}

void arena::free_region(std::byte *region)
{
    const auto freed = regions.find(region);
    ASAN_POISON_MEMORY_REGION(region, freed->second);
    regions.erase(freed);
}

void arena::poison(std::byte *block, std::size_t size)
{
    std::memset(block, static_cast<int>(chosen_options().poison_byte), size);
    ASAN_POISON_MEMORY_REGION(block, size);
}

void arena::unpoison(std::byte *block, std::size_t size)
{
    ASAN_UNPOISON_MEMORY_REGION(block, size);
}

void arena::leave_unwritten(std::byte *data, std::size_t size)
{
    if (const std::uint32_t byte = chosen_options().unwritten_byte) {
        std::memset(data, static_cast<int>(byte), size);
    }
}

std::size_t arena::bytes_in_use() const
{
    std::size_t used = 0;
    for (const block_pool &pool : pools) used += pool.bytes_in_use();
    for (const auto &[region, size] : regions) used += size;
    return used;
}

block_pool &arena::pool_for(std::uint32_t size)
{
    const std::uint32_t block_size = std::bit_ceil(std::max(size, MIN_BLOCK));
    return pools[static_cast<std::size_t>(std::countr_zero(block_size / MIN_BLOCK))];
}

} // namespace kel_reference

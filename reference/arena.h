// SPDX-License-Identifier: MIT
//
// The buffer memory: one area that all buffers are carved from, so that addresses, physical
// addresses and distances mean something. Freed memory is poisoned, for AddressSanitizer too
// where that runs.
//
// The area begins with a pool of blocks for each power of two: no size can keep memory from
// another. The rest is for the elements of reserved groups.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace kel_reference {

// Memory cut into blocks of one size. What was given back last is taken first.
class block_pool {
public:
    block_pool() = default;
    block_pool(std::byte *start, std::size_t block_size, std::size_t count);

    // The memory of a block, which may not be touched before it is unpoisoned; null when all are
    // taken.
    std::byte *take();
    void give_back(std::byte *block) { freed.push_back(block); }

    std::size_t left() const { return blocks - fresh_from + freed.size(); }
    std::size_t bytes_in_use() const { return (fresh_from - freed.size()) * pitch; }
    std::size_t block_size() const { return pitch; }
    std::byte *start() const { return first; }
    // The block that `within` is an address of.
    std::byte *block_at(const std::byte *within) const;

private:
    std::byte *first = nullptr;
    std::size_t pitch = 1;
    std::size_t blocks = 0;
    std::size_t fresh_from = 0; // blocks from this one on have never been taken
    std::vector<std::byte *> freed;
};

class arena {
public:
    // The largest block, and so the largest contiguous buffer that can be chosen.
    static constexpr std::uint32_t MAX_BLOCK = 65536;
    static constexpr std::size_t REGIONS_SIZE = std::size_t{256} << 20;

    arena();
    arena(const arena &) = delete;
    arena &operator=(const arena &) = delete;

    // Memory for `size` bytes, at most MAX_BLOCK; null when there is none. A size of 0 gets
    // an address, too.
    std::byte *allocate(std::uint32_t size);
    // Poisons the block and takes it back; `size` as it was allocated.
    void free(std::byte *block, std::uint32_t size);

    // A stretch of any size for the elements of a reserved group; null when there is none.
    // None of it may be touched before it is unpoisoned.
    std::byte *allocate_region(std::size_t size);
    void free_region(std::byte *region);

    // Overwrites memory that was freed and forbids its use / allows the use.
    static void poison(std::byte *block, std::size_t size);
    static void unpoison(std::byte *block, std::size_t size);

    // Data that nobody has written yet: what it holds is nobody's promise.
    static void leave_unwritten(std::byte *data, std::size_t size);

    // Both 0 when the system refused the area: nothing can be allocated then.
    std::byte *start() const { return base; }
    std::size_t size() const { return base ? SIZE : 0; }
    std::size_t bytes_in_use() const;
    static constexpr std::uint64_t PHYSICAL_START = 0x1'0000'0000;
    static constexpr std::uint64_t KERNEL_START = 0xffff'8881'0000'0000;
    std::uint64_t physical_address(const std::byte *address) const
    {
        return PHYSICAL_START + static_cast<std::uint64_t>(address - base);
    }

private:
    static constexpr std::uint32_t MIN_BLOCK = 128;
    static constexpr std::size_t POOLS = 10; // from MIN_BLOCK to MAX_BLOCK
    static_assert(MIN_BLOCK << (POOLS - 1) == MAX_BLOCK);
    // A million of the smallest blocks, where there are addresses enough.
    static constexpr std::size_t POOL_SIZE = std::size_t{sizeof(void *) > 4 ? 128 : 64} << 20;
    static constexpr std::size_t SIZE = POOLS * POOL_SIZE + REGIONS_SIZE;

    block_pool &pool_for(std::uint32_t size);

    std::byte *base = nullptr;
    std::array<block_pool, POOLS> pools;
    std::map<std::byte *, std::size_t> regions; // taken ones, with their sizes
};

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// The buffer memory: one area that all buffers are carved from, so that addresses, physical
// addresses and distances mean something. Freed memory is poisoned, for AddressSanitizer
// too where that runs.
//
// The area is divided into spans of one size. A span holds blocks of one size class, or
// belongs with its neighbours to the elements of a reserved group. It becomes free again
// with its last block, or, as the only one of its class with room, when another needs it: no
// size can keep memory from the others for good, and one that comes and goes alone does not
// open and close its span each time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kel_reference {

class arena {
public:
    // The largest block, and so the largest contiguous buffer that can be chosen.
    static constexpr std::uint32_t MAX_BLOCK = 65536;
    static constexpr std::size_t SIZE = std::size_t{256} << 20;

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
    void free_region(std::byte *region, std::size_t size);

    // Overwrites memory that was freed and forbids its use / allows the use.
    static void poison(std::byte *block, std::size_t size);
    static void unpoison(std::byte *block, std::size_t size);

    // Both 0 when the system refused the area: nothing can be allocated then.
    std::byte *start() const { return base; }
    std::size_t size() const { return base ? SIZE : 0; }
    std::size_t bytes_in_use() const { return used_bytes; }
    static constexpr std::uint64_t PHYSICAL_START = 0x1'0000'0000;
    static constexpr std::uint64_t KERNEL_START = 0xffff'8881'0000'0000;
    std::uint64_t physical_address(const std::byte *address) const
    {
        return PHYSICAL_START + static_cast<std::uint64_t>(address - base);
    }

private:
    static constexpr std::size_t SPAN_SIZE = std::size_t{128} << 10;
    static constexpr std::size_t SPANS = SIZE / SPAN_SIZE;
    // All multiples of a cache line; those of buffers in common use waste little.
    static constexpr std::array<std::uint32_t, 18> BLOCK_SIZES = {
        128,  256,  512,  768,  1024,  1536,  2048,  3072,  4096,
        5120, 6144, 8192, 9216, 12288, 16384, 24576, 32768, 65536};
    static constexpr std::size_t MAX_BLOCKS = SPAN_SIZE / BLOCK_SIZES.front();
    static constexpr std::uint16_t NONE = 0xffff;

    static constexpr std::uint32_t UNIT = BLOCK_SIZES.front(); // divides them all

    // Set up when it is opened, so that the memory of those that never are is never touched.
    struct span {
        std::array<std::uint64_t, MAX_BLOCKS / 64> free_blocks; // a bit each
        std::uint16_t used_blocks;
        // Neighbours in the list of its class's spans that have free blocks.
        std::uint16_t next;
        std::uint16_t previous;
    };

    static std::size_t class_of(std::uint32_t size);
    static std::size_t blocks_in_span(std::size_t size_class);
    std::byte *span_start(std::size_t index) const { return base + index * SPAN_SIZE; }
    bool span_is_free(std::size_t index) const;
    void mark_span(std::size_t index, bool is_free);
    std::uint16_t find_free_span() const;
    bool open_span(std::size_t size_class);
    void close_span(std::size_t size_class, std::uint16_t index);
    void close_empty_spans();
    void list_span(std::size_t size_class, std::uint16_t index);
    void unlist_span(std::size_t size_class, std::uint16_t index);

    std::byte *base = nullptr;
    std::size_t used_bytes = 0;
    std::unique_ptr<std::array<span, SPANS>> spans;
    std::array<std::uint64_t, SPANS / 64> free_spans{};
    std::array<std::uint16_t, BLOCK_SIZES.size()> with_free_blocks{};
};

} // namespace kel_reference

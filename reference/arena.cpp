// SPDX-License-Identifier: MIT
//
// The buffer memory: spans, their blocks, and the stretches of reserved groups.

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

arena::arena() : spans(std::make_unique_for_overwrite<std::array<span, SPANS>>())
{
    free_spans.fill(~std::uint64_t{0});
    with_free_blocks.fill(NONE);
    void *area = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (area == MAP_FAILED) {
        free_spans.fill(0);
        return;
    }
    base = static_cast<std::byte *>(area);
}

std::byte *arena::allocate(std::uint32_t size)
{
    const std::size_t size_class = class_of(size);
    if (with_free_blocks[size_class] == NONE && !open_span(size_class)) return nullptr;
    const std::uint16_t index = with_free_blocks[size_class];
    span &chosen = (*spans)[index];
    const auto word =
        std::ranges::find_if(chosen.free_blocks, [](std::uint64_t bits) { return bits != 0; });
    const auto bit = static_cast<std::size_t>(std::countr_zero(*word));
    *word &= *word - 1;
    chosen.used_blocks++;
    if (chosen.used_blocks == blocks_in_span(size_class)) unlist_span(size_class, index);

    used_bytes += BLOCK_SIZES[size_class];
    const auto block = static_cast<std::size_t>(word - chosen.free_blocks.begin()) * 64 + bit;
    std::byte *allocated = span_start(index) + block * BLOCK_SIZES[size_class];
    unpoison(allocated, size);
    return allocated;
}

void arena::free(std::byte *block, std::uint32_t size)
{
    poison(block, size);
    const std::size_t size_class = class_of(size);
    const auto position = static_cast<std::size_t>(block - base);
    const auto index = static_cast<std::uint16_t>(position / SPAN_SIZE);
    const auto in_span = static_cast<std::uint32_t>(position % SPAN_SIZE);
    const std::uint32_t number = in_span / BLOCK_SIZES[size_class];
    span &owner = (*spans)[index];

    owner.free_blocks[number / 64] |= std::uint64_t{1} << number % 64;
    if (owner.used_blocks == blocks_in_span(size_class)) list_span(size_class, index);
    owner.used_blocks--;
    used_bytes -= BLOCK_SIZES[size_class];
    const bool has_neighbours = owner.next != NONE || owner.previous != NONE;
    if (owner.used_blocks == 0 && has_neighbours) close_span(size_class, index);
}

std::byte *arena::allocate_region(std::size_t size)
{
    if (size == 0 || size > SIZE) return nullptr;
    close_empty_spans();
    const std::size_t needed = (size + SPAN_SIZE - 1) / SPAN_SIZE;
    std::size_t found = 0;
    // From the top down: the blocks begin at the bottom.
    for (std::size_t index = SPANS; index-- > 0;) {
        found = span_is_free(index) ? found + 1 : 0;
        if (found < needed) continue;
        for (std::size_t taken = index; taken < index + needed; taken++) mark_span(taken, false);
        used_bytes += needed * SPAN_SIZE;
        ASAN_POISON_MEMORY_REGION(span_start(index), needed * SPAN_SIZE);
        return span_start(index);
    }
    return nullptr;
}

void arena::free_region(std::byte *region, std::size_t size)
{
    const std::size_t first = static_cast<std::size_t>(region - base) / SPAN_SIZE;
    const std::size_t count = (size + SPAN_SIZE - 1) / SPAN_SIZE;
    ASAN_POISON_MEMORY_REGION(region, count * SPAN_SIZE);
    madvise(region, count * SPAN_SIZE, MADV_DONTNEED);
    for (std::size_t index = first; index < first + count; index++) mark_span(index, true);
    used_bytes -= count * SPAN_SIZE;
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

std::size_t arena::class_of(std::uint32_t size)
{
    static constexpr auto BY_UNITS = [] {
        std::array<std::uint8_t, MAX_BLOCK / UNIT + 1> classes{};
        for (std::uint32_t units = 0; units < classes.size(); units++) {
            while (BLOCK_SIZES[classes[units]] < units * UNIT) classes[units]++;
        }
        return classes;
    }();
    return BY_UNITS[(size + UNIT - 1) / UNIT];
}

std::size_t arena::blocks_in_span(std::size_t size_class)
{
    static constexpr auto BY_CLASS = [] {
        std::array<std::uint16_t, BLOCK_SIZES.size()> blocks{};
        std::ranges::transform(BLOCK_SIZES, blocks.begin(), [](std::uint32_t block_size) {
            return static_cast<std::uint16_t>(SPAN_SIZE / block_size);
        });
        return blocks;
    }();
    return BY_CLASS[size_class];
}

bool arena::span_is_free(std::size_t index) const
{
    return free_spans[index / 64] >> index % 64 & 1;
}

void arena::mark_span(std::size_t index, bool is_free)
{
    const std::uint64_t bit = std::uint64_t{1} << index % 64;
    free_spans[index / 64] = is_free ? free_spans[index / 64] | bit : free_spans[index / 64] & ~bit;
}

// The first free span; NONE when all are taken.
std::uint16_t arena::find_free_span() const
{
    const auto word =
        std::ranges::find_if(free_spans, [](std::uint64_t bits) { return bits != 0; });
    if (word == free_spans.end()) return NONE;
    const auto before = static_cast<std::size_t>(word - free_spans.begin()) * 64;
    return static_cast<std::uint16_t>(before + static_cast<std::size_t>(std::countr_zero(*word)));
}

// Lists a span of free blocks of the class; false when there is none.
bool arena::open_span(std::size_t size_class)
{
    if (find_free_span() == NONE) close_empty_spans();
    const std::uint16_t index = find_free_span();
    if (index == NONE) return false;
    mark_span(index, false);
    ASAN_POISON_MEMORY_REGION(span_start(index), SPAN_SIZE);

    span &opened = (*spans)[index];
    const std::size_t blocks = blocks_in_span(size_class);
    opened.free_blocks.fill(0);
    for (std::size_t block = 0; block < blocks; block += 64) {
        const std::size_t left = blocks - block;
        opened.free_blocks[block / 64] =
            left >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << left) - 1;
    }
    opened.used_blocks = 0;
    list_span(size_class, index);
    return true;
}

void arena::close_span(std::size_t size_class, std::uint16_t index)
{
    unlist_span(size_class, index);
    mark_span(index, true);
}

// Each class has one at most.
void arena::close_empty_spans()
{
    for (std::size_t size_class = 0; size_class < with_free_blocks.size(); size_class++) {
        for (std::uint16_t index = with_free_blocks[size_class]; index != NONE;
             index = (*spans)[index].next) {
            if ((*spans)[index].used_blocks) continue;
            close_span(size_class, index);
            break;
        }
    }
}

void arena::list_span(std::size_t size_class, std::uint16_t index)
{
    span &listed = (*spans)[index];
    listed.previous = NONE;
    listed.next = with_free_blocks[size_class];
    if (listed.next != NONE) (*spans)[listed.next].previous = index;
    with_free_blocks[size_class] = index;
}

void arena::unlist_span(std::size_t size_class, std::uint16_t index)
{
    span &unlisted = (*spans)[index];
    if (unlisted.previous != NONE) {
        (*spans)[unlisted.previous].next = unlisted.next;
    } else {
        with_free_blocks[size_class] = unlisted.next;
    }
    if (unlisted.next != NONE) (*spans)[unlisted.next].previous = unlisted.previous;
    unlisted.next = NONE;
    unlisted.previous = NONE;
}

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// Single buffers, chains of buffers and the buffer memory.

#include "tests/contract/contract.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>

using namespace contract;

namespace {

// Two and more 1500-byte buffers linked to one chain, with `data` in it.
buffer new_chain(kel_client owner, const bytes &data, std::uint32_t size = 1500)
{
    buffer head = new_buffer(owner, size);
    for (std::size_t more = size; more < data.size(); more += size) {
        EXPECT_OK(kel_buf_append(head, new_buffer(owner, size).give()));
    }
    write_chain(head, data);
    return head;
}

class buf_contract : public contract::test {
protected:
    client owner = new_client();
    void TearDown() override
    {
        EXPECT_OK(kel_deregister_client(owner.give()));
        contract::test::TearDown();
    }
};

// How many buffers of the size there is memory for.
std::size_t most_buffers(kel_client owner, std::uint32_t size)
{
    std::vector<buffer> held;
    while (const kel_buffer obtained = kel_get_buffer(owner, 0, size, 1, nullptr)) {
        held.emplace_back(obtained);
    }
    return held.size();
}

TEST_F(buf_contract, memory_serves_every_size_again)
{
    constexpr std::uint32_t LARGEST = 16384;
    const std::size_t most = most_buffers(owner, LARGEST);
    EXPECT_GT(most, 0u);
    for (std::uint32_t size = 64; size < LARGEST; size *= 2) new_buffer(owner, size);
    EXPECT_EQ(most_buffers(owner, LARGEST), most);
}

TEST_F(buf_contract, memory_is_described)
{
    std::uint64_t start = 0;
    std::uint32_t length = 0;
    ASSERT_OK(kel_get_bufmem_start(&start, &length));
    EXPECT_NE(start, 0u);
    EXPECT_NE(length, 0u);
    EXPECT_ERROR(kel_get_bufmem_start(nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_get_bufmem_start(&start, nullptr), EINVAL);
    EXPECT_ERROR(kel_get_bufmem_start(nullptr, &length), EINVAL);

    std::uint64_t paddr = 0;
    std::uint64_t vaddr = 0;
    std::uint64_t kvaddr = 0;
    std::uint32_t info_length = 0;
    ASSERT_OK(kel_get_bufmem_info(&paddr, &vaddr, &kvaddr, &info_length));
    EXPECT_NE(paddr, 0u);
    EXPECT_NE(vaddr, 0u);
    EXPECT_NE(kvaddr, 0u);
    EXPECT_EQ(info_length, length);
    EXPECT_ERROR(kel_get_bufmem_info(&paddr, &vaddr, &kvaddr, nullptr), EINVAL);

    const buffer inside = new_buffer(owner);
    const auto address = reinterpret_cast<std::uintptr_t>(data_start(inside));
    EXPECT_GE(address, vaddr);
    EXPECT_LE(address + 1500, vaddr + length);
}

struct size_row {
    std::uint32_t size;
    std::uint8_t contiguous;
    std::uint32_t error;
    std::uint32_t most_buffers;
};

void PrintTo(const size_row &row, std::ostream *stream)
{
    *stream << row.size << (row.contiguous ? " contiguous" : " spread");
}

class size_contract : public buf_contract, public testing::WithParamInterface<size_row> {};

TEST_P(size_contract, is_granted_exactly_or_refused)
{
    const size_row &row = GetParam();
    std::uint32_t error = 4711;
    const buffer obtained(kel_get_buffer(owner, 0, row.size, row.contiguous, &error));
    EXPECT_ERROR(error, row.error);
    EXPECT_EQ(obtained != 0, row.error == 0);
    const buffer without_error(kel_get_buffer(owner, 0, row.size, row.contiguous, nullptr));
    EXPECT_EQ(without_error != 0, row.error == 0);
    EXPECT_EQ(usage_of_client(owner).bytes, row.error ? 0 : 2 * row.size);
    if (row.error) return;

    EXPECT_EQ(chain_length(obtained), row.size);
    EXPECT_GE(kel_buf_get_buf_count(obtained), 1u);
    EXPECT_LE(kel_buf_get_buf_count(obtained), row.most_buffers);
    const bytes data = pattern(row.size);
    write_chain(obtained, data);
    EXPECT_EQ(read_chain(obtained), data);
}

INSTANTIATE_TEST_SUITE_P(
    sizes, size_contract,
    testing::Values(size_row{1, 1, 0, 1}, size_row{1500, 1, 0, 1}, size_row{9000, 1, 0, 1},
                    size_row{9000, 0, 0, 12}, size_row{5000, 0, 0, 1}, size_row{65536, 0, 0, 12},
                    size_row{65536, 1, ENOMEM, 0}, size_row{99'999'999, 0, ENOMEM, 0},
                    size_row{99'999'999, 1, ENOMEM, 0}, size_row{0xffffffff, 0, ENOMEM, 0}));

TEST_F(buf_contract, refused_for_unknown_clients_and_groups)
{
    for (const kel_client bad : {0u, BAD_CLIENT}) {
        std::uint32_t error = 0;
        EXPECT_EQ(kel_get_buffer(bad, 0, 1500, 1, &error), 0u);
        EXPECT_ERROR(error, EINVAL);
        EXPECT_EQ(kel_get_buffer(bad, 0, 1500, 1, nullptr), 0u);
    }
    std::uint32_t error = 0;
    EXPECT_EQ(kel_get_buffer(owner, 0xdeadbeef, 1500, 1, &error), 0u);
    EXPECT_ERROR(error, EINVAL);
}

TEST_F(buf_contract, freeing)
{
    buffer single = new_buffer(owner);
    const kel_buffer freed = single.give();
    EXPECT_OK(kel_free_buffer(freed));
    EXPECT_ERROR(kel_free_buffer(freed), EPERM);
    EXPECT_ERROR(kel_free_bufchain(freed), EPERM);
    for (const kel_buffer bad : {0u, BAD_BUFFER}) {
        EXPECT_ERROR(kel_free_buffer(bad), EINVAL);
        EXPECT_ERROR(kel_free_bufchain(bad), EINVAL);
    }
    for (int reuse = 0; reuse < 10'000; reuse++) {
        EXPECT_NE(new_buffer(owner, 64), freed) << "given out again after " << reuse;
    }
    EXPECT_ERROR(kel_free_buffer(freed), EPERM) << "a stale handle was forgotten";
}

TEST_F(buf_contract, freeing_within_a_chain)
{
    buffer head = new_chain(owner, pattern(4500));
    const kel_buffer middle = kel_buf_get_next(head);
    const kel_buffer last = kel_buf_get_next(middle);
    EXPECT_OK(kel_free_buffer(middle));
    EXPECT_EQ(kel_buf_get_next(head), last);
    EXPECT_EQ(read_chain(head),
              joined(part(pattern(4500), 0, 1500), part(pattern(4500), 3000, 1500)));

    EXPECT_OK(kel_free_buffer(head.give()));
    EXPECT_EQ(kel_buf_get_buf_count(last), 1u);
    EXPECT_OK(kel_free_bufchain(last));
    EXPECT_ERROR(kel_free_buffer(last), EPERM);
}

TEST_F(buf_contract, buffer_of_a_packet_is_not_freed_by_itself)
{
    packet holder = new_packet(owner);
    const kel_buffer head = kel_get_buf_head(holder);
    EXPECT_ERROR(kel_free_buffer(head), EPERM);
    EXPECT_ERROR(kel_free_bufchain(head), EPERM);
    EXPECT_OK(kel_free_packet(holder.give()));
    EXPECT_ERROR(kel_free_buffer(head), EPERM);
}

// A chain is its first buffer's: the others stand in it until it goes.
class shared_chain_contract : public contract::test {
protected:
    client owner = new_client();
    client other = new_client();
    bytes data = pattern(1536);
    // Of 512 bytes each: the owner's, the other's, the owner's.
    kel_buffer chain = new_buffer(owner, 512).give();
    kel_buffer middle = new_buffer(other, 512).give();

    void SetUp() override
    {
        test::SetUp();
        ASSERT_OK(kel_buf_append(chain, middle));
        ASSERT_OK(kel_buf_append(chain, new_buffer(owner, 512).give()));
        write_chain(chain, data);
    }

    void TearDown() override
    {
        for (client *each : {&owner, &other}) {
            if (*each) {
                EXPECT_OK(kel_deregister_client(each->give()));
            }
        }
        test::TearDown();
    }
};

TEST_F(shared_chain_contract, outlives_a_client_that_appended_to_it)
{
    ASSERT_OK(kel_deregister_client(other.give()));
    EXPECT_EQ(kel_buf_get_buf_count(chain), 3u);
    EXPECT_EQ(read_chain(chain), data);
    EXPECT_EQ(usage_of_client(owner), (usage{2, 1024}));
    EXPECT_EQ(take_census().released_by_deregistration, released_before);
    ASSERT_OK(kel_free_bufchain(chain));
    EXPECT_EQ(take_census().buffers, 0u);
}

TEST_F(shared_chain_contract, goes_with_the_client_of_its_first_buffer)
{
    leaves_objects_to_deregistration();
    ASSERT_OK(kel_deregister_client(owner.give()));
    EXPECT_EQ(take_census().buffers, 0u);
    EXPECT_EQ(take_census().released_by_deregistration, released_before + 3);
    EXPECT_EQ(usage_of_client(other), (usage{0, 0}));
    EXPECT_ERROR(kel_free_buffer(chain), EPERM);
    EXPECT_ERROR(kel_free_buffer(middle), EPERM);
}

TEST_F(shared_chain_contract, goes_whole_when_both_have_gone)
{
    leaves_objects_to_deregistration();
    ASSERT_OK(kel_deregister_client(other.give()));
    ASSERT_OK(kel_deregister_client(owner.give()));
    EXPECT_EQ(take_census().buffers, 0u);
    EXPECT_ERROR(kel_free_bufchain(middle), EPERM);
}

TEST_F(buf_contract, append)
{
    buffer first = new_buffer(owner, 512);
    const buffer second = new_buffer(owner, 512);
    write_chain(first, pattern(512, 1));
    write_chain(second, pattern(512, 2));
    for (const kel_buffer bad : {0u, BAD_BUFFER}) {
        EXPECT_ERROR(kel_buf_append(bad, second), EINVAL);
        EXPECT_ERROR(kel_buf_append(first, bad), EINVAL);
    }
    EXPECT_ERROR(kel_buf_append(first, first), EINVAL);
    EXPECT_EQ(kel_buf_get_buf_count(first), 1u);
    EXPECT_EQ(kel_buf_get_next(first), 0u);

    buffer appended = new_buffer(owner, 512);
    write_chain(appended, pattern(512, 3));
    const kel_buffer tail = appended.give();
    ASSERT_OK(kel_buf_append(first, tail));
    EXPECT_EQ(kel_buf_get_next(first), tail);
    EXPECT_EQ(kel_buf_get_next(tail), 0u);
    EXPECT_EQ(kel_buf_get_buf_count(first), 2u);
    EXPECT_EQ(kel_buf_get_buf_count(tail), 1u);
    EXPECT_EQ(read_chain(first), joined(pattern(512, 1), pattern(512, 3)));
    EXPECT_ERROR(kel_buf_append(first, tail), EINVAL) << "one chain, linked to a ring";
    EXPECT_ERROR(kel_buf_append(tail, first), EINVAL) << "one chain, linked to a ring";
}

TEST_F(buf_contract, walks_end_at_unknown_buffers)
{
    for (const kel_buffer bad : {0u, BAD_BUFFER}) {
        EXPECT_EQ(kel_buf_get_next(bad), 0u);
        EXPECT_EQ(kel_buf_get_buf_count(bad), 0u);
    }
}

struct dptr_row {
    std::uint32_t reserved;
    std::int32_t offset;
    std::uint32_t error;
    std::uint32_t length;
};

void PrintTo(const dptr_row &row, std::ostream *stream)
{
    *stream << "offset " << row.offset << ", " << row.reserved << " reserved";
}

class dptr_contract : public buf_contract, public testing::WithParamInterface<dptr_row> {};

TEST_P(dptr_contract, gives_address_and_rest)
{
    const dptr_row &row = GetParam();
    const buffer single = new_buffer(owner);
    if (row.reserved) {
        ASSERT_OK(kel_buf_reserve_space(single, row.reserved));
    }
    const std::uint8_t *start = data_start(single);
    void *data = nullptr;
    std::uint32_t length = 4711;
    ASSERT_PRED_FORMAT2(has_error, kel_buf_get_dptr(single, row.offset, &data, &length), row.error);
    if (row.error) return;
    EXPECT_EQ(data, start + row.offset);
    EXPECT_EQ(length, row.length);
}

INSTANTIATE_TEST_SUITE_P(offsets, dptr_contract,
                         testing::Values(dptr_row{0, 0, 0, 1500}, dptr_row{0, 64, 0, 1436},
                                         dptr_row{0, 1501, EINVAL, 0}, dptr_row{0, -64, EINVAL, 0},
                                         dptr_row{0, INT32_MIN, EINVAL, 0},
                                         dptr_row{0, INT32_MAX, EINVAL, 0},
                                         dptr_row{128, 0, 0, 1372}, dptr_row{128, -64, 0, 1436},
                                         dptr_row{128, -128, 0, 1500},
                                         dptr_row{128, 1373, EINVAL, 0}));

TEST_F(buf_contract, refused_data_pointers_and_lengths)
{
    const buffer single = new_buffer(owner);
    void *data = nullptr;
    std::uint32_t length = 0;
    EXPECT_ERROR(kel_buf_get_dptr(single, 0, nullptr, &length), EINVAL);
    EXPECT_ERROR(kel_buf_get_dptr(single, 0, &data, nullptr), EINVAL);
    EXPECT_ERROR(kel_buf_get_length(single, nullptr), EINVAL);
    for (const kel_buffer bad : {0u, BAD_BUFFER}) {
        EXPECT_ERROR(kel_buf_get_dptr(bad, 0, &data, &length), EINVAL);
        EXPECT_ERROR(kel_buf_get_length(bad, &length), EINVAL);
        EXPECT_ERROR(kel_buf_set_length(bad, 1), EINVAL);
        EXPECT_ERROR(kel_buf_reserve_space(bad, 1), EINVAL);
    }
}

struct length_row {
    std::uint32_t reserved;
    std::uint32_t length;
    std::uint32_t error;
};

void PrintTo(const length_row &row, std::ostream *stream)
{
    *stream << row.length << ", " << row.reserved << " reserved";
}

class length_contract : public buf_contract, public testing::WithParamInterface<length_row> {};

TEST_P(length_contract, goes_up_to_capacity_less_head_room)
{
    const length_row &row = GetParam();
    const buffer single = new_buffer(owner);
    if (row.reserved) {
        ASSERT_OK(kel_buf_reserve_space(single, row.reserved));
    }
    EXPECT_EQ(buffer_length(single), 1500 - row.reserved);
    EXPECT_ERROR(kel_buf_set_length(single, row.length), row.error);
    EXPECT_EQ(buffer_length(single), row.error ? 1500 - row.reserved : row.length);
}

INSTANTIATE_TEST_SUITE_P(lengths, length_contract,
                         testing::Values(length_row{0, 0, 0}, length_row{0, 1499, 0},
                                         length_row{0, 1500, 0}, length_row{0, 1501, ENOSPC},
                                         length_row{512, 988, 0}, length_row{512, 989, ENOSPC},
                                         length_row{0, 0xffffffff, ENOSPC}));

TEST_F(buf_contract, length_can_grow_again)
{
    const buffer single = new_buffer(owner);
    ASSERT_OK(kel_buf_set_length(single, 0));
    ASSERT_OK(kel_buf_set_length(single, 1500));
    EXPECT_EQ(buffer_length(single), 1500u);
}

TEST_F(buf_contract, head_room_is_smaller_than_the_capacity)
{
    for (const auto &[size, error] :
         {std::pair{1499u, 0}, {1500u, ENOSPC}, {1501u, ENOSPC}, {0xffffffffu, ENOSPC}}) {
        const buffer single = new_buffer(owner);
        const std::uint8_t *before = data_start(single);
        EXPECT_ERROR(kel_buf_reserve_space(single, size), error);
        EXPECT_EQ(buffer_length(single), error ? 1500 : 1500 - size);
        EXPECT_EQ(data_start(single), before + (error ? 0 : size));
    }
}

// The data start moves on from where it is: bytes that were cut off stay cut off.
TEST_F(buf_contract, head_room_is_reserved_in_what_trims_left)
{
    buffer front = new_buffer(owner);
    write_chain(front, pattern(1500));
    const std::uint8_t *before = data_start(front);
    ASSERT_OK(kel_buf_trim_head(front.address(), 512));
    EXPECT_ERROR(kel_buf_reserve_space(front, 988), ENOSPC);
    ASSERT_OK(kel_buf_reserve_space(front, 100));
    EXPECT_EQ(data_start(front), before + 612);
    EXPECT_EQ(read_chain(front), part(pattern(1500), 612, 888));

    buffer end = new_buffer(owner);
    write_chain(end, pattern(1500));
    ASSERT_OK(kel_buf_trim_tail(end.address(), 512));
    ASSERT_OK(kel_buf_reserve_space(end, 100));
    EXPECT_EQ(read_chain(end), part(pattern(1500), 100, 888));
}

TEST_F(buf_contract, head_room_is_reserved_once)
{
    const buffer single = new_buffer(owner);
    ASSERT_OK(kel_buf_reserve_space(single, 1));
    EXPECT_ERROR(kel_buf_reserve_space(single, 1), EINVAL);
    EXPECT_EQ(buffer_length(single), 1499u);
}

TEST_F(buf_contract, data_crosses_buffers)
{
    const bytes data = pattern(3000);
    const buffer chain = new_chain(owner, data);
    EXPECT_EQ(kel_buf_get_buf_count(chain), 2u);
    EXPECT_EQ(read_chain(chain), data);

    bytes middle(200);
    std::uint32_t length = 200;
    EXPECT_OK(kel_buf_get_data(chain, 1400, middle.data(), &length));
    EXPECT_EQ(middle, part(data, 1400, 200));
    EXPECT_OK(kel_buf_set_data(chain, 1450, pattern(100, 5).data(), 100));
    EXPECT_EQ(part(read_chain(chain), 1450, 100), pattern(100, 5));
    EXPECT_EQ(part(read_chain(chain), 1550, 1450), part(data, 1550, 1450));
}

TEST_F(buf_contract, short_reads_and_long_writes)
{
    const bytes data = pattern(1500);
    const buffer single = new_chain(owner, data);
    bytes target(3000);
    std::uint32_t length = 3000;
    EXPECT_ERROR(kel_buf_get_data(single, 0, target.data(), &length), ENOSPC);
    EXPECT_EQ(length, 1500u);
    EXPECT_EQ(part(target, 0, 1500), data);

    length = 1000;
    EXPECT_ERROR(kel_buf_get_data(single, 1000, target.data(), &length), ENOSPC);
    EXPECT_EQ(length, 500u);
    EXPECT_EQ(part(target, 0, 500), part(data, 1000, 500));

    EXPECT_ERROR(kel_buf_set_data(single, 1, pattern(1500, 2).data(), 1500), ENOSPC);
    EXPECT_ERROR(kel_buf_set_data(single, 0xffffffff, data.data(), 2), ENOSPC);
    EXPECT_EQ(read_chain(single), data);
}

TEST_F(buf_contract, refused_copies)
{
    const buffer single = new_buffer(owner);
    bytes data(16);
    std::uint32_t length = 16;
    for (const kel_buffer bad : {0u, BAD_BUFFER}) {
        EXPECT_ERROR(kel_buf_set_data(bad, 0, data.data(), 16), EINVAL);
        EXPECT_ERROR(kel_buf_get_data(bad, 0, data.data(), &length), EINVAL);
    }
    EXPECT_ERROR(kel_buf_set_data(single, 0, nullptr, 16), EINVAL);
    EXPECT_ERROR(kel_buf_get_data(single, 0, nullptr, &length), EINVAL);
    EXPECT_ERROR(kel_buf_get_data(single, 0, data.data(), nullptr), EINVAL);
}

// The trims, and kel_buf_adj with either sign, are held to the same table.
using trim_function = std::uint32_t (*)(kel_buffer *, std::uint32_t);
struct trim {
    const char *name;
    bool at_head;
    trim_function call;
};

void PrintTo(const trim &which, std::ostream *stream)
{
    *stream << which.name;
}

class trim_contract : public buf_contract, public testing::WithParamInterface<trim> {};

TEST_P(trim_contract, removes_so_many_bytes)
{
    const trim &trim = GetParam();
    for (const std::uint32_t total : {1500u, 3000u, 4500u}) {
        for (const std::uint32_t size : {0u, 1u, 512u, 1499u, 1500u, 1501u, 2000u, 3000u}) {
            if (size >= total) continue;
            SCOPED_TRACE(std::to_string(size) + " of " + std::to_string(total));
            const bytes data = pattern(total);
            buffer chain = new_chain(owner, data);
            const std::uint32_t left = total - size;
            std::vector<kel_buffer> all;
            for (kel_buffer each = chain; each; each = kel_buf_get_next(each)) all.push_back(each);

            ASSERT_OK(trim.call(chain.address(), size));
            EXPECT_EQ(read_chain(chain), part(data, trim.at_head ? size : 0, left));
            EXPECT_EQ(chain, all[trim.at_head ? size / 1500 : 0]);
            EXPECT_EQ(kel_buf_get_buf_count(chain), all.size() - size / 1500);
            EXPECT_EQ(take_census().buffers, all.size() - size / 1500);
        }
    }
}

TEST_P(trim_contract, of_everything_leaves_no_chain)
{
    for (const std::uint32_t total : {1500u, 4500u}) {
        buffer chain = new_chain(owner, pattern(total));
        ASSERT_OK(GetParam().call(chain.address(), total));
        EXPECT_EQ(chain, 0u);
        EXPECT_EQ(take_census().buffers, 0u);
    }
}

TEST_P(trim_contract, of_more_than_there_is_changes_nothing)
{
    const bytes data = pattern(1500);
    buffer chain = new_chain(owner, data);
    const kel_buffer before = chain;
    EXPECT_ERROR(GetParam().call(chain.address(), 1501), ERANGE);
    EXPECT_EQ(chain, before);
    EXPECT_EQ(read_chain(chain), data);
}

TEST_P(trim_contract, refusals)
{
    EXPECT_ERROR(GetParam().call(nullptr, 512), EINVAL);
    for (kel_buffer bad : {0u, BAD_BUFFER}) EXPECT_ERROR(GetParam().call(&bad, 512), EINVAL);
}

INSTANTIATE_TEST_SUITE_P(trims, trim_contract,
                         testing::Values(trim{"kel_buf_trim_head", true, kel_buf_trim_head},
                                         trim{"kel_buf_trim_tail", false, kel_buf_trim_tail},
                                         trim{"kel_buf_adj at the head", true,
                                              [](kel_buffer *head, std::uint32_t size) {
                                                  return kel_buf_adj(
                                                      head, static_cast<std::int32_t>(size));
                                              }},
                                         trim{"kel_buf_adj at the tail", false,
                                              [](kel_buffer *head, std::uint32_t size) {
                                                  return kel_buf_adj(
                                                      head, -static_cast<std::int32_t>(size));
                                              }}));

TEST_F(buf_contract, adjusting_by_the_smallest_number)
{
    buffer single = new_buffer(owner);
    EXPECT_ERROR(kel_buf_adj(single.address(), INT32_MIN), ERANGE);
    EXPECT_EQ(buffer_length(single), 1500u);
}

TEST_F(buf_contract, refused_growth)
{
    kel_buffer none = 0;
    kel_buffer bad = BAD_BUFFER;
    EXPECT_ERROR(kel_buf_add_head(nullptr, 64), EINVAL);
    EXPECT_ERROR(kel_buf_add_head(&none, 64), EINVAL);
    EXPECT_ERROR(kel_buf_add_head(&bad, 64), EINVAL);
    EXPECT_ERROR(kel_buf_add_tail(0, 64), EINVAL);
    EXPECT_ERROR(kel_buf_add_tail(BAD_BUFFER, 64), EINVAL);

    buffer single = new_buffer(owner);
    const kel_buffer before = single;
    EXPECT_ERROR(kel_buf_add_head(single.address(), 1'000'000'000), ENOMEM);
    EXPECT_ERROR(kel_buf_add_tail(single, 1'000'000'000), ENOMEM);
    EXPECT_EQ(single, before);
    EXPECT_EQ(chain_length(single), 1500u);
}

TEST_F(buf_contract, grows_at_the_front)
{
    buffer single = new_chain(owner, pattern(1500));
    ASSERT_OK(kel_buf_reserve_space(single, 64));
    const kel_buffer first = single;
    ASSERT_OK(kel_buf_add_head(single.address(), 32));
    EXPECT_EQ(single, first) << "the head room sufficed";
    EXPECT_EQ(read_chain(single), part(pattern(1500), 32, 1468));
    ASSERT_OK(kel_buf_add_head(single.address(), 33));
    EXPECT_NE(single, first) << "the head room did not suffice";
    EXPECT_EQ(chain_length(single), 1501u);
    EXPECT_EQ(part(read_chain(single), 33, 1468), part(pattern(1500), 32, 1468));
}

TEST_F(buf_contract, grows_at_the_end)
{
    const buffer single = new_chain(owner, pattern(1500));
    ASSERT_OK(kel_buf_set_length(single, 1400));
    ASSERT_OK(kel_buf_add_tail(single, 100));
    EXPECT_EQ(kel_buf_get_buf_count(single), 1u) << "there was room in the buffer";
    ASSERT_OK(kel_buf_add_tail(single, 64));
    EXPECT_EQ(chain_length(single), 1564u);
    EXPECT_EQ(part(read_chain(single), 0, 1400), part(pattern(1500), 0, 1400));
}

TEST_F(buf_contract, physical_addresses)
{
    std::uint64_t address = 0;
    std::uint32_t length = 0;
    EXPECT_ERROR(kel_buf_get_paddr(0, nullptr, &length), EINVAL);
    const buffer jumbo = new_buffer(owner, 9000);
    ASSERT_OK(kel_buf_get_paddr(jumbo, &address, &length));
    EXPECT_NE(address, 0u);
    EXPECT_EQ(length, 9000u);
    EXPECT_ERROR(kel_buf_get_paddr(jumbo, nullptr, &length), EINVAL);
    EXPECT_ERROR(kel_buf_get_paddr(jumbo, &address, nullptr), EINVAL);

    std::uint64_t paddr = 0;
    std::uint64_t vaddr = 0;
    std::uint64_t kvaddr = 0;
    ASSERT_OK(kel_get_bufmem_info(&paddr, &vaddr, &kvaddr, &length));
    EXPECT_EQ(address - paddr, reinterpret_cast<std::uintptr_t>(data_start(jumbo)) - vaddr);
}

TEST_F(buf_contract, physical_address_list)
{
    const buffer chain = new_buffer(owner, 65536, 0);
    std::array<kel_iovec, 12> entries{};
    std::uint32_t count = 12;
    ASSERT_OK(kel_buf_get_paddr_iov(chain, entries.data(), &count));
    EXPECT_EQ(count, kel_buf_get_buf_count(chain));
    std::uint32_t sum = 0;
    kel_buffer each = chain;
    for (std::uint32_t index = 0; index < count; index++, each = kel_buf_get_next(each)) {
        EXPECT_NE(std::uint64_t{entries[index].iov_base}, 0u);
        EXPECT_EQ(entries[index].iov_len, buffer_length(each));
        sum += entries[index].iov_len;
    }
    EXPECT_EQ(sum, 65536u);

    std::uint32_t too_few = count - 1;
    EXPECT_ERROR(kel_buf_get_paddr_iov(chain, entries.data(), &too_few), ENOSPC);
    EXPECT_ERROR(kel_buf_get_paddr_iov(0, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_buf_get_paddr_iov(chain, nullptr, &count), EINVAL);
    EXPECT_ERROR(kel_buf_get_paddr_iov(chain, entries.data(), nullptr), EINVAL);
}

struct duplicate_row {
    std::uint32_t size;
    std::uint8_t contiguous;
    std::uint32_t offset;
    std::uint32_t length;
    std::uint32_t error;
    std::uint32_t copied;
};

void PrintTo(const duplicate_row &row, std::ostream *stream)
{
    *stream << row.length << " from " << row.offset << " of " << row.size;
}

class duplicate_contract : public buf_contract,
                           public testing::WithParamInterface<duplicate_row> {};

TEST_P(duplicate_contract, copies_the_stretch_or_refuses)
{
    const duplicate_row &row = GetParam();
    const bytes data = pattern(row.size);
    const buffer source = new_buffer(owner, row.size, row.contiguous);
    write_chain(source, data);
    const usage before = usage_of_client(owner);

    std::uint32_t error = 4711;
    const buffer copy(kel_buf_duplicate(source, row.offset, row.length, &error));
    EXPECT_ERROR(error, row.error);
    EXPECT_EQ(copy != 0, row.error == 0);
    EXPECT_EQ(read_chain(source), data);
    EXPECT_EQ(usage_of_client(owner).bytes, before.bytes + row.copied);
    EXPECT_EQ(buffer(kel_buf_duplicate(source, row.offset, row.length, nullptr)) != 0,
              row.error == 0);
    if (row.error) return;
    EXPECT_EQ(read_chain(copy), part(data, row.offset, row.copied));
    write_chain(copy, pattern(row.copied, 2));
    EXPECT_EQ(read_chain(source), data) << "the copy shares memory with its source";
}

INSTANTIATE_TEST_SUITE_P(stretches, duplicate_contract,
                         testing::Values(duplicate_row{1500, 1, 0, 1500, 0, 1500},
                                         duplicate_row{1500, 1, 0, KEL_COPY_ALL, 0, 1500},
                                         duplicate_row{1500, 1, 750, 750, 0, 750},
                                         duplicate_row{1500, 1, 750, KEL_COPY_ALL, 0, 750},
                                         duplicate_row{1500, 1, 0, 1501, EINVAL, 0},
                                         duplicate_row{1500, 1, 1501, 1, EINVAL, 0},
                                         duplicate_row{1500, 1, 1501, KEL_COPY_ALL, EINVAL, 0},
                                         duplicate_row{1500, 1, 750, 1500, EINVAL, 0},
                                         duplicate_row{1500, 1, 0xffffffff, 2, EINVAL, 0},
                                         duplicate_row{1500, 1, 0, 0, EINVAL, 0},
                                         duplicate_row{9000, 1, 0, KEL_COPY_ALL, 0, 9000},
                                         duplicate_row{65536, 0, 0, KEL_COPY_ALL, 0, 65536},
                                         duplicate_row{65536, 0, 32768, KEL_COPY_ALL, 0, 32768}));

TEST_F(buf_contract, duplicate_of_no_buffer)
{
    for (const kel_buffer bad : {0u, BAD_BUFFER}) {
        std::uint32_t error = 0;
        EXPECT_EQ(kel_buf_duplicate(bad, 0, 1500, &error), 0u);
        EXPECT_ERROR(error, EINVAL);
        EXPECT_EQ(kel_buf_duplicate(bad, 0, 1500, nullptr), 0u);
    }
}

TEST_F(buf_contract, duplicate_gathers_a_chain)
{
    const bytes data = pattern(3000);
    const buffer chain = new_chain(owner, data);
    std::uint32_t error = 4711;
    const buffer copy(kel_buf_duplicate(chain, 0, KEL_COPY_ALL, &error));
    ASSERT_OK(error);
    EXPECT_EQ(buffer_length(copy), 3000u);
    EXPECT_LE(kel_buf_get_buf_count(copy), 2u);
    EXPECT_EQ(read_chain(copy), data);
}

TEST_F(buf_contract, duplicate_is_one_buffer_where_one_can_hold_it)
{
    const buffer spread = new_chain(owner, pattern(9000));
    ASSERT_EQ(kel_buf_get_buf_count(spread), 6u);
    const buffer copy(kel_buf_duplicate(spread, 0, KEL_COPY_ALL, nullptr));
    EXPECT_EQ(kel_buf_get_buf_count(copy), 1u);
    EXPECT_EQ(read_chain(copy), pattern(9000));
}

TEST_F(buf_contract, different_buffers_have_different_memory)
{
    std::vector<buffer> held;
    std::vector<std::pair<const std::uint8_t *, std::size_t>> areas;
    for (std::uint32_t index = 0; index < 500; index++) {
        const std::uint32_t size = 1 + index * 37 % 9000;
        held.push_back(new_buffer(owner, size));
        areas.emplace_back(data_start(held.back()), size);
    }
    std::ranges::sort(areas, std::less<>{});
    for (std::size_t index = 1; index < areas.size(); index++) {
        EXPECT_LE(areas[index - 1].first + areas[index - 1].second, areas[index].first);
    }
}

} // namespace

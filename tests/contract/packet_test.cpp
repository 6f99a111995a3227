// SPDX-License-Identifier: MIT
//
// Packets: obtaining, freeing, joining, growing, trimming, copying and duplicating.

#include "tests/contract/contract.h"

#include <cstring>

using namespace contract;

namespace {

class packet_contract : public contract::test {
protected:
    client owner = new_client();
    void TearDown() override
    {
        EXPECT_OK(kel_deregister_client(owner.give()));
        contract::test::TearDown();
    }

    packet new_header() const
    {
        packet header(kel_get_pkthdr(owner));
        EXPECT_NE(header, 0u);
        return header;
    }

    // Gives the packet a further buffer with that data.
    std::uint32_t append(kel_packet target, const bytes &data) const
    {
        buffer added = new_buffer(owner, static_cast<std::uint32_t>(data.size()));
        write_chain(added, data);
        const std::uint32_t error = kel_append(target, added);
        if (!error) added.give();
        return error;
    }
};

struct size_row {
    std::uint32_t size;
    std::uint8_t contiguous;
    std::uint32_t error;
};

void PrintTo(const size_row &row, std::ostream *stream)
{
    *stream << row.size << (row.contiguous ? " contiguous" : " spread");
}

class packet_size_contract : public packet_contract,
                             public testing::WithParamInterface<size_row> {};

TEST_P(packet_size_contract, is_granted_exactly_or_refused)
{
    const auto &[size, contiguous, expected] = GetParam();
    std::uint32_t error = 4711;
    const packet obtained(kel_get_packet(owner, 0, size, contiguous, &error));
    EXPECT_ERROR(error, expected);
    EXPECT_EQ(obtained != 0, expected == 0);
    EXPECT_EQ(packet(kel_get_packet(owner, 0, size, contiguous, nullptr)) != 0, expected == 0);
    if (expected) {
        EXPECT_EQ(usage_of_client(owner), (usage{0, 0}));
        return;
    }
    EXPECT_EQ(kel_get_length(obtained), size);
    EXPECT_EQ(chain_length(kel_get_buf_head(obtained)), size);
    if (contiguous) {
        EXPECT_EQ(kel_get_buf_count(obtained), 1u);
    }
    std::uint32_t head_room = 4711;
    EXPECT_OK(kel_head_space(obtained, &head_room));
    EXPECT_EQ(head_room, 0u);
    EXPECT_EQ(offsets_of(obtained), offsets{});
    write(obtained, pattern(size));
    EXPECT_EQ(read(obtained), pattern(size));
}

INSTANTIATE_TEST_SUITE_P(sizes, packet_size_contract,
                         testing::Values(size_row{1, 1, 0}, size_row{512, 1, 0},
                                         size_row{1500, 1, 0}, size_row{9000, 1, 0},
                                         size_row{8192, 0, 0}, size_row{32768, 0, 0},
                                         size_row{65536, 0, 0}, size_row{65536, 1, ENOMEM},
                                         size_row{99'999'999, 0, ENOMEM},
                                         size_row{0xffffffff, 0, ENOMEM}));

TEST_F(packet_contract, refused_for_unknown_clients_and_groups)
{
    for (const kel_client bad : {0u, BAD_CLIENT}) {
        std::uint32_t error = 0;
        EXPECT_EQ(kel_get_packet(bad, 0, 1500, 1, &error), 0u);
        EXPECT_ERROR(error, EINVAL);
        EXPECT_EQ(kel_get_packet(bad, 0, 1500, 1, nullptr), 0u);
        EXPECT_EQ(kel_get_packet_with_tlv(bad, 0, 1500, 0, 1, 228, &error), 0u);
        EXPECT_ERROR(error, EINVAL);
        EXPECT_EQ(kel_get_pkthdr(bad), 0u);
        EXPECT_EQ(kel_get_pkthdr_with_tlv(bad, 1, 228), 0u);
    }
    std::uint32_t error = 0;
    EXPECT_EQ(kel_get_packet(owner, 0xdeadbeef, 1500, 1, &error), 0u);
    EXPECT_ERROR(error, EINVAL);
}

TEST_F(packet_contract, two_thousand_at_once)
{
    std::vector<packet> held;
    for (int count = 0; count < 2000; count++) {
        held.push_back(new_packet(owner, 512));
        ASSERT_NE(held.back(), 0u);
    }
    EXPECT_EQ(usage_of_client(owner), (usage{2000, 2000 * 512}));
}

TEST_F(packet_contract, thirty_two_spread_ones_at_once)
{
    std::vector<packet> held;
    for (std::uint32_t count = 0; count < 32; count++) {
        const std::uint32_t size = count % 2 ? 32768 : 8192;
        held.push_back(new_packet(owner, size, 0));
        EXPECT_EQ(kel_get_length(held.back()), size);
        write(held.back(), pattern(size, count));
    }
    for (std::uint32_t count = 0; count < 32; count++) {
        EXPECT_EQ(read(held[count]), pattern(count % 2 ? 32768 : 8192, count));
    }
}

TEST_F(packet_contract, bare_header)
{
    const packet header = new_header();
    EXPECT_EQ(kel_get_length(header), 0u);
    EXPECT_EQ(kel_get_buf_head(header), 0u);
    EXPECT_EQ(kel_get_buf_count(header), 0u);
    EXPECT_OK(kel_coalesce(header));
    ASSERT_OK(append(header, pattern(512)));
    EXPECT_EQ(kel_get_length(header), 512u);
    EXPECT_EQ(kel_get_buf_count(header), 1u);
    EXPECT_EQ(read(header), pattern(512));
}

// Both ways of freeing take both kinds of packets.
using free_function = std::uint32_t (*)(kel_packet);
class free_contract : public packet_contract, public testing::WithParamInterface<free_function> {};

TEST_P(free_contract, second_time_is_told_from_never)
{
    const auto free = GetParam();
    EXPECT_ERROR(free(0), EINVAL);
    EXPECT_ERROR(free(KEL_BAD_HANDLE), EINVAL);
    for (const kel_packet each : {new_packet(owner).give(), new_header().give(),
                                  kel_get_packet_with_tlv(owner, 0, 1500, 0, 1, 228, nullptr),
                                  kel_get_pkthdr_with_tlv(owner, 1, 228)}) {
        ASSERT_NE(each, 0u);
        EXPECT_OK(free(each));
        EXPECT_ERROR(kel_free_packet(each), EPERM);
        EXPECT_ERROR(kel_free_pkthdr(each), EPERM);
        EXPECT_EQ(kel_get_length(each), 0u);
    }
    EXPECT_EQ(take_census().tlvs, 0u);
}

TEST_P(free_contract, stale_handle_is_remembered_through_reuse)
{
    const kel_packet stale = new_packet(owner).give();
    ASSERT_OK(GetParam()(stale));
    for (int reuse = 0; reuse < 10'000; reuse++) EXPECT_NE(new_packet(owner, 64), stale);
    EXPECT_ERROR(GetParam()(stale), EPERM);
}

INSTANTIATE_TEST_SUITE_P(ways, free_contract, testing::Values(kel_free_packet, kel_free_pkthdr));

TEST_F(packet_contract, append_and_prepend)
{
    const packet target = new_packet(owner, 512);
    write(target, pattern(512, 1));
    ASSERT_OK(append(target, pattern(512, 2)));
    EXPECT_EQ(kel_get_length(target), 1024u);
    EXPECT_EQ(kel_get_buf_count(target), 2u);
    EXPECT_EQ(read(target), joined(pattern(512, 1), pattern(512, 2)));
    ASSERT_OK(append(target, pattern(512, 3)));
    EXPECT_EQ(kel_get_length(target), 1536u);
    EXPECT_EQ(kel_get_buf_count(target), 3u);

    set_offsets(target, {32, 64, 96});
    buffer front = new_buffer(owner, 100);
    write_chain(front, pattern(100, 4));
    const kel_buffer head = front;
    ASSERT_OK(kel_prepend(target, front.give()));
    EXPECT_EQ(kel_get_buf_head(target), head);
    EXPECT_EQ(kel_get_length(target), 1636u);
    EXPECT_EQ(read(target), joined(joined(pattern(100, 4), pattern(512, 1)),
                                   joined(pattern(512, 2), pattern(512, 3))));
    EXPECT_EQ(offsets_of(target), (offsets{32, 64, 96}));
}

TEST_F(packet_contract, chains_are_joined_whole)
{
    const packet target = new_packet(owner, 64);
    buffer chain = new_buffer(owner, 65536, 0);
    const std::uint32_t buffers = kel_buf_get_buf_count(chain);
    ASSERT_OK(kel_append(target, chain.give()));
    EXPECT_EQ(kel_get_length(target), 64u + 65536);
    EXPECT_EQ(kel_get_buf_count(target), 1 + buffers);
    chain = new_buffer(owner, 65536, 0);
    ASSERT_OK(kel_prepend(target, chain.give()));
    EXPECT_EQ(kel_get_length(target), 64u + 2 * 65536);
    EXPECT_EQ(kel_get_buf_count(target), 1 + 2 * buffers);
    write(target, pattern(64 + 2 * 65536));
    EXPECT_EQ(read(target), pattern(64 + 2 * 65536));
}

// Appending and prepending are refused alike.
using join_function = std::uint32_t (*)(kel_packet, kel_buffer);
class join_contract : public packet_contract, public testing::WithParamInterface<join_function> {};

TEST_P(join_contract, refusal_leaves_the_buffer_with_the_caller)
{
    const auto join = GetParam();
    const packet target = new_packet(owner, 512);
    const packet other = new_packet(owner, 512);
    const buffer added = new_buffer(owner, 512);
    for (const kel_packet bad : {0u, KEL_BAD_HANDLE}) EXPECT_ERROR(join(bad, added), EINVAL);
    for (const kel_buffer bad : {0u, BAD_BUFFER}) EXPECT_ERROR(join(target, bad), EINVAL);
    EXPECT_ERROR(join(target, kel_get_buf_head(other)), EINVAL);
    EXPECT_ERROR(join(target, kel_get_buf_head(target)), EINVAL);
    EXPECT_EQ(kel_get_buf_count(target), 1u);
    EXPECT_EQ(kel_get_length(target), 512u);
}

TEST_P(join_contract, buffer_goes_with_the_packet)
{
    packet target = new_packet(owner, 512);
    const kel_buffer added = new_buffer(owner, 512).give();
    ASSERT_OK(GetParam()(target, added));
    EXPECT_OK(kel_free_packet(target.give()));
    EXPECT_ERROR(kel_free_buffer(added), EPERM);
    EXPECT_ERROR(kel_free_bufchain(added), EPERM);
    EXPECT_EQ(usage_of_client(owner), (usage{0, 0}));
}

INSTANTIATE_TEST_SUITE_P(ends, join_contract, testing::Values(kel_append, kel_prepend));

TEST_F(packet_contract, counts_and_heads_of_unknown_packets)
{
    for (const kel_packet bad : {0u, KEL_BAD_HANDLE}) {
        EXPECT_EQ(kel_get_buf_count(bad), 0xffffffffu);
        EXPECT_EQ(kel_get_buf_head(bad), 0u);
        EXPECT_EQ(kel_get_length(bad), 0u);
        EXPECT_ERROR(kel_coalesce(bad), EINVAL);
    }
}

TEST_F(packet_contract, coalesce)
{
    const packet target = new_packet(owner, 512);
    write(target, pattern(512, 1));
    const kel_buffer head = kel_get_buf_head(target);
    EXPECT_OK(kel_coalesce(target));
    EXPECT_EQ(kel_get_buf_head(target), head);

    ASSERT_OK(append(target, pattern(512, 2)));
    EXPECT_OK(kel_coalesce(target));
    EXPECT_EQ(kel_get_buf_count(target), 1u);
    EXPECT_EQ(buffer_length(kel_get_buf_head(target)), 1024u);
    EXPECT_EQ(read(target), joined(pattern(512, 1), pattern(512, 2)));
    EXPECT_EQ(usage_of_client(owner), (usage{1, 1024}));

    const packet large = new_packet(owner, 65536, 0);
    const std::uint32_t buffers = kel_get_buf_count(large);
    EXPECT_ERROR(kel_coalesce(large), ENOMEM);
    EXPECT_EQ(kel_get_buf_count(large), buffers);
}

TEST_F(packet_contract, reserve_space)
{
    const packet target = new_packet(owner);
    set_offsets(target, {32, 64, 96});
    const std::uint8_t *before = data_start(kel_get_buf_head(target));
    ASSERT_OK(kel_reserve_space(target, 1499));
    EXPECT_EQ(kel_get_length(target), 1u);
    EXPECT_EQ(buffer_length(kel_get_buf_head(target)), 1u);
    EXPECT_EQ(data_start(kel_get_buf_head(target)), before + 1499);
    EXPECT_EQ(offsets_of(target), (offsets{32, 64, 96}));
    std::uint32_t head_room = 0;
    EXPECT_OK(kel_head_space(target, &head_room));
    EXPECT_EQ(head_room, 1499u);
    EXPECT_ERROR(kel_head_space(target, nullptr), EINVAL);
    EXPECT_ERROR(kel_reserve_space(target, 1), EINVAL);
}

TEST_F(packet_contract, reserve_space_once)
{
    const packet target = new_packet(owner);
    ASSERT_OK(kel_reserve_space(target, 1));
    EXPECT_ERROR(kel_reserve_space(target, 1), EINVAL);
    EXPECT_EQ(kel_get_length(target), 1499u);
}

TEST_F(packet_contract, reserve_space_below_the_length)
{
    const packet target = new_packet(owner);
    for (const std::uint32_t size : {1500u, 1501u, 0xffffffffu}) {
        EXPECT_ERROR(kel_reserve_space(target, size), ENOSPC);
    }
    EXPECT_EQ(kel_get_length(target), 1500u);
    EXPECT_OK(kel_reserve_space(target, 64));
    std::uint32_t head_room = 0;
    EXPECT_OK(kel_head_space(target, &head_room));
    EXPECT_EQ(head_room, 64u);
}

// What packets without a chain refuse just as unknown ones do.
using sized_function = std::uint32_t (*)(kel_packet, std::uint32_t);
struct sized_operation {
    const char *name;
    sized_function call;
};

void PrintTo(const sized_operation &which, std::ostream *stream)
{
    *stream << which.name;
}

class sized_contract : public packet_contract,
                       public testing::WithParamInterface<sized_operation> {};

TEST_P(sized_contract, needs_a_chain)
{
    const packet header = new_header();
    for (const kel_packet bad : {0u, KEL_BAD_HANDLE, kel_packet{header}}) {
        EXPECT_ERROR(GetParam().call(bad, 64), EINVAL);
    }
    EXPECT_EQ(kel_get_length(header), 0u);
}

std::uint32_t head_space(kel_packet source, std::uint32_t)
{
    std::uint32_t size = 0;
    return kel_head_space(source, &size);
}

INSTANTIATE_TEST_SUITE_P(operations, sized_contract,
                         testing::Values(sized_operation{"kel_reserve_space", kel_reserve_space},
                                         sized_operation{"kel_head_space", head_space},
                                         sized_operation{"kel_add_head", kel_add_head},
                                         sized_operation{"kel_add_tail", kel_add_tail},
                                         sized_operation{"kel_trim_head", kel_trim_head},
                                         sized_operation{"kel_trim_tail", kel_trim_tail}));

struct growth_row {
    std::uint32_t reserved;
    std::uint32_t added;
    bool same_head;
    offsets grown;
};

void PrintTo(const growth_row &row, std::ostream *stream)
{
    *stream << row.added << " with " << row.reserved << " reserved";
}

class growth_contract : public packet_contract, public testing::WithParamInterface<growth_row> {};

TEST_P(growth_contract, at_the_front)
{
    const growth_row &row = GetParam();
    const packet target = new_packet(owner);
    write(target, pattern(1500));
    const std::uint8_t *original_start = data_start(kel_get_buf_head(target));
    if (row.reserved) {
        ASSERT_OK(kel_reserve_space(target, row.reserved));
    }
    set_offsets(target, {32, 64, 96});
    const kel_buffer head = kel_get_buf_head(target);
    const bytes rest = part(pattern(1500), row.reserved, 1500 - row.reserved);

    ASSERT_OK(kel_add_head(target, row.added));
    EXPECT_EQ(kel_get_buf_head(target) == head, row.same_head);
    EXPECT_EQ(kel_get_length(target), rest.size() + row.added);
    EXPECT_EQ(chain_length(kel_get_buf_head(target)), rest.size() + row.added);
    EXPECT_EQ(offsets_of(target), row.grown);
    if (row.same_head) {
        EXPECT_EQ(data_start(head), original_start + row.reserved - row.added);
        std::uint32_t head_room = 0;
        EXPECT_OK(kel_head_space(target, &head_room));
        EXPECT_EQ(head_room, row.reserved - row.added);
    }

    const bytes front = pattern(row.added, 2);
    EXPECT_OK(kel_set_data(target, OFFSET_DATA, 0, front.data(), row.added));
    EXPECT_EQ(read(target), joined(front, rest));
}

INSTANTIATE_TEST_SUITE_P(sizes, growth_contract,
                         testing::Values(growth_row{64, 63, true, {95, 127, 159}},
                                         growth_row{64, 64, true, {96, 128, 160}},
                                         growth_row{64, 65, false, {97, 129, 161}},
                                         growth_row{64, 96, false, {128, 160, 192}},
                                         growth_row{0, 64, false, {96, 128, 160}}));

TEST_F(packet_contract, growth_at_the_end)
{
    const packet target = new_packet(owner);
    write(target, pattern(1500));
    set_offsets(target, {32, 64, 96});
    ASSERT_OK(kel_add_tail(target, 64));
    EXPECT_EQ(kel_get_length(target), 1564u);
    EXPECT_EQ(offsets_of(target), (offsets{32, 64, 96}));
    EXPECT_OK(kel_set_data(target, OFFSET_DATA, 1500, pattern(64, 2).data(), 64));
    ASSERT_OK(append(target, pattern(64, 3)));
    EXPECT_EQ(read(target), joined(pattern(1500), joined(pattern(64, 2), pattern(64, 3))));
    EXPECT_EQ(kel_get_length(target), 1628u);
}

TEST_F(packet_contract, growth_beyond_memory)
{
    const packet target = new_packet(owner);
    write(target, pattern(1500));
    set_offsets(target, {32, 64, 96});
    EXPECT_ERROR(kel_add_head(target, 1'000'000'000), ENOMEM);
    EXPECT_ERROR(kel_add_tail(target, 1'000'000'000), ENOMEM);
    EXPECT_EQ(read(target), pattern(1500));
    EXPECT_EQ(offsets_of(target), (offsets{32, 64, 96}));
    EXPECT_EQ(usage_of_client(owner), (usage{1, 1500}));
}

TEST_F(packet_contract, growth_by_nothing)
{
    const packet target = new_packet(owner);
    write(target, pattern(1500));
    EXPECT_OK(kel_add_head(target, 0));
    EXPECT_OK(kel_add_tail(target, 0));
    EXPECT_EQ(read(target), pattern(1500));
}

struct trim_row {
    const char *name;
    sized_function call;
    bool at_head;
};

void PrintTo(const trim_row &which, std::ostream *stream)
{
    *stream << which.name;
}

class packet_trim_contract : public packet_contract,
                             public testing::WithParamInterface<trim_row> {};

TEST_P(packet_trim_contract, removes_bytes_and_moves_offsets)
{
    for (const std::uint32_t size : {0u, 1u, 128u, 1499u}) {
        SCOPED_TRACE(size);
        const packet target = new_packet(owner);
        write(target, pattern(1500));
        set_offsets(target, {64, 128, 192});
        ASSERT_OK(GetParam().call(target, size));
        EXPECT_EQ(kel_get_length(target), 1500 - size);
        EXPECT_EQ(read(target), part(pattern(1500), GetParam().at_head ? size : 0, 1500 - size));
        const auto moved = [&](std::uint32_t offset) {
            if (!GetParam().at_head) return offset;
            return offset > size ? offset - size : 0;
        };
        EXPECT_EQ(offsets_of(target), (offsets{moved(64), moved(128), moved(192)}));
    }
}

TEST_P(packet_trim_contract, of_everything_empties_the_packet)
{
    const packet target = new_packet(owner);
    set_offsets(target, {64, 128, 192});
    ASSERT_OK(GetParam().call(target, 1500));
    EXPECT_EQ(kel_get_length(target), 0u);
    EXPECT_EQ(kel_get_buf_head(target), 0u);
    EXPECT_EQ(kel_get_buf_count(target), 0u);
    EXPECT_EQ(offsets_of(target), offsets{});
    EXPECT_EQ(usage_of_client(owner), (usage{0, 0}));
    EXPECT_ERROR(GetParam().call(target, 0), EINVAL);
    ASSERT_OK(append(target, pattern(512)));
    EXPECT_EQ(read(target), pattern(512));
}

TEST_P(packet_trim_contract, of_more_changes_nothing)
{
    const packet target = new_packet(owner);
    write(target, pattern(1500));
    set_offsets(target, {64, 128, 192});
    EXPECT_ERROR(GetParam().call(target, 1501), ERANGE);
    EXPECT_ERROR(GetParam().call(target, 0xffffffff), ERANGE);
    EXPECT_EQ(read(target), pattern(1500));
    EXPECT_EQ(offsets_of(target), (offsets{64, 128, 192}));
}

TEST_P(packet_trim_contract, across_buffers)
{
    const packet target = new_packet(owner, 512);
    write(target, pattern(512, 1));
    ASSERT_OK(append(target, pattern(512, 2)));
    ASSERT_OK(append(target, pattern(512, 3)));
    const bytes all = read(target);
    ASSERT_OK(GetParam().call(target, 600));
    EXPECT_EQ(kel_get_buf_count(target), 2u);
    EXPECT_EQ(read(target), part(all, GetParam().at_head ? 600 : 0, 936));
    ASSERT_OK(GetParam().call(target, 424));
    EXPECT_EQ(kel_get_buf_count(target), 1u);
    EXPECT_EQ(read(target), part(all, GetParam().at_head ? 1024 : 0, 512));
    ASSERT_OK(append(target, pattern(100, 4)));
    EXPECT_EQ(kel_get_length(target), 612u);
}

INSTANTIATE_TEST_SUITE_P(ends, packet_trim_contract,
                         testing::Values(trim_row{"kel_trim_head", kel_trim_head, true},
                                         trim_row{"kel_trim_tail", kel_trim_tail, false}));

TEST_F(packet_contract, data_counts_from_the_offset_of_its_kind)
{
    const packet target = new_packet(owner, 512);
    write(target, pattern(512));
    set_offsets(target, {32, 64, 96});
    const std::pair<std::uint32_t, std::uint32_t> kinds[] = {
        {OFFSET_DATA, 0}, {OFFSET_NETWORK, 32}, {OFFSET_TRANSPORT, 64}, {OFFSET_APP, 96}};
    for (const auto &[kind, position] : kinds) {
        bytes data(16);
        std::uint32_t length = 16;
        EXPECT_OK(kel_get_data(target, kind, 8, data.data(), &length));
        EXPECT_EQ(data, part(pattern(512), position + 8, 16));
    }
    EXPECT_OK(kel_set_data(target, OFFSET_APP, 4, pattern(16, 2).data(), 16));
    EXPECT_EQ(part(read(target), 100, 16), pattern(16, 2));
}

TEST_F(packet_contract, short_reads_and_long_writes)
{
    const packet target = new_packet(owner, 512);
    write(target, pattern(512));
    bytes data(1024);
    std::uint32_t length = 1024;
    EXPECT_ERROR(kel_get_data(target, OFFSET_DATA, 0, data.data(), &length), ENOSPC);
    EXPECT_EQ(length, 512u);
    EXPECT_EQ(part(data, 0, 512), pattern(512));
    EXPECT_ERROR(kel_set_data(target, OFFSET_DATA, 1, pattern(512, 2).data(), 512), ENOSPC);
    EXPECT_ERROR(kel_set_data(target, OFFSET_DATA, 0xffffffff, data.data(), 2), ENOSPC);
    EXPECT_EQ(read(target), pattern(512));
}

TEST_F(packet_contract, refused_copies)
{
    const packet target = new_packet(owner, 512);
    bytes data(16);
    std::uint32_t length = 16;
    for (const kel_packet bad : {0u, KEL_BAD_HANDLE}) {
        EXPECT_ERROR(kel_set_data(bad, OFFSET_DATA, 0, data.data(), 16), EINVAL);
        EXPECT_ERROR(kel_get_data(bad, OFFSET_DATA, 0, data.data(), &length), EINVAL);
    }
    EXPECT_ERROR(kel_set_data(target, OFFSET_DATA, 0, nullptr, 16), EINVAL);
    EXPECT_ERROR(kel_get_data(target, OFFSET_DATA, 0, nullptr, &length), EINVAL);
    EXPECT_ERROR(kel_get_data(target, OFFSET_DATA, 0, data.data(), nullptr), EINVAL);
    EXPECT_ERROR(kel_set_data(target, 48879, 0, data.data(), 16), EINVAL);
    EXPECT_ERROR(kel_get_data(target, 48879, 0, data.data(), &length), EINVAL);
}

struct duplicate_row {
    std::uint32_t kind;
    std::uint32_t offset;
    std::uint32_t length;
    std::uint32_t position; // in the source
    std::uint32_t copied;
    offsets of_duplicate;
};

void PrintTo(const duplicate_row &row, std::ostream *stream)
{
    *stream << row.length << " from " << row.offset << " of kind " << row.kind;
}

class packet_duplicate_contract : public packet_contract,
                                  public testing::WithParamInterface<duplicate_row> {};

TEST_P(packet_duplicate_contract, copies_the_stretch)
{
    const duplicate_row &row = GetParam();
    const packet source = new_packet(owner);
    write(source, pattern(1500));
    set_offsets(source, {32, 64, 96});
    std::uint32_t error = 4711;
    const packet copy(kel_duplicate(source, row.kind, row.offset, row.length, &error));
    ASSERT_OK(error);
    ASSERT_NE(copy, 0u);
    EXPECT_EQ(kel_get_length(copy), row.copied);
    EXPECT_EQ(read(copy), part(pattern(1500), row.position, row.copied));
    EXPECT_EQ(offsets_of(copy), row.of_duplicate);
    std::uint32_t data_offset = 4711;
    EXPECT_OK(kel_get_offset(copy, OFFSET_DATA, &data_offset));
    EXPECT_EQ(data_offset, 0u);
    EXPECT_NE(packet(kel_duplicate(source, row.kind, row.offset, row.length, nullptr)), 0u);
    write(copy, pattern(row.copied, 2));
    EXPECT_EQ(read(source), pattern(1500)) << "the copy shares memory with its source";
}

INSTANTIATE_TEST_SUITE_P(
    stretches, packet_duplicate_contract,
    testing::Values(duplicate_row{OFFSET_DATA, 0, 1500, 0, 1500, {32, 64, 96}},
                    duplicate_row{OFFSET_DATA, 0, KEL_COPY_ALL, 0, 1500, {32, 64, 96}},
                    duplicate_row{OFFSET_DATA, 750, 750, 750, 750, {0, 0, 0}},
                    duplicate_row{OFFSET_APP, 1, KEL_COPY_ALL, 97, 1403, {0, 0, 0}},
                    duplicate_row{OFFSET_TRANSPORT, 8, KEL_COPY_ALL, 72, 1428, {0, 0, 24}},
                    duplicate_row{OFFSET_NETWORK, 0, 100, 32, 100, {0, 32, 64}}));

// OFFSET_DATA is no place in the data that a duplicate would follow.
TEST_F(packet_contract, duplicate_from_past_the_front_has_no_data_offset)
{
    const packet source = new_packet(owner);
    kel_metadata_group record;
    kel_metadata_init(&record);
    record.mask = KEL_METADATA_DATA_START;
    record.data_start = 64;
    ASSERT_OK(kel_metadata_set(&record, source));
    set_offsets(source, {8, 32, 96});
    for (const std::uint32_t kind : {OFFSET_NETWORK, OFFSET_TRANSPORT, OFFSET_APP}) {
        const packet copy(kel_duplicate(source, kind, 0, KEL_COPY_ALL, nullptr));
        std::uint32_t data_offset = 4711;
        EXPECT_OK(kel_get_offset(copy, OFFSET_DATA, &data_offset));
        EXPECT_EQ(data_offset, 0u) << kind;
    }
}

struct refused_duplicate {
    std::uint32_t kind;
    std::uint32_t offset;
    std::uint32_t length;
};

TEST_F(packet_contract, refused_duplicates)
{
    const packet source = new_packet(owner);
    const packet header = new_header();
    const auto refuses = [](kel_packet refused, const refused_duplicate &row) {
        std::uint32_t error = 0;
        EXPECT_EQ(kel_duplicate(refused, row.kind, row.offset, row.length, &error), 0u);
        EXPECT_ERROR(error, EINVAL) << row.kind << ' ' << row.offset << ' ' << row.length;
        EXPECT_EQ(kel_duplicate(refused, row.kind, row.offset, row.length, nullptr), 0u);
    };
    for (const refused_duplicate &row : {refused_duplicate{48879, 0, 1500},
                                         {OFFSET_DATA, 0, 0},
                                         {OFFSET_DATA, 0, 1501},
                                         {OFFSET_DATA, 750, 1500},
                                         {OFFSET_DATA, 1501, KEL_COPY_ALL},
                                         {OFFSET_DATA, 0xffffffff, 2}}) {
        refuses(source, row);
    }
    refuses(0, {OFFSET_DATA, 0, 1500});
    refuses(KEL_BAD_HANDLE, {OFFSET_DATA, 0, 1500});
    refuses(header, {48879, 0, KEL_COPY_ALL});
    refuses(header, {OFFSET_DATA, 0, KEL_COPY_ALL});
    EXPECT_EQ(take_census().packets, 2u);
}

TEST_F(packet_contract, duplicate_of_a_spread_packet)
{
    const packet source = new_packet(owner, 65536, 0);
    write(source, pattern(65536));
    const packet copy(kel_duplicate(source, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr));
    EXPECT_EQ(read(copy), pattern(65536));
    const packet half(kel_duplicate(source, OFFSET_DATA, 32768, KEL_COPY_ALL, nullptr));
    EXPECT_EQ(read(half), part(pattern(65536), 32768, 32768));
}

TEST_F(packet_contract, duplicate_carries_metadata_and_tlvs)
{
    const packet source = new_packet(owner);
    kel_metadata_group record;
    kel_metadata_init(&record);
    record.mask = 0x3effff & ~(KEL_METADATA_LENGTH | KEL_METADATA_DATA_START);
    ASSERT_OK(kel_metadata_get(&record, source));
    record.tag = 0x12345678;
    record.cause = 2;
    record.priority = 1;
    record.link_type = 4;
    record.vrf_id = 3;
    record.topology_id = 7;
    record.ingress_vlan_id = 10;
    record.egress_vlan_id = 11;
    record.if_input = 0x1111111122222222;
    record.if_output = 0x3333333344444444;
    record.if_input_l2_physical = 5;
    record.if_input_l2_logical = 6;
    record.network_start = 32;
    ASSERT_OK(kel_metadata_set(&record, source));
    for (const std::uint32_t id : {1u, 2u}) {
        ASSERT_OK(kel_tlv_alloc(source, id, 228));
        ASSERT_OK(kel_tlv_set_versioned_data(source, id, pattern(228, id).data(), 228, 10));
    }

    const packet copy(kel_duplicate(source, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr));
    kel_metadata_group read_back;
    kel_metadata_init(&read_back);
    read_back.mask = record.mask;
    ASSERT_OK(kel_metadata_get(&read_back, copy));
    EXPECT_EQ(std::memcmp(&read_back, &record, sizeof record), 0);
    EXPECT_EQ(kel_get_input_ifid(copy), 0x1111111122222222u);
    for (const std::uint32_t id : {1u, 2u}) {
        bytes data(228);
        std::uint32_t length = 228;
        std::uint16_t version = 0;
        EXPECT_OK(kel_tlv_get_versioned_data(copy, id, data.data(), &length, 0, 0, &version));
        EXPECT_EQ(data, pattern(228, id));
        EXPECT_EQ(version, 10);
    }
    ASSERT_OK(kel_tlv_free(copy, 1));
    EXPECT_OK(kel_tlv_version_check(source, 1, 10, 10));
}

TEST_F(packet_contract, duplicate_is_charged_to_the_sources_group)
{
    const registration group(owner, "dup_pkt test group");
    const packet source = new_packet(owner, 1500, 1, group);
    const packet copy(kel_duplicate(source, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr));
    EXPECT_EQ(usage_of_group(owner, group), (usage{2, 3000}));
}

TEST_F(packet_contract, with_tlv)
{
    std::uint32_t error = 4711;
    const packet with(kel_get_packet_with_tlv(owner, 0, 1500, 0, 1, 228, &error));
    ASSERT_OK(error);
    EXPECT_EQ(kel_get_length(with), 1500u);
    const packet header(kel_get_pkthdr_with_tlv(owner, 1, 228));
    EXPECT_EQ(kel_get_buf_count(header), 0u);
    for (const kel_packet each : {kel_packet{with}, kel_packet{header}}) {
        bytes data(228);
        std::uint32_t length = 228;
        EXPECT_OK(kel_tlv_getdata(each, 1, data.data(), &length));
        EXPECT_EQ(length, 228u);
    }
    const packet without(kel_get_packet_with_tlv(owner, 0, 1500, 0, 0, 0, &error));
    ASSERT_OK(error);
    std::uint32_t id = 4711;
    EXPECT_OK(kel_tlv_get_head(without, &id));
    EXPECT_EQ(id, 0u);

    for (const std::uint32_t size : {238u, 1024u}) {
        EXPECT_EQ(kel_get_packet_with_tlv(owner, 0, 1500, 0, 1, size, &error), 0u);
        EXPECT_ERROR(error, ENOSPC);
        EXPECT_EQ(kel_get_pkthdr_with_tlv(owner, 1, size), 0u);
    }
    EXPECT_EQ(kel_get_packet_with_tlv(owner, 0, 1500, 0, 1, 238, nullptr), 0u);
    EXPECT_EQ(take_census().packets, 3u);
}

} // namespace

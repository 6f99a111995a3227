// SPDX-License-Identifier: MIT
//
// TLVs on packets and on bare headers.

#include "tests/contract/contract.h"

#include <functional>

using namespace contract;

namespace {

constexpr std::uint32_t SIZE = 228;

// Everything holds for packets and for bare headers alike.
class tlv_contract : public contract::test, public testing::WithParamInterface<bool> {
protected:
    client owner = new_client();
    packet target{GetParam() ? kel_get_pkthdr(owner) : kel_get_packet(owner, 0, 1500, 1, nullptr)};

    void TearDown() override
    {
        EXPECT_OK(GetParam() ? kel_free_pkthdr(target.give()) : kel_free_packet(target.give()));
        EXPECT_OK(kel_deregister_client(owner.give()));
        contract::test::TearDown();
    }

    void allocate(std::initializer_list<std::uint32_t> ids) const
    {
        for (const std::uint32_t id : ids) {
            ASSERT_OK(kel_tlv_alloc(target, id, SIZE));
            ASSERT_OK(kel_tlv_setdata(target, id, pattern(SIZE, id).data(), SIZE));
        }
    }

    bytes data_of(std::uint32_t id) const
    {
        bytes data(SIZE);
        std::uint32_t length = SIZE;
        EXPECT_OK(kel_tlv_getdata(target, id, data.data(), &length));
        EXPECT_EQ(length, SIZE);
        return data;
    }

    std::vector<std::uint32_t> walk() const
    {
        std::vector<std::uint32_t> ids;
        std::uint32_t id = 4711;
        EXPECT_OK(kel_tlv_get_head(target, &id));
        while (id && ids.size() < 100) {
            ids.push_back(id);
            EXPECT_OK(kel_tlv_get_next(target, &id));
        }
        return ids;
    }
};

TEST_P(tlv_contract, version_is_looked_at_before_the_capacity)
{
    allocate({1});
    ASSERT_OK(kel_tlv_version_set(target, 1, 10));
    bytes data(228);
    std::uint32_t length = 227;
    EXPECT_ERROR(kel_tlv_get_versioned_data(target, 1, data.data(), &length, 11, 0, nullptr),
                 ERANGE);
    EXPECT_ERROR(kel_tlv_get_versioned_data(target, 1, data.data(), &length, 10, 0, nullptr),
                 ENOSPC);
}

INSTANTIATE_TEST_SUITE_P(packets, tlv_contract, testing::Bool(), [](const auto &tested) {
    return tested.param ? "bare_header" : "packet";
});

using ids = std::vector<std::uint32_t>;

TEST_P(tlv_contract, has_its_size_from_the_start)
{
    ASSERT_OK(kel_tlv_alloc(target, 1, SIZE));
    bytes data(std::size_t{2} * SIZE);
    std::uint32_t length = 2 * SIZE;
    EXPECT_OK(kel_tlv_getdata(target, 1, data.data(), &length));
    EXPECT_EQ(length, SIZE);
    length = SIZE - 1;
    EXPECT_ERROR(kel_tlv_getdata(target, 1, data.data(), &length), ENOSPC);
    EXPECT_EQ(take_census().tlvs, 1u);
}

TEST_P(tlv_contract, refused_allocations)
{
    ASSERT_OK(kel_tlv_alloc(target, 1, SIZE));
    EXPECT_ERROR(kel_tlv_alloc(target, 1, SIZE), EEXIST);
    EXPECT_ERROR(kel_tlv_alloc(target, 0, SIZE), EINVAL);
    for (const std::uint32_t size : {238u, 1024u, 0xffffffffu}) {
        EXPECT_ERROR(kel_tlv_alloc(target, 2, size), ENOSPC);
    }
    EXPECT_EQ(walk(), (ids{1}));
}

TEST_P(tlv_contract, three_of_full_size_in_order_of_allocation)
{
    allocate({1, 2, 3});
    EXPECT_EQ(walk(), (ids{1, 2, 3}));
    for (const std::uint32_t id : {1u, 2u, 3u}) EXPECT_EQ(data_of(id), pattern(SIZE, id));
}

TEST_P(tlv_contract, walk_over_none)
{
    std::uint32_t id = 4711;
    EXPECT_OK(kel_tlv_get_head(target, &id));
    EXPECT_EQ(id, 0u);
    EXPECT_ERROR(kel_tlv_get_next(target, &id), ENOENT);
}

TEST_P(tlv_contract, walk_from_unknown_ids)
{
    allocate({1, 2});
    for (const std::uint32_t unknown : {3u, 0xffffffffu}) {
        std::uint32_t id = unknown;
        EXPECT_ERROR(kel_tlv_get_next(target, &id), ENOENT);
        EXPECT_EQ(id, unknown);
    }
    EXPECT_ERROR(kel_tlv_get_next(target, nullptr), EINVAL);
    EXPECT_ERROR(kel_tlv_get_head(target, nullptr), EINVAL);
}

TEST_P(tlv_contract, freeing_one_leaves_the_others)
{
    for (const std::uint32_t freed : {1u, 2u, 3u}) {
        allocate({1, 2, 3});
        ASSERT_OK(kel_tlv_version_set(target, freed % 3 + 1, 10));
        ASSERT_OK(kel_tlv_free(target, freed));
        bytes data(SIZE);
        std::uint32_t length = SIZE;
        EXPECT_ERROR(kel_tlv_getdata(target, freed, data.data(), &length), ENOENT);
        EXPECT_EQ(length, SIZE);
        EXPECT_ERROR(kel_tlv_free(target, freed), ENOENT);
        EXPECT_OK(kel_tlv_version_check(target, freed % 3 + 1, 10, 10));
        for (const std::uint32_t id : walk()) {
            EXPECT_NE(id, freed);
            EXPECT_EQ(data_of(id), pattern(SIZE, id));
            EXPECT_OK(kel_tlv_free(target, id));
        }
        EXPECT_EQ(take_census().tlvs, 0u);
    }
}

TEST_P(tlv_contract, freed_id_can_be_allocated_again)
{
    allocate({1});
    ASSERT_OK(kel_tlv_free(target, 1));
    allocate({2});
    allocate({1});
    EXPECT_EQ(walk(), (ids{2, 1}));
    EXPECT_ERROR(kel_tlv_free(target, 3), ENOENT);
}

TEST_P(tlv_contract, data)
{
    allocate({1});
    EXPECT_EQ(data_of(1), pattern(SIZE, 1));
    EXPECT_OK(kel_tlv_setdata(target, 1, pattern(10, 2).data(), 10));
    EXPECT_EQ(data_of(1), joined(pattern(10, 2), part(pattern(SIZE, 1), 10, SIZE - 10)));
    EXPECT_OK(kel_tlv_setdata(target, 1, pattern(1).data(), 0));
    EXPECT_ERROR(kel_tlv_setdata(target, 1, pattern(SIZE + 1, 3).data(), SIZE + 1), ENOSPC);
    EXPECT_EQ(data_of(1), joined(pattern(10, 2), part(pattern(SIZE, 1), 10, SIZE - 10)));
}

TEST_P(tlv_contract, refused_data)
{
    allocate({1});
    bytes data(SIZE);
    std::uint32_t length = SIZE;
    EXPECT_ERROR(kel_tlv_getdata(target, 1, nullptr, &length), EINVAL);
    EXPECT_ERROR(kel_tlv_getdata(target, 1, data.data(), nullptr), EINVAL);
    EXPECT_ERROR(kel_tlv_getdata(target, 1, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_tlv_setdata(target, 1, nullptr, 0), EINVAL);
    EXPECT_ERROR(kel_tlv_setdata(target, 1, nullptr, 1024), EINVAL);
    EXPECT_ERROR(kel_tlv_setdata(target, 2, data.data(), SIZE), ENOENT);
    EXPECT_ERROR(kel_tlv_getdata(target, 2, data.data(), &length), ENOENT);
    EXPECT_EQ(length, SIZE);
}

TEST_P(tlv_contract, versions)
{
    std::uint16_t version = 4711;
    EXPECT_ERROR(kel_tlv_version_set(target, 1, 0), EINVAL) << "the argument is judged first";
    EXPECT_ERROR(kel_tlv_version_set(target, 1, 10), ENOENT);
    EXPECT_ERROR(kel_tlv_version_get(target, 1, nullptr), EINVAL) << "the argument is judged first";
    EXPECT_ERROR(kel_tlv_version_get(target, 1, &version), ENOENT);
    allocate({1});
    EXPECT_OK(kel_tlv_version_get(target, 1, &version));
    EXPECT_OK(kel_tlv_version_set(target, 1, 10));
    EXPECT_OK(kel_tlv_version_get(target, 1, &version));
    EXPECT_EQ(version, 10);
    EXPECT_ERROR(kel_tlv_version_set(target, 1, 0), EINVAL);
    EXPECT_OK(kel_tlv_version_set(target, 1, 0xffff));
    EXPECT_OK(kel_tlv_version_get(target, 1, &version));
    EXPECT_EQ(version, 0xffff);
}

struct bounds_row {
    std::uint16_t lowest;
    std::uint16_t highest;
    std::uint32_t error;
};

TEST_P(tlv_contract, version_check)
{
    for (const bounds_row &row : {bounds_row{0, 0, EINVAL},
                                  {1, 0, EINVAL},
                                  {11, 10, EINVAL},
                                  {1, 1, ENOENT},
                                  {10, 10, ENOENT}}) {
        EXPECT_ERROR(kel_tlv_version_check(target, 1, row.lowest, row.highest), row.error)
            << row.lowest << " to " << row.highest << " of an unknown TLV";
    }
    allocate({1});
    ASSERT_OK(kel_tlv_version_set(target, 1, 10));
    for (const bounds_row &row : {bounds_row{0, 0, EINVAL},
                                  {1, 0, EINVAL},
                                  {10, 0, EINVAL},
                                  {11, 10, EINVAL},
                                  {1, 9, ERANGE},
                                  {11, 20, ERANGE},
                                  {10, 10, 0},
                                  {1, 10, 0},
                                  {10, 0xffff, 0},
                                  {0x8000, 0xffff, ERANGE}}) {
        EXPECT_ERROR(kel_tlv_version_check(target, 1, row.lowest, row.highest), row.error)
            << row.lowest << " to " << row.highest;
    }
}

TEST_P(tlv_contract, versioned_data)
{
    const bytes data = pattern(SIZE, 1);
    ASSERT_OK(kel_tlv_alloc(target, 1, SIZE));
    EXPECT_ERROR(kel_tlv_set_versioned_data(target, 1, data.data(), SIZE, 0), EINVAL);
    EXPECT_ERROR(kel_tlv_set_versioned_data(target, 1, nullptr, SIZE, 10), EINVAL);
    EXPECT_ERROR(kel_tlv_set_versioned_data(target, 2, data.data(), SIZE, 10), ENOENT);
    EXPECT_ERROR(kel_tlv_set_versioned_data(target, 1, data.data(), SIZE + 1, 10), ENOSPC);
    EXPECT_OK(kel_tlv_set_versioned_data(target, 1, data.data(), SIZE, 10));

    for (const bounds_row &row : {bounds_row{10, 0, 0},
                                  {0, 10, 0},
                                  {0, 0, 0},
                                  {9, 11, 0},
                                  {10, 10, 0},
                                  {11, 10, EINVAL},
                                  {11, 0, ERANGE},
                                  {0, 9, ERANGE},
                                  {11, 20, ERANGE}}) {
        SCOPED_TRACE(testing::Message() << row.lowest << " to " << row.highest);
        bytes read_back(SIZE);
        std::uint32_t length = SIZE;
        std::uint16_t version = 4711;
        EXPECT_ERROR(kel_tlv_get_versioned_data(target, 1, read_back.data(), &length, row.lowest,
                                                row.highest, &version),
                     row.error);
        EXPECT_ERROR(kel_tlv_get_versioned_data(target, 1, read_back.data(), &length, row.lowest,
                                                row.highest, nullptr),
                     row.error);
        if (row.error) continue;
        EXPECT_EQ(version, 10);
        EXPECT_EQ(length, SIZE);
        EXPECT_EQ(read_back, data);
    }
}

TEST_P(tlv_contract, refused_versioned_reads)
{
    allocate({1});
    ASSERT_OK(kel_tlv_version_set(target, 1, 10));
    bytes data(SIZE);
    std::uint32_t length = SIZE;
    std::uint16_t version = 0;
    const auto get = [&](std::uint32_t id, void *destination, std::uint32_t *size) {
        return kel_tlv_get_versioned_data(target, id, destination, size, 1, 20, &version);
    };
    EXPECT_ERROR(get(1, nullptr, &length), EINVAL);
    EXPECT_ERROR(get(1, data.data(), nullptr), EINVAL);
    EXPECT_ERROR(get(2, data.data(), &length), ENOENT);
    length = SIZE - 1;
    EXPECT_ERROR(get(1, data.data(), &length), ENOSPC);
}

// Words, of which the low 16 bits count.
TEST_P(tlv_contract, bounds_of_versions_are_compared_in_16_bits)
{
    allocate({1});
    ASSERT_OK(kel_tlv_version_set(target, 1, 10));
    bytes data(SIZE);
    std::uint32_t length = SIZE;
    EXPECT_OK(kel_tlv_version_check(target, 1, 0x1000a, 0x2000a));
    EXPECT_ERROR(kel_tlv_version_check(target, 1, 0x1000b, 0x20014), ERANGE);
    EXPECT_OK(kel_tlv_get_versioned_data(target, 1, data.data(), &length, 0x1000a, 0, nullptr));
    EXPECT_ERROR(
        kel_tlv_get_versioned_data(target, 1, data.data(), &length, 0x1000b, 0x10000, nullptr),
        ERANGE);
}

TEST_P(tlv_contract, plain_data_keeps_the_version)
{
    ASSERT_OK(kel_tlv_alloc(target, 1, SIZE));
    ASSERT_OK(kel_tlv_set_versioned_data(target, 1, pattern(SIZE).data(), SIZE, 10));
    ASSERT_OK(kel_tlv_setdata(target, 1, pattern(SIZE, 2).data(), SIZE));
    EXPECT_OK(kel_tlv_version_check(target, 1, 10, 10));
}

// Every operation, on packets that do not exist.
using tlv_operation = std::function<std::uint32_t(kel_packet)>;
TEST_P(tlv_contract, unknown_packets)
{
    bytes data(SIZE);
    std::uint32_t length = SIZE;
    std::uint32_t id = 1;
    std::uint16_t version = 0;
    const tlv_operation operations[] = {
        [&](kel_packet bad) { return kel_tlv_alloc(bad, 1, SIZE); },
        [&](kel_packet bad) { return kel_tlv_free(bad, 1); },
        [&](kel_packet bad) { return kel_tlv_getdata(bad, 1, data.data(), &length); },
        [&](kel_packet bad) { return kel_tlv_setdata(bad, 1, data.data(), SIZE); },
        [&](kel_packet bad) { return kel_tlv_get_head(bad, &id); },
        [&](kel_packet bad) { return kel_tlv_get_next(bad, &id); },
        [&](kel_packet bad) { return kel_tlv_version_set(bad, 1, 10); },
        [&](kel_packet bad) { return kel_tlv_version_get(bad, 1, &version); },
        [&](kel_packet bad) { return kel_tlv_version_check(bad, 1, 1, 10); },
        [&](kel_packet bad) { return kel_tlv_set_versioned_data(bad, 1, data.data(), SIZE, 10); },
        [&](kel_packet bad) {
            return kel_tlv_get_versioned_data(bad, 1, data.data(), &length, 1, 10, &version);
        }};
    for (const tlv_operation &operation : operations) {
        for (const kel_packet bad : {0u, KEL_BAD_HANDLE}) EXPECT_ERROR(operation(bad), EINVAL);
    }
}

TEST_P(tlv_contract, belong_to_their_packet)
{
    allocate({1, 2, 3});
    packet other(kel_get_pkthdr(owner));
    std::uint32_t id = 4711;
    EXPECT_OK(kel_tlv_get_head(other, &id));
    EXPECT_EQ(id, 0u);
    ASSERT_OK(kel_tlv_alloc(other, 1, 10));
    EXPECT_EQ(take_census().tlvs, 4u);
    EXPECT_OK(kel_free_pkthdr(other.give()));
    EXPECT_EQ(take_census().tlvs, 3u);
    EXPECT_EQ(data_of(1), pattern(SIZE, 1));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// Reserved buffer groups and the list operations.

#include "tests/contract/contract.h"

#include <algorithm>
#include <functional>
#include <memory>

using namespace contract;

namespace {

constexpr const char *NAME = "test reserved group";

class reserved_contract : public contract::test_with_two_clients {};

TEST_F(reserved_contract, refused_registrations)
{
    const registration regular(owner, "test group3");
    kel_bufgroup group = 4711;
    EXPECT_ERROR(kel_register_reserved_bufgroup(0, nullptr, NAME, 128, 128, 0, 0), EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(BAD_CLIENT, &group, NAME, 128, 128, 0, 0), EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(owner, nullptr, NAME, 128, 128, 0, 0), EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(owner, &group, nullptr, 128, 128, 0, 0), EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(owner, &group, "", 128, 128, 0, 0), EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(owner, &group, NAME, 0, 128, 0, 0), EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(owner, &group, NAME, 128, 0, 0, 0), EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(owner, &group, "test group3", 128, 128, 0, 0),
                 EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(other, &group, "test group3", 128, 128, 0, 0),
                 EINVAL);
    EXPECT_ERROR(kel_register_reserved_bufgroup(owner, &group, NAME, 99999, 9999, 0, 0), ENOMEM);
    EXPECT_ERROR(
        kel_register_reserved_bufgroup(owner, &group, NAME, 0xffffffff, 0xffffffff, 0xffffffff, 0),
        ENOMEM);
    EXPECT_EQ(take_census().bufgroups, 1u);
}

TEST_F(reserved_contract, shares_one_name_space_with_regular_groups)
{
    const registration group = new_reserved(owner, NAME, 128, 128);
    kel_bufgroup regular = 4711;
    EXPECT_ERROR(kel_register_bufgroup(owner, &regular, NAME), EINVAL);
    EXPECT_ERROR(kel_register_bufgroup(other, &regular, NAME), EINVAL);
    const registration second = new_reserved(owner, "test reserved group2", 64, 16);
    const registration third(owner, "test group3");
    EXPECT_NE(group, second);
    EXPECT_NE(second, third);
    const registration shared = new_reserved(other, NAME, 128, 128);
    EXPECT_EQ(shared, group);
    EXPECT_EQ(take_census().bufgroups, 3u);
}

TEST_F(reserved_contract, memory_is_set_aside_and_returned)
{
    const std::uint64_t before = take_census().arena_bytes;
    {
        const registration group = new_reserved(owner, NAME, 1000, 100);
        EXPECT_GE(take_census().arena_bytes, before + 100'000);
    }
    EXPECT_EQ(take_census().arena_bytes, before);
}

// How many bytes a group can set aside at most.
std::uint32_t largest_group(kel_client owner)
{
    constexpr std::uint32_t ELEMENT = 1024;
    std::uint32_t count = 0;
    for (std::uint32_t step = 4096; step;) {
        kel_bufgroup group = 0;
        if (kel_register_reserved_bufgroup(owner, &group, NAME, ELEMENT, count + step, 0, 0) == 0) {
            EXPECT_ERROR(kel_deregister_bufgroup(owner, group), 0);
            count += step;
        } else {
            step /= 2;
        }
    }
    return count * ELEMENT;
}

TEST_F(reserved_contract, takes_all_memory_that_buffers_gave_back)
{
    const std::uint32_t largest = largest_group(owner);
    for (std::uint32_t size = 64; size < 10'000; size *= 2) new_buffer(owner, size);
    EXPECT_EQ(largest_group(owner), largest);
}

TEST_F(reserved_contract, one_contiguous_allocation_takes_one_element)
{
    const registration group = new_reserved(owner, NAME, 128, 128);
    std::vector<packet> packets;
    for (int count = 0; count < 128; count++) {
        packets.push_back(new_packet(owner, 64, 1, group));
        ASSERT_NE(packets.back(), 0u);
    }
    std::uint32_t error = 0;
    EXPECT_EQ(kel_get_packet(owner, group, 64, 1, &error), 0u);
    EXPECT_ERROR(error, ENOMEM);
    EXPECT_EQ(kel_get_buffer(owner, group, 64, 1, &error), 0u);
    EXPECT_ERROR(error, ENOMEM);
    EXPECT_EQ(usage_of_group(owner, group), (usage{128, 128 * 64}));
    packets.clear();

    std::vector<buffer> buffers;
    for (int count = 0; count < 128; count++) {
        buffers.push_back(new_buffer(owner, 64, 1, group));
        ASSERT_NE(buffers.back(), 0u);
    }
    EXPECT_EQ(kel_get_buffer(owner, group, 64, 1, &error), 0u);
    EXPECT_ERROR(error, ENOMEM);
}

TEST_F(reserved_contract, element_size_bounds_contiguous_allocations)
{
    const registration group = new_reserved(owner, NAME, 128, 128);
    EXPECT_NE(new_packet(owner, 128, 1, group), 0u);
    std::uint32_t error = 0;
    EXPECT_EQ(kel_get_packet(owner, group, 256, 1, &error), 0u);
    EXPECT_ERROR(error, ENOMEM);
    EXPECT_EQ(kel_get_packet(owner, group, 129, 1, &error), 0u);
    EXPECT_ERROR(error, ENOMEM);
    EXPECT_EQ(kel_get_buffer(owner, group, 256, 1, &error), 0u);
    EXPECT_ERROR(error, ENOMEM);
    const packet spread = new_packet(owner, 256, 0, group);
    EXPECT_EQ(kel_get_length(spread), 256u);
}

// A group that has reached its maximum and given its last element at once.
TEST_F(reserved_contract, errors_come_in_the_order_in_which_they_are_listed)
{
    const registration group = new_reserved(owner, NAME, 128, 2);
    const kel_bufgroup_thresholds thresholds{2, 0, 1};
    ASSERT_OK(kel_bufgroup_set_params(owner, group, KEL_BUFGROUP_BUFFERS, &thresholds, nullptr));
    const packet first = new_packet(owner, 128, 1, group);
    const packet second = new_packet(owner, 128, 1, group);
    const auto error_of = [&](std::uint32_t size, std::uint32_t tlv_size) {
        std::uint32_t error = 4711;
        EXPECT_EQ(kel_get_packet_with_tlv(owner, group, size, 0, 1, tlv_size, &error), 0u);
        return error;
    };
    EXPECT_ERROR(error_of(128, 228), ENOBUFS) << "not ENOMEM, for there is no element either";
    EXPECT_ERROR(error_of(99'999'999, 228), ENOMEM) << "more than any chain can hold";
    EXPECT_ERROR(error_of(99'999'999, 1024), ENOSPC) << "the TLV comes first";
}

TEST_F(reserved_contract, spread_allocations_span_elements)
{
    const registration group = new_reserved(owner, NAME, 128, 128);
    std::vector<packet> packets;
    for (std::uint32_t count = 0; count < 64; count++) {
        packets.push_back(new_packet(owner, 256, 0, group));
        ASSERT_EQ(kel_get_length(packets.back()), 256u);
        write(packets.back(), pattern(256, count));
    }
    std::uint32_t error = 0;
    EXPECT_EQ(kel_get_packet(owner, group, 256, 0, &error), 0u);
    EXPECT_ERROR(error, ENOMEM);
    for (std::uint32_t count = 0; count < 64; count++) {
        EXPECT_EQ(read(packets[count]), pattern(256, count));
    }
}

struct spacing_row {
    std::uint32_t element_size;
    std::uint32_t head_room;
};

TEST_F(reserved_contract, elements_stand_an_element_apart)
{
    for (const auto &[size, head_room] : {spacing_row{128, 0}, {1700, 32}, {1, 0}, {1500, 0}}) {
        SCOPED_TRACE(size);
        const registration group = new_reserved(owner, NAME, size, 8, head_room);
        std::vector<buffer> buffers;
        std::vector<const std::uint8_t *> starts;
        for (int count = 0; count < 8; count++) {
            buffers.push_back(new_buffer(owner, size, 1, group));
            EXPECT_EQ(buffer_length(buffers.back()), size);
            starts.push_back(data_start(buffers.back()));
        }
        std::ranges::sort(starts, std::less<>{});
        for (std::size_t index = 1; index < starts.size(); index++) {
            EXPECT_GE(starts[index] - starts[index - 1], static_cast<std::ptrdiff_t>(size));
        }
    }
}

// Memory set aside for one group is no other's, and serves another when the group has gone.
TEST_F(reserved_contract, groups_have_memory_of_their_own)
{
    const registration first = new_reserved(owner, "first", 1000, 4);
    auto between = std::make_unique<registration>(new_reserved(owner, "second", 1000, 4));
    const registration last = new_reserved(owner, "third", 1000, 4);
    std::vector<std::pair<buffer, bytes>> held;
    const auto fill = [&](kel_bufgroup group) {
        for (int count = 0; count < 4; count++) {
            held.emplace_back(new_buffer(owner, 1000, 1, group),
                              pattern(1000, static_cast<std::uint32_t>(held.size())));
            write_chain(held.back().first, held.back().second);
        }
    };
    fill(first);
    fill(last);
    for (const std::uint32_t element_size : {1000u, 500u, 2000u}) {
        between.reset();
        between = std::make_unique<registration>(new_reserved(owner, "second", element_size, 4));
        const buffer written = new_buffer(owner, 4 * element_size, 0, *between);
        write_chain(written, pattern(4 * element_size, element_size));
    }
    for (const auto &[written, data] : held) EXPECT_EQ(read_chain(written), data);
}

// Reads memory that may have been given back: what is there is what is asked about.
__attribute__((no_sanitize("address"))) bytes memory_at(const std::uint8_t *address,
                                                        std::size_t size)
{
    bytes found(size);
    const volatile std::uint8_t *source = address;
    for (std::size_t index = 0; index < size; index++) found[index] = source[index];
    return found;
}

TEST_F(reserved_contract, freed_elements_are_poisoned_unless_asked_otherwise)
{
    for (const std::uint32_t no_poison : {0u, 1u}) {
        const registration group = new_reserved(owner, NAME, 512, 8, 0, no_poison);
        packet freed = new_packet(owner, 512, 1, group);
        write(freed, pattern(512));
        const std::uint8_t *address = data_start(kel_get_buf_head(freed));
        EXPECT_OK(kel_free_packet(freed.give()));
        EXPECT_EQ(memory_at(address, 512) == pattern(512), no_poison == 1);
    }
}

TEST_F(reserved_contract, thresholds_hold_for_the_sum_of_both_clients)
{
    const registration group = new_reserved(owner, NAME, 512, 10);
    const registration shared = new_reserved(other, NAME, 512, 10);
    const kel_bufgroup_thresholds thresholds{5, 1, 4};
    ASSERT_OK(kel_bufgroup_set_params(owner, group, KEL_BUFGROUP_BUFFERS, &thresholds, nullptr));
    std::vector<kel_packet> packets;
    for (std::uint32_t count = 1; count <= 5; count++) {
        std::uint32_t error = 4711;
        packets.push_back(kel_get_packet(count % 2 ? owner : other, group, 512, 1, &error));
        EXPECT_NE(packets.back(), 0u);
        if (count < 4) {
            EXPECT_ERROR(error, 0);
        }
        if (count == 4) {
            EXPECT_ERROR(error, KEL_HIGH_THRESHOLD_REACHED);
        }
    }
    for (const kel_client by : {kel_client{owner}, kel_client{other}}) {
        std::uint32_t error = 0;
        EXPECT_EQ(kel_get_packet(by, group, 512, 1, &error), 0u);
        EXPECT_ERROR(error, ENOBUFS);
        EXPECT_EQ(kel_get_buffer(by, group, 512, 1, &error), 0u);
        EXPECT_ERROR(error, ENOBUFS);
    }
    for (std::uint32_t freed = 1; freed <= 5; freed++) {
        EXPECT_ERROR(kel_free_packet(packets[freed - 1]),
                     freed == 4 ? KEL_LOW_THRESHOLD_REACHED : 0);
    }
}

kel_packet_list requests(kel_client by, kel_bufgroup group, std::uint16_t count, std::uint32_t size)
{
    kel_packet_list list{};
    list.count = count;
    for (std::uint16_t index = 0; index < count && index < KEL_LIST_MAX; index++) {
        list.requests[index] = {by, group, size, 0, {}, 0, 0};
    }
    return list;
}

void free_results(const kel_packet_list &list)
{
    for (const kel_packet_result &result : list.results) {
        if (result.packet) {
            EXPECT_OK(kel_free_packet(result.packet));
        }
    }
}

TEST_F(reserved_contract, packet_list_is_served_as_far_as_it_goes)
{
    const registration group = new_reserved(owner, NAME, 128, 5);
    for (const std::uint16_t asked : {std::uint16_t{5}, std::uint16_t{10}, std::uint16_t{16}}) {
        SCOPED_TRACE(asked);
        kel_packet_list list = requests(owner, group, asked, 128);
        ASSERT_OK(kel_get_packet_list(&list));
        EXPECT_EQ(list.allocated, 5);
        for (std::size_t index = 0; index < asked; index++) {
            EXPECT_EQ(list.results[index].packet != 0, index < 5) << index;
            EXPECT_ERROR(list.results[index].error, index < 5 ? 0 : ENOMEM);
            if (index < 5) {
                EXPECT_EQ(kel_get_length(list.results[index].packet), 128u);
            }
        }
        free_results(list);
        EXPECT_EQ(usage_of_group(owner, group), (usage{0, 0}));
    }
}

TEST_F(reserved_contract, packet_list_serves_each_request_by_itself)
{
    const registration group = new_reserved(owner, NAME, 128, 8);
    kel_packet_list list = requests(owner, group, 6, 64);
    list.requests[0].tlv = 1;
    list.requests[0].tlv_size = 228;
    list.requests[1].tlv = 1;
    list.requests[1].tlv_size = 1024;
    list.requests[2].client = 0;
    list.requests[3].group = 0xdeadbeef;
    list.requests[4].group = 0;
    list.requests[4].size = 9000;
    ASSERT_OK(kel_get_packet_list(&list));
    EXPECT_EQ(list.allocated, 3);
    const std::uint32_t errors[] = {0, ENOSPC, EINVAL, EINVAL, 0, 0};
    for (std::size_t index = 0; index < std::size(errors); index++) {
        EXPECT_EQ(list.results[index].packet != 0, errors[index] == 0) << index;
        EXPECT_ERROR(list.results[index].error, errors[index]) << index;
    }
    EXPECT_EQ(kel_get_length(list.results[4].packet), 9000u);
    EXPECT_OK(kel_tlv_setdata(list.results[0].packet, 1, pattern(228).data(), 228));
    free_results(list);
}

TEST_F(reserved_contract, refused_packet_lists)
{
    EXPECT_ERROR(kel_get_packet_list(nullptr), EINVAL);
    kel_packet_list list = requests(owner, 0, KEL_LIST_MAX + 1, 64);
    EXPECT_ERROR(kel_get_packet_list(&list), EINVAL);
    list = requests(owner, 0, 0, 64);
    EXPECT_OK(kel_get_packet_list(&list));
    EXPECT_EQ(list.allocated, 0);
    EXPECT_EQ(take_census().packets, 0u);
}

TEST_F(reserved_contract, buffer_list_is_served_as_far_as_it_goes)
{
    const registration group = new_reserved(owner, NAME, 128, 5);
    for (const std::uint16_t asked : {std::uint16_t{5}, std::uint16_t{10}, std::uint16_t{16}}) {
        SCOPED_TRACE(asked);
        kel_buffer_list list{};
        ASSERT_OK(kel_get_buffer_list(owner, group, 128, 0, asked, &list));
        EXPECT_EQ(list.allocated, 5);
        for (std::size_t index = 0; index < KEL_LIST_MAX; index++) {
            ASSERT_EQ(list.buffers[index] != 0, index < 5) << index;
            if (index >= 5) continue;
            EXPECT_EQ(buffer_length(list.buffers[index]), 128u);
            EXPECT_EQ(kel_buf_get_next(list.buffers[index]), 0u);
            EXPECT_OK(kel_free_buffer(list.buffers[index]));
        }
    }
}

TEST_F(reserved_contract, buffer_list_without_a_group)
{
    kel_buffer_list list{};
    ASSERT_OK(kel_get_buffer_list(owner, 0, 1500, 1, 16, &list));
    EXPECT_EQ(list.allocated, 16);
    EXPECT_EQ(usage_of_client(owner), (usage{16, 16 * 1500}));
    for (const kel_buffer each : list.buffers) EXPECT_OK(kel_free_buffer(each));
}

TEST_F(reserved_contract, refused_buffer_lists)
{
    kel_buffer_list list{};
    EXPECT_ERROR(kel_get_buffer_list(0, 0, 64, 0, 5, &list), EINVAL);
    EXPECT_ERROR(kel_get_buffer_list(BAD_CLIENT, 0, 64, 0, 5, &list), EINVAL);
    EXPECT_ERROR(kel_get_buffer_list(owner, 0xdeadbeef, 64, 0, 5, &list), EINVAL);
    EXPECT_ERROR(kel_get_buffer_list(owner, 0, 64, 0, 5, nullptr), EINVAL);
    EXPECT_ERROR(kel_get_buffer_list(owner, 0, 64, 0, KEL_LIST_MAX + 1, &list), EINVAL);
    EXPECT_EQ(take_census().buffers, 0u);
}

} // namespace

// SPDX-License-Identifier: MIT
//
// Buffer groups: registration, thresholds and the three counts.

#include "tests/contract/contract.h"

#include <array>
#include <cstring>

using namespace contract;

namespace {

constexpr kel_bufgroup_thresholds BUFFERS{5, 1, 4};
constexpr kel_bufgroup_thresholds BYTES{2560, 512, 2048};
constexpr std::uint32_t BOTH = KEL_BUFGROUP_BUFFERS | KEL_BUFGROUP_BYTES;

class bufgroup_contract : public contract::test_with_two_clients {};

TEST_F(bufgroup_contract, five_clients_share_one_name)
{
    std::vector<client> clients;
    std::vector<registration> groups;
    for (int index = 0; index < 5; index++) {
        clients.push_back(new_client());
        groups.emplace_back(clients.back(), "test group");
        EXPECT_EQ(groups.back(), groups.front());
    }
    EXPECT_EQ(take_census().bufgroups, 1u);
}

TEST_F(bufgroup_contract, ten_names_give_ten_equal_pairs)
{
    std::vector<registration> first;
    std::vector<registration> second;
    for (int index = 0; index < 10; index++) {
        const std::string name = "test group" + std::to_string(index);
        first.emplace_back(owner, name.c_str());
        second.emplace_back(other, name.c_str());
        EXPECT_EQ(first.back(), second.back());
        for (int before = 0; before < index; before++) {
            EXPECT_NE(first[static_cast<std::size_t>(before)], first.back());
        }
    }
    EXPECT_EQ(take_census().bufgroups, 10u);
}

TEST_F(bufgroup_contract, refused_registrations)
{
    kel_bufgroup group = 4711;
    EXPECT_ERROR(kel_register_bufgroup(0, &group, "test group"), EINVAL);
    EXPECT_ERROR(kel_register_bufgroup(BAD_CLIENT, &group, "test group"), EINVAL);
    EXPECT_ERROR(kel_register_bufgroup(owner, nullptr, "test group"), EINVAL);
    EXPECT_ERROR(kel_register_bufgroup(owner, &group, nullptr), EINVAL);
    EXPECT_ERROR(kel_register_bufgroup(owner, &group, ""), EINVAL);
    EXPECT_EQ(take_census().bufgroups, 0u);
}

TEST_F(bufgroup_contract, refused_deregistrations)
{
    const registration group(owner, "test group");
    EXPECT_ERROR(kel_deregister_bufgroup(owner, 0), EINVAL);
    EXPECT_ERROR(kel_deregister_bufgroup(owner, 0xdeadbeef), EINVAL);
    EXPECT_ERROR(kel_deregister_bufgroup(0, group), EINVAL);
    EXPECT_ERROR(kel_deregister_bufgroup(other, group), EINVAL);
    EXPECT_EQ(usage_of_group(owner, group), (usage{0, 0}));
}

TEST_F(bufgroup_contract, lives_while_any_registration_stands)
{
    kel_bufgroup group = 0;
    ASSERT_OK(kel_register_bufgroup(owner, &group, "test group"));
    {
        const registration second(other, "test group");
        ASSERT_OK(kel_bufgroup_set_params(owner, group, BOTH, &BUFFERS, &BYTES));
        ASSERT_OK(kel_deregister_bufgroup(owner, group));
        EXPECT_ERROR(kel_deregister_bufgroup(owner, group), EINVAL);
        std::uint32_t mask = 0;
        kel_bufgroup_thresholds buffers{};
        kel_bufgroup_thresholds bytes{};
        EXPECT_OK(kel_bufgroup_get_params(other, second, &mask, &buffers, &bytes));
        EXPECT_EQ(mask, BOTH);
    }
    EXPECT_EQ(take_census().bufgroups, 0u);
    std::uint32_t count = 0;
    EXPECT_ERROR(kel_get_count_bygroup(owner, group, &count, &count), EINVAL);
    EXPECT_EQ(kel_get_packet(owner, group, 512, 1, nullptr), 0u);

    const registration fresh(owner, "test group");
    std::uint32_t mask = 4711;
    kel_bufgroup_thresholds record{};
    EXPECT_OK(kel_bufgroup_get_params(owner, fresh, &mask, &record, &record));
    EXPECT_EQ(mask, 0u) << "thresholds of a group that is gone";
}

TEST_F(bufgroup_contract, outlived_by_its_packets)
{
    kel_bufgroup group = 0;
    ASSERT_OK(kel_register_bufgroup(owner, &group, "test group"));
    const packet held = new_packet(owner, 512, 1, group);
    ASSERT_OK(kel_deregister_bufgroup(owner, group));
    write(held, pattern(512));
    EXPECT_EQ(read(held), pattern(512));
    EXPECT_EQ(usage_of_client(owner), (usage{1, 512}));
}

bool operator==(const kel_bufgroup_thresholds &left, const kel_bufgroup_thresholds &right)
{
    return std::memcmp(&left, &right, sizeof left) == 0;
}

TEST_F(bufgroup_contract, thresholds_read_back_as_set)
{
    const registration group(owner, "test group");
    std::uint32_t mask = 4711;
    kel_bufgroup_thresholds buffers{1, 2, 3};
    kel_bufgroup_thresholds bytes{4, 5, 6};
    ASSERT_OK(kel_bufgroup_get_params(owner, group, &mask, &buffers, &bytes));
    EXPECT_EQ(mask, 0u);
    EXPECT_TRUE(buffers == kel_bufgroup_thresholds{});
    EXPECT_TRUE(bytes == kel_bufgroup_thresholds{});

    const kel_bufgroup_thresholds other_buffers{10, 3, 7};
    ASSERT_OK(kel_bufgroup_set_params(owner, group, KEL_BUFGROUP_BUFFERS, &other_buffers, nullptr));
    ASSERT_OK(kel_bufgroup_get_params(owner, group, &mask, &buffers, &bytes));
    EXPECT_EQ(mask, KEL_BUFGROUP_BUFFERS);
    EXPECT_TRUE(buffers == other_buffers);

    ASSERT_OK(kel_bufgroup_set_params(owner, group, BOTH, &BUFFERS, &BYTES));
    ASSERT_OK(kel_bufgroup_get_params(owner, group, &mask, &buffers, &bytes));
    EXPECT_EQ(mask, BOTH);
    EXPECT_TRUE(buffers == BUFFERS);
    EXPECT_TRUE(bytes == BYTES);
}

TEST_F(bufgroup_contract, refused_thresholds)
{
    const registration group(owner, "test group");
    const kel_bufgroup_thresholds record{10, 3, 7};
    EXPECT_ERROR(kel_bufgroup_set_params(owner, 0, 0, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_bufgroup_set_params(other, group, KEL_BUFGROUP_BYTES, &record, nullptr),
                 EINVAL);
    EXPECT_ERROR(kel_bufgroup_set_params(other, group, KEL_BUFGROUP_BUFFERS, &record, nullptr),
                 EINVAL);
    EXPECT_ERROR(kel_bufgroup_set_params(owner, group, BOTH, &record, nullptr), EINVAL);
    EXPECT_ERROR(kel_bufgroup_set_params(owner, group, BOTH, nullptr, &record), EINVAL);
    EXPECT_ERROR(kel_bufgroup_set_params(0, group, KEL_BUFGROUP_BUFFERS, &record, nullptr), EINVAL);

    std::uint32_t mask = 4711;
    kel_bufgroup_thresholds buffers{};
    kel_bufgroup_thresholds bytes{};
    EXPECT_ERROR(kel_bufgroup_get_params(owner, 0, nullptr, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_bufgroup_get_params(other, group, &mask, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_bufgroup_get_params(owner, group, nullptr, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_bufgroup_get_params(owner, group, &mask, nullptr, &bytes), EINVAL);
    EXPECT_ERROR(kel_bufgroup_get_params(owner, group, &mask, &buffers, nullptr), EINVAL);
    EXPECT_OK(kel_bufgroup_get_params(owner, group, &mask, &buffers, &bytes));
    EXPECT_EQ(mask, 0u);
}

// By packets and by buffers, contiguous, the group's limits are the same.
struct allocation {
    const char *name;
    std::uint32_t (*obtain)(kel_client, kel_bufgroup, std::uint32_t, std::uint8_t, std::uint32_t *);
    std::uint32_t (*release)(std::uint32_t);
};

void PrintTo(const allocation &which, std::ostream *stream)
{
    *stream << which.name;
}

class limit_contract : public bufgroup_contract, public testing::WithParamInterface<allocation> {};

TEST_P(limit_contract, notices_and_refusals_follow_the_thresholds)
{
    const registration group(owner, "test group");
    const registration shared(other, "test group");
    ASSERT_OK(kel_bufgroup_set_params(owner, group, BOTH, &BUFFERS, &BYTES));
    std::array<std::uint32_t, 5> held{};
    for (std::uint32_t count = 1; count <= 5; count++) {
        std::uint32_t error = 4711;
        const kel_client by = count % 2 ? owner : other;
        held[count - 1] = GetParam().obtain(by, group, 512, 1, &error);
        EXPECT_NE(held[count - 1], 0u);
        if (count < 4) {
            EXPECT_ERROR(error, 0);
        }
        if (count == 4) {
            EXPECT_ERROR(error, KEL_HIGH_THRESHOLD_REACHED);
        }
        if (count == 5) {
            EXPECT_TRUE(error == 0 || error == KEL_HIGH_THRESHOLD_REACHED);
        }
        EXPECT_EQ(usage_of_group(other, group), (usage{count, 512 * count}));
    }
    for (const kel_client by : {kel_client{owner}, kel_client{other}}) {
        std::uint32_t error = 0;
        EXPECT_EQ(kel_get_packet(by, group, 512, 1, &error), 0u);
        EXPECT_ERROR(error, ENOBUFS);
        EXPECT_EQ(kel_get_buffer(by, group, 512, 1, &error), 0u);
        EXPECT_ERROR(error, ENOBUFS);
        EXPECT_EQ(usage_of_group(by, group), (usage{5, 2560}));
    }
    EXPECT_EQ(usage_of_client(owner), (usage{3, 1536}));
    EXPECT_EQ(usage_of_client(other), (usage{2, 1024}));
    for (std::uint32_t freed = 1; freed <= 5; freed++) {
        const std::uint32_t error = GetParam().release(held[freed - 1]);
        const bool notice_is_due = freed == 4 && GetParam().release == kel_free_packet;
        EXPECT_ERROR(error, notice_is_due ? KEL_LOW_THRESHOLD_REACHED : 0) << freed;
        EXPECT_EQ(usage_of_group(owner, group), (usage{5 - freed, 512 * (5 - freed)}));
    }
}

INSTANTIATE_TEST_SUITE_P(allocations, limit_contract,
                         testing::Values(allocation{"packets", kel_get_packet, kel_free_packet},
                                         allocation{"buffers", kel_get_buffer, kel_free_buffer}));

TEST_F(bufgroup_contract, duplicates_and_growth_are_refused_beyond_the_maximum)
{
    const registration group(owner, "test group");
    const kel_bufgroup_thresholds buffers{2, 0, 1};
    ASSERT_OK(kel_bufgroup_set_params(owner, group, KEL_BUFGROUP_BUFFERS, &buffers, nullptr));
    const packet first = new_packet(owner, 512, 1, group);
    const packet second = new_packet(owner, 512, 1, group);
    std::uint32_t error = 0;
    EXPECT_EQ(kel_duplicate(first, OFFSET_DATA, 0, KEL_COPY_ALL, &error), 0u);
    EXPECT_ERROR(error, ENOBUFS);
    EXPECT_ERROR(kel_add_head(first, 64), ENOBUFS);
    EXPECT_ERROR(kel_add_tail(second, 64), ENOBUFS);
    EXPECT_EQ(kel_get_length(first), 512u);
    EXPECT_EQ(usage_of_group(owner, group), (usage{2, 1024}));
}

TEST_F(bufgroup_contract, counts_by_client_and_group)
{
    const registration group(owner, "test group");
    const registration shared(other, "test group");
    EXPECT_EQ(usage_of_group(owner, group), (usage{0, 0}));
    EXPECT_EQ(usage_of_group(other, group), (usage{0, 0}));
    EXPECT_EQ(usage_of_client(owner), (usage{0, 0}));

    const packet contiguous = new_packet(owner, 1500, 1, group);
    EXPECT_EQ(usage_of_client(owner), (usage{1, 1500}));
    const packet spread = new_packet(owner, 65536, 0, group);
    const usage with_spread = usage_of_client(owner);
    EXPECT_GT(with_spread.buffers, 2u);
    EXPECT_EQ(with_spread.bytes, 1500u + 65536);
    const buffer single = new_buffer(other, 5000, 0, group);
    EXPECT_EQ(usage_of_client(other), (usage{1, 5000}));
    const packet ungrouped = new_packet(other, 100);
    EXPECT_EQ(usage_of_client(other), (usage{2, 5100}));

    const usage all{with_spread.buffers + 1, with_spread.bytes + 5000};
    EXPECT_EQ(usage_of_group(owner, group), all);
    EXPECT_EQ(usage_of_group(other, group), all);
}

TEST_F(bufgroup_contract, charges_stay_through_trimming_and_shortening)
{
    const packet shortened = new_packet(owner, 1500);
    ASSERT_OK(kel_set_length(shortened, 512));
    EXPECT_EQ(usage_of_client(owner), (usage{1, 1500}));
}

TEST_F(bufgroup_contract, appended_buffer_stays_on_its_obtainers_count)
{
    const packet target = new_packet(owner, 1500);
    buffer added = new_buffer(other, 5000, 0);
    ASSERT_OK(kel_append(target, added.give()));
    const auto stays = [&](const char *after) {
        EXPECT_EQ(usage_of_client(other), (usage{1, 5000})) << after;
    };
    stays("kel_append");
    ASSERT_OK(kel_add_head(target, 1000));
    ASSERT_OK(kel_add_tail(target, 1000));
    stays("growth");
    ASSERT_OK(kel_trim_head(target, 1000));
    ASSERT_OK(kel_trim_tail(target, 1000));
    stays("trimming");
    EXPECT_EQ(kel_get_length(target), 6500u);
    ASSERT_OK(kel_coalesce(target));
    EXPECT_EQ(usage_of_client(other), (usage{0, 0}));
    EXPECT_EQ(usage_of_client(owner), (usage{1, 6500}));
}

// Growth, duplicates and coalescing are charged to whoever holds the packet now.
TEST_F(bufgroup_contract, receiver_is_charged_for_what_it_adds)
{
    ASSERT_OK(kel_register_tag(other, 333));
    packet sent = new_tagged_packet(owner, 333, 512);
    ASSERT_OK(kel_send(owner, sent.give()));
    const packet received(kel_recv(other));
    EXPECT_EQ(usage_of_client(owner), (usage{1, 512}));
    EXPECT_EQ(usage_of_client(other), (usage{0, 0}));
    ASSERT_OK(kel_add_head(received, 100));
    EXPECT_EQ(usage_of_client(other), (usage{1, 100}));
    const packet copy(kel_duplicate(received, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr));
    EXPECT_EQ(usage_of_client(other), (usage{2, 712}));
    ASSERT_OK(kel_coalesce(received));
    EXPECT_EQ(usage_of_client(owner), (usage{0, 0}));
    EXPECT_EQ(usage_of_client(other), (usage{2, 1224}));
    ASSERT_OK(kel_deregister_tag(other, 333));
}

TEST_F(bufgroup_contract, counts_by_tag)
{
    ASSERT_OK(kel_register_tag(other, 333));
    usage counted{4711, 4711};
    EXPECT_OK(kel_get_count_bytag(0, 333, &counted.buffers, &counted.bytes));
    EXPECT_EQ(counted, (usage{0, 0}));
    for (std::uint32_t sent = 1; sent <= 10; sent++) {
        ASSERT_OK(kel_send(owner, new_tagged_packet(owner, 333, 512).give()));
        for (const kel_client asked : {kel_client{0}, kel_client{owner}}) {
            EXPECT_OK(kel_get_count_bytag(asked, 333, &counted.buffers, &counted.bytes));
            EXPECT_GE(counted.buffers, sent);
            EXPECT_GE(counted.bytes, 512 * sent);
        }
        EXPECT_OK(kel_get_count_bytag(other, 333, &counted.buffers, &counted.bytes));
        EXPECT_EQ(counted, (usage{0, 0})) << "it obtained none of them";
    }
    while (packet(kel_recv(other))) {
    }
    EXPECT_OK(kel_get_count_bytag(0, 333, &counted.buffers, &counted.bytes));
    EXPECT_EQ(counted, (usage{0, 0}));
    ASSERT_OK(kel_deregister_tag(other, 333));
}

TEST_F(bufgroup_contract, refused_counts)
{
    const registration group(owner, "test group");
    std::uint32_t buffers = 0;
    std::uint32_t bytes = 0;
    EXPECT_ERROR(kel_get_bufcount_byclient(owner, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_get_bufcount_byclient(owner, &buffers, nullptr), EINVAL);
    EXPECT_ERROR(kel_get_bufcount_byclient(owner, nullptr, &bytes), EINVAL);
    EXPECT_ERROR(kel_get_bufcount_byclient(0, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_get_bufcount_byclient(BAD_CLIENT, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_get_count_bygroup(owner, group, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_get_count_bygroup(owner, 0, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_get_count_bygroup(0, group, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_get_count_bygroup(other, group, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_get_count_bytag(owner, 333, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_get_count_bytag(owner, 0, &buffers, &bytes), EINVAL);
    EXPECT_ERROR(kel_get_count_bytag(BAD_CLIENT, 333, &buffers, &bytes), EINVAL);
}

} // namespace

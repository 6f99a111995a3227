// SPDX-License-Identifier: MIT
//
// Sink roles: who may share a tag and who receives.

#include "tests/contract/contract.h"

using namespace contract;

namespace {

constexpr kel_tag TAG = 65534;

struct role_change {
    std::uint32_t from;
    std::uint32_t to;
    std::uint32_t error;
};

void PrintTo(const role_change &row, std::ostream *stream)
{
    *stream << row.from << " to " << row.to;
}

class role_change_contract : public contract::test,
                             public testing::WithParamInterface<role_change> {};

TEST_P(role_change_contract, is_granted_or_refused)
{
    const client owner = new_client(GetParam().from);
    EXPECT_ERROR(kel_client_ha_role_notify(owner, GetParam().to), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(roles, role_change_contract,
                         testing::Values(role_change{KEL_ROLE_STANDBY, KEL_ROLE_ACTIVE, 0},
                                         role_change{KEL_ROLE_ACTIVE, KEL_ROLE_STANDBY, 0},
                                         role_change{KEL_ROLE_ALWAYS, KEL_ROLE_ACTIVE, EPERM},
                                         role_change{KEL_ROLE_ALWAYS, KEL_ROLE_STANDBY, EPERM},
                                         role_change{KEL_ROLE_ACTIVE, KEL_ROLE_ALWAYS, EPERM},
                                         role_change{KEL_ROLE_STANDBY, KEL_ROLE_ALWAYS, EPERM},
                                         role_change{KEL_ROLE_ACTIVE, 3, EINVAL},
                                         role_change{KEL_ROLE_STANDBY, 0xffffffff, EINVAL}));

class role_contract : public contract::test {
protected:
    static std::uint32_t send(kel_client source)
    {
        packet sent = new_tagged_packet(source, TAG);
        const std::uint32_t error = kel_send(source, sent);
        if (!error) sent.give();
        return error;
    }

    static bool receives(kel_client sink) { return packet(kel_recv(sink)) != 0u; }

    static void give_up(const client &sink) { EXPECT_OK(kel_deregister_tag(sink, TAG)); }
};

TEST_F(role_contract, unknown_client)
{
    EXPECT_ERROR(kel_client_ha_role_notify(0, KEL_ROLE_ACTIVE), EINVAL);
    EXPECT_ERROR(kel_client_ha_role_notify(BAD_CLIENT, KEL_ROLE_ACTIVE), EINVAL);
}

class exclusive_contract : public role_contract,
                           public testing::WithParamInterface<std::pair<unsigned, unsigned>> {};

TEST_P(exclusive_contract, second_holder_waits_for_the_first_to_leave)
{
    const auto [first_role, second_role] = GetParam();
    const client first = new_receiver(TAG, first_role);
    const client second = new_client(second_role);
    EXPECT_ERROR(kel_register_tag(second, TAG), EEXIST);
    ASSERT_OK(send(second));
    EXPECT_FALSE(receives(second));
    EXPECT_TRUE(receives(first));

    give_up(first);
    EXPECT_OK(kel_register_tag(second, TAG));
    ASSERT_OK(send(first));
    EXPECT_TRUE(receives(second));
    give_up(second);
}

INSTANTIATE_TEST_SUITE_P(roles, exclusive_contract,
                         testing::Values(std::pair{KEL_ROLE_ALWAYS, KEL_ROLE_ACTIVE},
                                         std::pair{KEL_ROLE_ACTIVE, KEL_ROLE_ALWAYS},
                                         std::pair{KEL_ROLE_ALWAYS, KEL_ROLE_ALWAYS},
                                         std::pair{KEL_ROLE_ACTIVE, KEL_ROLE_ACTIVE}));

// A dynamic tag is as exclusive as another.
TEST_P(exclusive_contract, dynamic_tag_is_held_once)
{
    const auto [first_role, second_role] = GetParam();
    const client first = new_client(first_role);
    const client second = new_client(second_role);
    kel_tag tag = 0;
    ASSERT_OK(kel_alloc_tag(first, &tag, "dyn. tag"));
    EXPECT_ERROR(kel_register_tag(second, tag), EACCES);
    ASSERT_OK(kel_register_tag(first, tag));
    EXPECT_ERROR(kel_register_tag(second, tag), EEXIST);
    ASSERT_OK(kel_free_tag(first, tag));
}

TEST_F(role_contract, eight_sinks_share_a_tag)
{
    std::vector<client> sinks;
    for (std::uint32_t index = 0; index < KEL_SINKS_PER_TAG; index++) {
        sinks.push_back(new_receiver(TAG, KEL_ROLE_STANDBY));
    }
    const client ninth = new_client(KEL_ROLE_STANDBY);
    EXPECT_ERROR(kel_register_tag(ninth, TAG), ENOSPC);
    EXPECT_EQ(kel_is_tag_registered(ninth, TAG), 0);

    give_up(sinks[3]);
    EXPECT_OK(kel_register_tag(ninth, TAG));
    EXPECT_ERROR(kel_register_tag(sinks[3], TAG), ENOSPC);
    give_up(ninth);
    sinks.erase(sinks.begin() + 3);
    for (const client &sink : sinks) give_up(sink);
}

TEST_F(role_contract, one_client_registers_a_shared_tag_once)
{
    const client sink = new_receiver(TAG, KEL_ROLE_STANDBY);
    EXPECT_ERROR(kel_register_tag(sink, TAG), EEXIST);
    give_up(sink);
}

TEST_F(role_contract, shared_and_exclusive_do_not_mix)
{
    const client sink = new_receiver(TAG, KEL_ROLE_STANDBY);
    const client always = new_client(KEL_ROLE_ALWAYS);
    const client active = new_client(KEL_ROLE_ACTIVE);
    EXPECT_ERROR(kel_register_tag(always, TAG), EEXIST);
    EXPECT_ERROR(kel_register_tag(active, TAG), EEXIST);
    give_up(sink);
    ASSERT_OK(kel_register_tag(always, TAG));
    EXPECT_ERROR(kel_register_tag(sink, TAG), EEXIST);
    give_up(always);
}

TEST_F(role_contract, standby_holders_never_receive)
{
    const client source = new_client(KEL_ROLE_STANDBY);
    const client first = new_receiver(TAG, KEL_ROLE_STANDBY);
    const client second = new_receiver(TAG, KEL_ROLE_STANDBY);
    EXPECT_ERROR(send(source), ENOENT);
    ASSERT_OK(kel_client_ha_role_notify(first, KEL_ROLE_ACTIVE));
    ASSERT_OK(send(source));
    EXPECT_FALSE(receives(second));
    EXPECT_TRUE(receives(first));
    ASSERT_OK(kel_client_ha_role_notify(first, KEL_ROLE_STANDBY));
    EXPECT_ERROR(send(source), ENOENT);
    EXPECT_FALSE(receives(first));
    give_up(first);
    give_up(second);
}

TEST_F(role_contract, latest_active_holder_receives)
{
    const client source = new_client(KEL_ROLE_STANDBY);
    std::vector<client> sinks(3);
    for (client &sink : sinks) sink = new_receiver(TAG, KEL_ROLE_STANDBY);
    const auto goes_to = [&](std::size_t expected) {
        EXPECT_OK(send(source));
        for (std::size_t index = 0; index < sinks.size(); index++) {
            EXPECT_EQ(receives(sinks[index]), index == expected) << "sink " << index;
        }
    };
    for (std::size_t index = 0; index < sinks.size(); index++) {
        ASSERT_OK(kel_client_ha_role_notify(sinks[index], KEL_ROLE_ACTIVE));
        goes_to(index);
    }
    ASSERT_OK(kel_client_ha_role_notify(sinks[2], KEL_ROLE_STANDBY));
    goes_to(1);
    ASSERT_OK(kel_client_ha_role_notify(sinks[2], KEL_ROLE_ACTIVE));
    goes_to(2);
    give_up(sinks[2]);
    goes_to(1);
    give_up(sinks[1]);
    goes_to(0);
    give_up(sinks[0]);
    EXPECT_ERROR(send(source), ENOENT);
}

TEST_F(role_contract, holder_that_leaves_the_middle_is_passed_over)
{
    const client source = new_client();
    const client first = new_receiver(TAG, KEL_ROLE_STANDBY);
    client second = new_receiver(TAG, KEL_ROLE_STANDBY);
    const client third = new_receiver(TAG, KEL_ROLE_STANDBY);
    for (const kel_client sink : {kel_client{first}, kel_client{second}, kel_client{third}}) {
        ASSERT_OK(kel_client_ha_role_notify(sink, KEL_ROLE_ACTIVE));
    }
    leaves_objects_to_deregistration();
    ASSERT_OK(kel_deregister_client(second.give()));
    ASSERT_OK(kel_client_ha_role_notify(third, KEL_ROLE_STANDBY));
    ASSERT_OK(send(source));
    EXPECT_TRUE(receives(first));
    give_up(first);
    give_up(third);
}

// The client's registration counts, not what it has become by the time it registers the tag.
TEST_F(role_contract, role_changed_before_the_tag_is_registered)
{
    const client first = new_receiver(TAG, KEL_ROLE_STANDBY);
    const client sharing = new_client(KEL_ROLE_STANDBY);
    ASSERT_OK(kel_client_ha_role_notify(sharing, KEL_ROLE_ACTIVE));
    EXPECT_OK(kel_register_tag(sharing, TAG));
    const client alone = new_client(KEL_ROLE_ACTIVE);
    ASSERT_OK(kel_client_ha_role_notify(alone, KEL_ROLE_STANDBY));
    EXPECT_ERROR(kel_register_tag(alone, TAG), EEXIST);
    give_up(first);
    give_up(sharing);

    ASSERT_OK(kel_register_tag(alone, TAG));
    EXPECT_ERROR(kel_register_tag(sharing, TAG), EEXIST);
    give_up(alone);
    ASSERT_OK(kel_register_tag(sharing, TAG));
    EXPECT_OK(kel_register_tag(first, TAG));
    give_up(first);
    give_up(sharing);
}

TEST_F(role_contract, sharing_goes_by_the_role_at_registration)
{
    const client first = new_receiver(TAG, KEL_ROLE_STANDBY);
    ASSERT_OK(kel_client_ha_role_notify(first, KEL_ROLE_ACTIVE));
    const client second = new_receiver(TAG, KEL_ROLE_STANDBY);
    const client source = new_client();
    ASSERT_OK(send(source));
    EXPECT_TRUE(receives(first));
    give_up(first);
    give_up(second);
}

TEST_F(role_contract, shared_dynamic_tag_goes_with_its_owner)
{
    const client owner = new_client(KEL_ROLE_STANDBY);
    const client other = new_client(KEL_ROLE_STANDBY);
    kel_tag tag = 0;
    ASSERT_OK(kel_alloc_tag(owner, &tag, "dyn. tag"));
    ASSERT_OK(kel_register_tag(owner, tag));
    ASSERT_OK(kel_register_tag(other, tag));
    EXPECT_ERROR(kel_free_tag(other, tag), EACCES);
    ASSERT_OK(kel_free_tag(owner, tag));
    EXPECT_EQ(kel_is_tag_registered(0, tag), 0);
    EXPECT_EQ(kel_is_tag_registered(other, tag), 0);
    EXPECT_ERROR(kel_register_tag(other, tag), EINVAL);
}

// A redundant set as applications build it: a source whose group bounds what is under way.
TEST_F(role_contract, source_with_a_bounded_group)
{
    const client source = new_client(KEL_ROLE_STANDBY);
    const client sink = new_receiver(TAG, KEL_ROLE_STANDBY);
    ASSERT_OK(kel_client_ha_role_notify(sink, KEL_ROLE_ACTIVE));
    const registration group(source, "test group");
    const kel_bufgroup_thresholds thresholds{32, 0, 31};
    ASSERT_OK(kel_bufgroup_set_params(source, group, KEL_BUFGROUP_BUFFERS, &thresholds, nullptr));
    for (std::uint32_t count = 1; count <= 32; count++) {
        std::uint32_t error = 4711;
        const kel_packet sent = kel_get_packet(source, group, 128, 1, &error);
        if (count != 32) {
            EXPECT_ERROR(error, count == 31 ? KEL_HIGH_THRESHOLD_REACHED : 0) << count;
        }
        ASSERT_OK(kel_set_tag(sent, TAG));
        ASSERT_OK(kel_send(source, sent));
    }
    std::uint32_t error = 0;
    EXPECT_EQ(kel_get_packet(source, group, 128, 1, &error), 0u);
    EXPECT_ERROR(error, ENOBUFS);
    for (std::uint32_t left = 32; left > 0; left--) {
        EXPECT_ERROR(kel_free_packet(kel_recv(sink)), left == 1 ? KEL_LOW_THRESHOLD_REACHED : 0);
    }
    give_up(sink);
}

} // namespace

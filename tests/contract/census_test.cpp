// SPDX-License-Identifier: MIT
//
// The census itself: what lives is counted, what is gone is not.

#include "tests/contract/contract.h"

#include <fcntl.h>
#include <unistd.h>

using namespace contract;

namespace {

class census_contract : public contract::test {};

TEST_F(census_contract, counts_every_kind_of_object)
{
    client owner = new_receiver(100);
    EXPECT_EQ(take_census().clients, 1u);
    EXPECT_EQ(take_census().tags, 1u);
    kel_tag tag = 0;
    ASSERT_OK(kel_alloc_tag(owner, &tag, "dyn. tag"));
    EXPECT_EQ(take_census().allocated_tags, 1u);
    {
        const packet held = new_packet(owner, 65536, 0);
        EXPECT_EQ(take_census().packets, 1u);
        EXPECT_EQ(take_census().buffers, kel_get_buf_count(held));
        EXPECT_GE(take_census().arena_bytes, 65536u);
        ASSERT_OK(kel_tlv_alloc(held, 1, 228));
        ASSERT_OK(kel_tlv_alloc(held, 2, 228));
        EXPECT_EQ(take_census().tlvs, 2u);
        const registration group(owner, "test group");
        EXPECT_EQ(take_census().bufgroups, 1u);
        ASSERT_OK(kel_event_add_bufgroup(owner, group, 3, 0, 0));
        ASSERT_OK(kel_event_add_tag(owner, 100, 0, 0));
        EXPECT_EQ(take_census().events, 2u) << "one armed, one pending";
        ASSERT_OK(kel_event_clear(owner));
    }
    ASSERT_OK(kel_free_tag(owner, tag));
    ASSERT_OK(kel_deregister_tag(owner, 100));
    ASSERT_OK(kel_deregister_client(owner.give()));
    EXPECT_EQ(describe(take_census()), describe({}));
}

TEST_F(census_contract, tells_what_deregistrations_release)
{
    leaves_objects_to_deregistration();
    const std::uint32_t before = take_census().released_by_deregistration;
    client owner = new_client();
    new_packet(owner).give();
    ASSERT_OK(kel_deregister_client(owner.give()));
    EXPECT_GT(take_census().released_by_deregistration, before);
    EXPECT_EQ(describe(take_census()), describe({}));
}

TEST_F(census_contract, deregistration_closes_descriptors_and_ends_the_daemon)
{
    const auto lowest_free_descriptor = [] {
        const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(lowest);
        return lowest;
    };
    {
        const client warm_up = new_client();
    }
    const int before = lowest_free_descriptor();
    for (int round = 0; round < 50; round++) {
        const client first = new_client();
        const client second = new_client();
    }
    EXPECT_EQ(lowest_free_descriptor(), before);
}

} // namespace

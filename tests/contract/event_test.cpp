// SPDX-License-Identifier: MIT
//
// Events: arming, firing, waiting and the descriptor.

#include "tests/contract/contract.h"

#include <atomic>
#include <cstring>
#include <thread>

using namespace contract;

namespace {

constexpr kel_tag TAG = 5678;

class event_contract : public contract::test {
protected:
    client owner = new_client(KEL_ROLE_ACTIVE, 4);
    client other = new_client();

    void SetUp() override
    {
        contract::test::SetUp();
        ASSERT_OK(kel_register_tag(owner, TAG));
    }

    void TearDown() override
    {
        EXPECT_OK(kel_event_clear(owner));
        EXPECT_OK(kel_event_clear(other));
        while (packet(kel_recv(owner))) {
        }
        if (kel_is_tag_registered(owner, TAG)) {
            EXPECT_OK(kel_deregister_tag(owner, TAG));
        }
        EXPECT_OK(kel_deregister_client(owner.give()));
        EXPECT_OK(kel_deregister_client(other.give()));
        contract::test::TearDown();
    }

    void send(int count) const
    {
        for (int sent = 0; sent < count; sent++) {
            ASSERT_OK(kel_send(owner, new_tagged_packet(owner, TAG).give()));
        }
    }
};

::testing::AssertionResult is_event(const kel_event &event, const kel_event &expected)
{
    if (std::memcmp(&event, &expected, sizeof event) == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "type " << event.type << ", flags " << event.flags << ", contexts " << event.context1
           << ' ' << event.context2 << ", object " << event.object << ", group flags "
           << event.group_flags;
}

TEST_F(event_contract, refused_additions)
{
    const registration group(owner, "test group");
    const kel_event refused[] = {{2989, 0, 1, 2, TAG, 0},
                                 {KEL_EVENT_NONE, 0, 1, 2, TAG, 0},
                                 {KEL_EVENT_ALL, 0, 1, 2, 0, 0},
                                 {5, 0, 1, 2, TAG, 0},
                                 {KEL_EVENT_BUFGROUP, 0, 0, 0, 0, 0},
                                 {KEL_EVENT_BUFGROUP, 0, 1, 2, 2989, 3},
                                 {KEL_EVENT_BUFGROUP, 0, 1, 2, group, 2989},
                                 {KEL_EVENT_BUFGROUP, 0, 1, 2, group, 0},
                                 {KEL_EVENT_BUFGROUP, 0, 1, 2, group, 4},
                                 {KEL_EVENT_BUFGROUP, 1, 1, 2, group, 3},
                                 {KEL_EVENT_TAG, 2989, 1, 2, TAG, 0},
                                 {KEL_EVENT_TAG, 0, 1, 2, 56, 0},
                                 {KEL_EVENT_TAG, 0, 1, 2, 0, 0},
                                 {KEL_EVENT_TAG_REGISTERED, 2989, 1, 2, TAG, 0},
                                 {KEL_EVENT_TAG_REGISTERED, 0, 1, 2, 0, 0}};
    for (const kel_event &event : refused) {
        EXPECT_ERROR(kel_event_add(owner, &event), EINVAL)
            << "type " << event.type << " object " << event.object;
    }
    const kel_event good{KEL_EVENT_TAG, 0, 1, 2, TAG, 0};
    EXPECT_ERROR(kel_event_add(0, &good), EINVAL);
    EXPECT_ERROR(kel_event_add(BAD_CLIENT, &good), EINVAL);
    EXPECT_ERROR(kel_event_add(owner, nullptr), EINVAL);
    const kel_event not_registered{KEL_EVENT_BUFGROUP, 0, 1, 2, group, 3};
    EXPECT_ERROR(kel_event_add(other, &not_registered), EINVAL);
    EXPECT_EQ(take_census().events, 0u);
}

TEST_F(event_contract, adds_and_removes)
{
    const registration group(owner, "test group");
    const kel_event accepted[] = {{KEL_EVENT_BUFGROUP, 0, 1, 2, group, 3},
                                  {KEL_EVENT_TAG, 0, 1, 2, TAG, 0},
                                  {KEL_EVENT_TAG_REGISTERED, 0, 1, 2, TAG, 0},
                                  {KEL_EVENT_TAG_REGISTERED, 0, 1, 2, 56, 0}};
    for (const kel_event &event : accepted) EXPECT_OK(kel_event_add(owner, &event));
    EXPECT_EQ(take_census().events, 4u);

    for (const kel_event &event : {kel_event{KEL_EVENT_BUFGROUP, 0, 1, 2, 2989, 3},
                                   {2989, 0, 1, 2, TAG, 0},
                                   {KEL_EVENT_BUFGROUP, 0, 1, 2, group, 2989},
                                   {KEL_EVENT_TAG, 2989, 1, 2, TAG, 0}}) {
        EXPECT_ERROR(kel_event_remove(owner, &event), EINVAL);
    }
    EXPECT_ERROR(kel_event_remove(owner, nullptr), EINVAL);
    EXPECT_ERROR(kel_event_remove(0, &accepted[0]), EINVAL);
    EXPECT_EQ(take_census().events, 4u);

    EXPECT_OK(kel_event_remove(owner, &accepted[0]));
    EXPECT_ERROR(kel_event_remove(owner, &accepted[0]), ENOENT);
    EXPECT_EQ(take_census().events, 3u);
    const kel_event all{KEL_EVENT_ALL, 0, 0, 0, 0, 0};
    EXPECT_OK(kel_event_remove(owner, &all));
    EXPECT_OK(kel_event_remove(owner, &all));
    EXPECT_EQ(take_census().events, 0u);
    EXPECT_EQ(next_event(owner).type, KEL_EVENT_NONE);
}

TEST_F(event_contract, tag_events_by_their_own_operations)
{
    EXPECT_ERROR(kel_event_add_tag(0, TAG, 1, 2), EINVAL);
    EXPECT_ERROR(kel_event_add_tag(owner, 100, 1, 2), EINVAL);
    EXPECT_ERROR(kel_event_add_tag(owner, 0, 1, 2), EINVAL);
    EXPECT_ERROR(kel_event_remove_tag(owner, TAG), ENOENT);
    EXPECT_ERROR(kel_event_remove_tag(0, TAG), EINVAL);
    EXPECT_OK(kel_event_add_tag(owner, TAG, 1, 2));
    EXPECT_OK(kel_event_remove_tag(owner, TAG));
    EXPECT_EQ(take_census().events, 0u);
}

TEST_F(event_contract, group_events_by_their_own_operations)
{
    const registration group(owner, "test group");
    EXPECT_ERROR(kel_event_add_bufgroup(0, group, 3, 1, 2), EINVAL);
    EXPECT_ERROR(kel_event_add_bufgroup(owner, 0, 3, 1, 2), EINVAL);
    EXPECT_ERROR(kel_event_add_bufgroup(owner, group, 0xdeadbeef, 1, 2), EINVAL);
    EXPECT_ERROR(kel_event_add_bufgroup(owner, 0, 0xdeadbeef, 1, 2), EINVAL);
    for (const std::uint32_t flags : {3u, 2u, 1u}) {
        EXPECT_OK(kel_event_add_bufgroup(owner, group, flags, flags, flags));
    }
    EXPECT_EQ(take_census().events, 3u) << "the group flags tell events on one group apart";
    EXPECT_OK(kel_event_remove_bufgroup(owner, group, 1));
    EXPECT_OK(kel_event_remove_bufgroup(owner, group, 3));
    EXPECT_ERROR(kel_event_remove_bufgroup(owner, group, 3), ENOENT);
    EXPECT_ERROR(kel_event_remove_bufgroup(owner, group, 0xdeadbeef), EINVAL);
    EXPECT_ERROR(kel_event_remove_bufgroup(owner, 0, 2), EINVAL);
    EXPECT_ERROR(kel_event_remove_bufgroup(0, group, 2), EINVAL);
    EXPECT_EQ(take_census().events, 1u);
    EXPECT_OK(kel_event_clear(owner));
}

TEST_F(event_contract, events_on_a_group_end_with_the_registration)
{
    {
        const registration group(owner, "test group");
        ASSERT_OK(kel_event_add_bufgroup(owner, group, 3, 1, 2));
    }
    EXPECT_EQ(take_census().events, 0u);
}

TEST_F(event_contract, clear)
{
    EXPECT_ERROR(kel_event_clear(0), EINVAL);
    EXPECT_ERROR(kel_event_clear(BAD_CLIENT), EINVAL);
    EXPECT_OK(kel_event_clear(owner)) << "with nothing armed";
    ASSERT_OK(kel_event_add_tag(owner, TAG, 1, 2));
    EXPECT_TRUE(is_exceptional(owner));
    EXPECT_OK(kel_event_clear(owner));
    EXPECT_FALSE(is_exceptional(owner));
    EXPECT_EQ(next_event(owner).type, KEL_EVENT_NONE);
}

TEST_F(event_contract, refused_waits)
{
    kel_event event{};
    timeval no_time{0, 0};
    timeval odd{0, 1'000'000};
    timeval negative{-1, 0};
    EXPECT_ERROR(kel_event_wait(0, &event, &no_time), EINVAL);
    EXPECT_ERROR(kel_event_wait(0, &event, nullptr), EINVAL);
    EXPECT_ERROR(kel_event_wait(0, nullptr, nullptr), EINVAL);
    EXPECT_ERROR(kel_event_wait(BAD_CLIENT, &event, nullptr), EINVAL);
    EXPECT_ERROR(kel_event_wait(owner, nullptr, &no_time), EINVAL);
    EXPECT_ERROR(kel_event_wait(owner, &event, &odd), EINVAL);
    EXPECT_ERROR(kel_event_wait(owner, &event, &negative), EINVAL);
}

TEST_F(event_contract, wait_takes_its_time)
{
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(next_event(owner, 0us).type, KEL_EVENT_NONE);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_EQ(next_event(owner, 100ms).type, KEL_EVENT_NONE);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
}

TEST_F(event_contract, room_in_the_queue_is_reported_at_once)
{
    ASSERT_OK(kel_event_add_tag(owner, TAG, 0x12345678, 0x9abcdef0));
    EXPECT_TRUE(is_exceptional(owner));
    EXPECT_TRUE(is_event(next_event(owner), {KEL_EVENT_TAG, 0, 0x12345678, 0x9abcdef0, TAG, 0}));
    EXPECT_FALSE(is_exceptional(owner));
    EXPECT_EQ(next_event(owner).type, KEL_EVENT_NONE) << "reported twice";
}

// The queue counts as full from the depth that was asked for, though a few more are accepted.
TEST_F(event_contract, full_queue_of_depth_4)
{
    send(4);
    ASSERT_OK(kel_event_add_tag(owner, TAG, 1, 2));
    EXPECT_EQ(next_event(owner).type, KEL_EVENT_NONE);
    EXPECT_EQ(next_event(owner, 1s).type, KEL_EVENT_NONE);
    EXPECT_FALSE(is_exceptional(owner));
    EXPECT_NE(packet(kel_recv(owner)), 0u);
    ASSERT_OK(kel_event_add_tag(owner, TAG, 1, 2));
    EXPECT_TRUE(is_event(next_event(owner), {KEL_EVENT_TAG, 0, 1, 2, TAG, 0}));
}

TEST_F(event_contract, room_after_a_full_queue_is_reported)
{
    send(8);
    ASSERT_OK(kel_event_add_tag(other, TAG, 3, 4)) << "a sender waits for a receiver's queue";
    for (int left = 7; left >= 4; left--) {
        EXPECT_NE(packet(kel_recv(owner)), 0u);
        EXPECT_FALSE(is_exceptional(other)) << left << " are left";
    }
    EXPECT_NE(packet(kel_recv(owner)), 0u);
    EXPECT_TRUE(is_exceptional(other));
    EXPECT_FALSE(is_exceptional(owner));
    EXPECT_TRUE(is_event(next_event(other), {KEL_EVENT_TAG, 0, 3, 4, TAG, 0}));
}

TEST_F(event_contract, room_by_freeing_waiting_packets_is_reported)
{
    std::vector<kel_packet> sent;
    for (int count = 0; count < 4; count++) {
        sent.push_back(new_tagged_packet(owner, TAG).give());
        ASSERT_OK(kel_send(owner, sent.back()));
    }
    ASSERT_OK(kel_event_add_tag(owner, TAG, 1, 2));
    EXPECT_FALSE(is_exceptional(owner));
    EXPECT_OK(kel_free_packet(sent[2]));
    EXPECT_TRUE(is_event(next_event(owner), {KEL_EVENT_TAG, 0, 1, 2, TAG, 0}));
}

TEST_F(event_contract, tag_registered)
{
    const kel_event held{KEL_EVENT_TAG_REGISTERED, 0, 1, 2, TAG, 0};
    ASSERT_OK(kel_event_add(other, &held));
    ASSERT_TRUE(is_exceptional(other)) << "a wait would not end";
    kel_event event{};
    EXPECT_OK(kel_event_wait(other, &event, nullptr));
    EXPECT_TRUE(is_event(event, held));

    const kel_event awaited{KEL_EVENT_TAG_REGISTERED, 0, 3, 4, 56, 0};
    ASSERT_OK(kel_event_add(other, &awaited));
    EXPECT_EQ(next_event(other).type, KEL_EVENT_NONE);
    std::thread registering([&] {
        std::this_thread::sleep_for(100ms);
        EXPECT_OK(kel_register_tag(owner, 56));
    });
    EXPECT_TRUE(is_event(next_event(other, 5s), awaited));
    registering.join();
    EXPECT_OK(kel_deregister_tag(owner, 56));
}

class group_event_contract : public event_contract {
protected:
    static constexpr kel_bufgroup_thresholds THRESHOLDS{5, 1, 4};

    static registration new_group(kel_client member)
    {
        registration group(member, "test group");
        EXPECT_OK(
            kel_bufgroup_set_params(member, group, KEL_BUFGROUP_BUFFERS, &THRESHOLDS, nullptr));
        return group;
    }

    // Takes all packets that the group gives.
    static std::vector<packet> fill(kel_client member, kel_bufgroup group)
    {
        std::vector<packet> held(THRESHOLDS.max);
        for (packet &each : held) each = new_packet(member, 512, 1, group);
        return held;
    }

    // Tells at which counts the event fires while the group is filled and emptied.
    static std::vector<int> crossings(kel_client member, kel_bufgroup group, std::uint32_t flags)
    {
        std::vector<int> fired;
        std::vector<packet> held;
        const auto look = [&](int count) {
            const kel_event event = next_event(member);
            if (event.type == KEL_EVENT_NONE) return;
            EXPECT_TRUE(is_event(event, {KEL_EVENT_BUFGROUP, 0, 7, 8, group, flags}));
            EXPECT_OK(kel_event_add_bufgroup(member, group, flags, 7, 8));
            fired.push_back(count);
        };
        EXPECT_OK(kel_event_add_bufgroup(member, group, flags, 7, 8));
        look(0);
        for (int count = 1; count <= 5; count++) {
            held.push_back(new_packet(member, 512, 1, group));
            look(count);
        }
        while (!held.empty()) {
            held.pop_back();
            look(-static_cast<int>(held.size()));
        }
        EXPECT_OK(kel_event_remove_bufgroup(member, group, flags));
        return fired;
    }
};

TEST_F(group_event_contract, fires_at_the_thresholds_chosen)
{
    const registration group = new_group(owner);
    EXPECT_EQ(crossings(owner, group, KEL_EVENT_GROUP_LOW), (std::vector{-1}));
    EXPECT_EQ(crossings(owner, group, KEL_EVENT_GROUP_HIGH), (std::vector{4}));
    EXPECT_EQ(crossings(owner, group, 3), (std::vector{4, -1}));
}

TEST_F(group_event_contract, armed_beyond_a_threshold_waits_for_the_next_crossing)
{
    const registration group = new_group(owner);
    std::vector<packet> held = fill(owner, group);
    ASSERT_OK(kel_event_add_bufgroup(owner, group, KEL_EVENT_GROUP_HIGH, 1, 2));
    EXPECT_EQ(next_event(owner).type, KEL_EVENT_NONE);
}

class coalescing_contract : public group_event_contract {
protected:
    // A packet of so many buffers of 64 bytes, all from the group.
    static packet spread(kel_client member, kel_bufgroup group, int buffers)
    {
        packet target = new_packet(member, 64, 1, group);
        while (--buffers > 0) {
            EXPECT_OK(kel_append(target, new_buffer(member, 64, 1, group).give()));
        }
        return target;
    }

    static std::uint32_t event_type(kel_client asked) { return next_event(asked).type; }
};

// What the group sees of a coalescing is the count before it and the count after it.
TEST_F(coalescing_contract, comes_down_to_the_low_threshold)
{
    const registration group = new_group(owner);
    const packet target = spread(owner, group, 3);
    ASSERT_OK(kel_event_add_bufgroup(owner, group, KEL_EVENT_GROUP_LOW, 1, 2));
    ASSERT_OK(kel_coalesce(target));
    EXPECT_EQ(usage_of_group(owner, group), (usage{1, 192}));
    EXPECT_EQ(event_type(owner), KEL_EVENT_BUFGROUP);
}

TEST_F(coalescing_contract, crosses_nothing_on_its_way)
{
    const registration group = new_group(owner);
    const kel_bufgroup_thresholds thresholds{9, 3, 4};
    ASSERT_OK(kel_bufgroup_set_params(owner, group, KEL_BUFGROUP_BUFFERS, &thresholds, nullptr));
    const packet target = spread(owner, group, 3);
    ASSERT_OK(kel_event_add_bufgroup(owner, group, KEL_EVENT_GROUP_LOW, 1, 2));
    ASSERT_OK(kel_event_add_bufgroup(owner, group, KEL_EVENT_GROUP_HIGH, 1, 2));
    ASSERT_OK(kel_coalesce(target));
    EXPECT_EQ(event_type(owner), KEL_EVENT_NONE);
    ASSERT_OK(kel_event_clear(owner));
}

TEST_F(coalescing_contract, is_granted_at_the_maximum)
{
    const registration group = new_group(owner);
    const kel_bufgroup_thresholds bytes{320, 64, 256};
    ASSERT_OK(kel_bufgroup_set_params(owner, group, KEL_BUFGROUP_BYTES, nullptr, &bytes));
    const packet target = spread(owner, group, 5);
    EXPECT_OK(kel_coalesce(target));
    EXPECT_EQ(usage_of_group(owner, group), (usage{1, 320}));
}

// Bytes from elsewhere are charged to the group, and it has no more.
TEST_F(coalescing_contract, is_refused_when_it_takes_more_than_it_frees)
{
    const registration group = new_group(owner);
    const kel_bufgroup_thresholds bytes{320, 64, 256};
    ASSERT_OK(kel_bufgroup_set_params(owner, group, KEL_BUFGROUP_BYTES, nullptr, &bytes));
    const packet target = spread(owner, group, 4);
    ASSERT_OK(kel_append(target, new_buffer(owner, 65).give()));
    EXPECT_ERROR(kel_coalesce(target), ENOBUFS);
    EXPECT_EQ(kel_get_buf_count(target), 5u);
    EXPECT_EQ(usage_of_group(owner, group), (usage{4, 256}));
}

TEST_F(group_event_contract, freeing_in_one_thread_wakes_another)
{
    const registration group = new_group(owner);
    std::vector<packet> held = fill(owner, group);
    EXPECT_EQ(kel_get_packet(owner, group, 512, 1, nullptr), 0u);
    ASSERT_OK(kel_event_add_bufgroup(owner, group, KEL_EVENT_GROUP_LOW, 1, 2));
    std::thread freeing([&] {
        std::this_thread::sleep_for(50ms);
        held.clear();
    });
    EXPECT_TRUE(is_exceptional(owner, 5s));
    freeing.join();
    ASSERT_TRUE(is_exceptional(owner)) << "a wait would not end";
    kel_event event{};
    EXPECT_OK(kel_event_wait(owner, &event, nullptr));
    EXPECT_TRUE(is_event(event, {KEL_EVENT_BUFGROUP, 0, 1, 2, group, 1}));
}

TEST_F(event_contract, exceptional_until_all_pending_events_are_reported)
{
    for (const kel_tag tag : {TAG, kel_tag{56}}) {
        const kel_event event{KEL_EVENT_TAG_REGISTERED, 0, tag, 0, tag, 0};
        ASSERT_OK(kel_event_add(owner, &event));
    }
    ASSERT_OK(kel_event_add_tag(owner, TAG, 1, 2));
    EXPECT_FALSE(is_readable(owner)) << "events are no packets";
    for (int left = 2; left > 0; left--) {
        EXPECT_TRUE(is_exceptional(owner));
        EXPECT_NE(next_event(owner).type, KEL_EVENT_NONE);
    }
    EXPECT_FALSE(is_exceptional(owner));
    EXPECT_OK(kel_event_clear(owner));
}

// Ends the wait of another thread without limit, however it is ended.
std::uint32_t result_of_ended_wait(kel_client waiting, std::uint32_t (*end)(kel_client))
{
    std::atomic<std::uint32_t> result{4711};
    std::thread waiter([&] {
        kel_event event{};
        result = kel_event_wait(waiting, &event, nullptr);
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(result, 4711u) << "it did not wait";
    EXPECT_OK(end(waiting));
    // The thread may not have got as far as waiting.
    for (int attempt = 0; attempt < 100 && result == 4711; attempt++) {
        std::this_thread::sleep_for(50ms);
        if (result == 4711) end(waiting);
    }
    // A wait that was not ended gets what it waits for, lest the test hangs.
    const kel_event held{KEL_EVENT_TAG_REGISTERED, 0, 0, 0, TAG, 0};
    if (result == 4711) kel_event_add(waiting, &held);
    waiter.join();
    return result;
}

TEST_F(event_contract, clearing_ends_a_wait)
{
    EXPECT_ERROR(result_of_ended_wait(owner, kel_event_clear), EINTR);
}

TEST_F(event_contract, deregistration_ends_a_wait)
{
    EXPECT_ERROR(result_of_ended_wait(new_client().give(), kel_deregister_client), EINTR);
}

// One thread is refused, arms and waits; another makes room in between: nothing may be lost.
TEST_F(event_contract, refused_sender_is_always_woken)
{
    constexpr int PACKETS = 3000;
    const client receiver = new_receiver(1000, KEL_ROLE_ALWAYS, 8);
    std::atomic<int> missed = 0;
    std::thread sending([&] {
        for (int sent = 0; sent < PACKETS && missed == 0;) {
            packet next = new_tagged_packet(other, 1000, 64);
            const std::uint32_t error = kel_send(other, next);
            if (!error) {
                next.give();
                sent++;
                continue;
            }
            EXPECT_ERROR(error, EAGAIN);
            EXPECT_OK(kel_event_add_tag(other, 1000, 1, 2));
            missed += next_event(other, 5s).type == KEL_EVENT_NONE;
        }
    });
    for (int received = 0; received < PACKETS && missed == 0;) {
        received += packet(kel_recv(receiver)) != 0u;
    }
    sending.join();
    while (packet(kel_recv(receiver))) {
    }
    EXPECT_EQ(missed, 0);
    EXPECT_OK(kel_event_clear(other));
    EXPECT_OK(kel_deregister_tag(receiver, 1000));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// Short forms for the contract tests.

#include "tests/contract/contract.h"

#include <sys/select.h>

#include <cstring>
#include <ostream>
#include <sstream>

namespace contract {

namespace {

class library_environment : public testing::Environment {
public:
    void SetUp() override { kel_nocrash_set(); }
};

const testing::Environment *const environment =
    testing::AddGlobalTestEnvironment(new library_environment);

} // namespace

kel_reference_census take_census()
{
    kel_reference_census census{};
    kel_reference_take_census(&census);
    return census;
}

std::string describe(const kel_reference_census &census)
{
    std::ostringstream text;
    text << "clients " << census.clients << ", packets " << census.packets << ", buffers "
         << census.buffers << ", bufgroups " << census.bufgroups << ", tags " << census.tags
         << ", allocated tags " << census.allocated_tags << ", tlvs " << census.tlvs << ", events "
         << census.events << ", regions " << census.regions << ", subregions " << census.subregions
         << ", arena bytes " << census.arena_bytes;
    return text.str();
}

void test::SetUp()
{
    released_before = take_census().released_by_deregistration;
}

void test::TearDown()
{
    const kel_reference_census census = take_census();
    EXPECT_EQ(describe(census), describe({}));
    if (leaves_objects) {
        EXPECT_GT(census.released_by_deregistration, released_before);
    } else {
        EXPECT_EQ(census.released_by_deregistration, released_before);
    }
}

std::string error_text(std::uint32_t error)
{
    if (error == 0) return "success";
    if (error == KEL_HIGH_THRESHOLD_REACHED) return "KEL_HIGH_THRESHOLD_REACHED";
    if (error == KEL_LOW_THRESHOLD_REACHED) return "KEL_LOW_THRESHOLD_REACHED";
    const char *name = strerrorname_np(static_cast<int>(error));
    return name ? name : std::to_string(error);
}

testing::AssertionResult has_error(const char *call, const char *, std::uint32_t error,
                                   std::uint32_t expected)
{
    if (error == expected) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << call << "\n  gives " << error_text(error) << ", not " << error_text(expected);
}

void test_with_two_clients::TearDown()
{
    EXPECT_OK(kel_deregister_client(owner.give()));
    EXPECT_OK(kel_deregister_client(other.give()));
    test::TearDown();
}

client new_client(std::uint32_t role, std::uint32_t depth)
{
    kel_client handle = 0;
    EXPECT_OK(kel_register_client(&handle, "test client", role, depth));
    EXPECT_NE(handle, 0u);
    return client(handle);
}

client new_receiver(kel_tag tag, std::uint32_t role, std::uint32_t depth)
{
    client receiver = new_client(role, depth);
    EXPECT_OK(kel_register_tag(receiver, tag));
    return receiver;
}

packet new_packet(kel_client owner, std::uint32_t size, std::uint8_t contiguous, kel_bufgroup group)
{
    std::uint32_t error = 4711;
    packet obtained(kel_get_packet(owner, group, size, contiguous, &error));
    EXPECT_TRUE(error == 0 || error == KEL_HIGH_THRESHOLD_REACHED) << error_text(error);
    EXPECT_NE(obtained, 0u);
    return obtained;
}

buffer new_buffer(kel_client owner, std::uint32_t size, std::uint8_t contiguous, kel_bufgroup group)
{
    std::uint32_t error = 4711;
    buffer obtained(kel_get_buffer(owner, group, size, contiguous, &error));
    EXPECT_TRUE(error == 0 || error == KEL_HIGH_THRESHOLD_REACHED) << error_text(error);
    EXPECT_NE(obtained, 0u);
    return obtained;
}

packet new_tagged_packet(kel_client owner, kel_tag tag, std::uint32_t size, bool needs_signal)
{
    packet obtained = new_packet(owner, size);
    EXPECT_OK(kel_set_tag(obtained, tag));
    if (!needs_signal) {
        EXPECT_OK(kel_pkt_no_sig_required(obtained, 1));
    }
    return obtained;
}

registration::registration(kel_client registered_client, const char *name)
    : owner(registered_client)
{
    EXPECT_OK(kel_register_bufgroup(owner, &group, name));
    EXPECT_NE(group, 0u);
}

registration::registration(kel_client registered_client, kel_bufgroup registered_group)
    : owner(registered_client), group(registered_group)
{
}

registration::~registration()
{
    if (group) {
        EXPECT_OK(kel_deregister_bufgroup(owner, group));
    }
}

registration new_reserved(kel_client owner, const char *name, std::uint32_t element_size,
                          std::uint32_t element_count, std::uint32_t head_room,
                          std::uint32_t no_poison)
{
    kel_bufgroup group = 0;
    EXPECT_OK(kel_register_reserved_bufgroup(owner, &group, name, element_size, element_count,
                                             head_room, no_poison));
    EXPECT_NE(group, 0u);
    return {owner, group};
}

bytes pattern(std::size_t size, std::uint32_t seed)
{
    bytes data(size);
    std::uint32_t state = seed * 2654435761u + 1;
    for (std::uint8_t &byte : data) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return data;
}

bytes joined(const bytes &first, const bytes &second)
{
    bytes both = first;
    both.insert(both.end(), second.begin(), second.end());
    return both;
}

bytes part(const bytes &whole, std::size_t offset, std::size_t size)
{
    return {whole.begin() + static_cast<std::ptrdiff_t>(offset),
            whole.begin() + static_cast<std::ptrdiff_t>(offset + size)};
}

void write(kel_packet target, const bytes &data)
{
    EXPECT_OK(
        kel_set_data(target, OFFSET_DATA, 0, data.data(), static_cast<std::uint32_t>(data.size())));
}

void write_chain(kel_buffer target, const bytes &data)
{
    EXPECT_OK(kel_buf_set_data(target, 0, data.data(), static_cast<std::uint32_t>(data.size())));
}

bytes read(kel_packet source)
{
    bytes data(kel_get_length(source));
    if (data.empty()) return data;
    auto length = static_cast<std::uint32_t>(data.size());
    EXPECT_OK(kel_get_data(source, OFFSET_DATA, 0, data.data(), &length));
    EXPECT_EQ(length, data.size());
    return data;
}

bytes read_chain(kel_buffer source)
{
    bytes data(chain_length(source));
    auto length = static_cast<std::uint32_t>(data.size());
    EXPECT_OK(kel_buf_get_data(source, 0, data.data(), &length));
    EXPECT_EQ(length, data.size());
    return data;
}

std::uint32_t chain_length(kel_buffer head)
{
    std::uint32_t sum = 0;
    for (kel_buffer each = head; each; each = kel_buf_get_next(each)) sum += buffer_length(each);
    return sum;
}

std::uint32_t buffer_length(kel_buffer single)
{
    std::uint32_t length = 0;
    EXPECT_OK(kel_buf_get_length(single, &length));
    return length;
}

const std::uint8_t *data_start(kel_buffer single)
{
    void *data = nullptr;
    std::uint32_t length = 0;
    EXPECT_OK(kel_buf_get_dptr(single, 0, &data, &length));
    return static_cast<const std::uint8_t *>(data);
}

std::ostream &operator<<(std::ostream &stream, const offsets &printed)
{
    return stream << printed.network << '/' << printed.transport << '/' << printed.app;
}

void set_offsets(kel_packet target, const offsets &values)
{
    EXPECT_OK(kel_set_offset(target, OFFSET_NETWORK, values.network));
    EXPECT_OK(kel_set_offset(target, OFFSET_TRANSPORT, values.transport));
    EXPECT_OK(kel_set_offset(target, OFFSET_APP, values.app));
}

offsets offsets_of(kel_packet source)
{
    offsets values;
    EXPECT_OK(kel_get_offset(source, OFFSET_NETWORK, &values.network));
    EXPECT_OK(kel_get_offset(source, OFFSET_TRANSPORT, &values.transport));
    EXPECT_OK(kel_get_offset(source, OFFSET_APP, &values.app));
    return values;
}

std::ostream &operator<<(std::ostream &stream, const usage &printed)
{
    return stream << printed.buffers << " buffers, " << printed.bytes << " bytes";
}

usage usage_of_client(kel_client asked)
{
    usage counted{4711, 4711};
    EXPECT_OK(kel_get_bufcount_byclient(asked, &counted.buffers, &counted.bytes));
    return counted;
}

usage usage_of_group(kel_client asked, kel_bufgroup group)
{
    usage counted{4711, 4711};
    EXPECT_OK(kel_get_count_bygroup(asked, group, &counted.buffers, &counted.bytes));
    return counted;
}

namespace {

enum class condition { readable, exceptional };

timeval timeval_of(std::chrono::microseconds time)
{
    return {time / 1s, (time % 1s).count()};
}

bool has_condition(kel_client owner, condition which, std::chrono::microseconds timeout)
{
    const int descriptor = kel_getfd(owner);
    EXPECT_GT(descriptor, 0);
    fd_set descriptors;
    FD_ZERO(&descriptors);
    FD_SET(descriptor, &descriptors);
    timeval limit = timeval_of(timeout);
    const bool for_reading = which == condition::readable;
    const int ready = select(descriptor + 1, for_reading ? &descriptors : nullptr, nullptr,
                             for_reading ? nullptr : &descriptors, &limit);
    EXPECT_GE(ready, 0);
    return ready == 1;
}

} // namespace

bool is_readable(kel_client asked, std::chrono::microseconds timeout)
{
    return has_condition(asked, condition::readable, timeout);
}

bool is_exceptional(kel_client asked, std::chrono::microseconds timeout)
{
    return has_condition(asked, condition::exceptional, timeout);
}

kel_event next_event(kel_client asked, std::chrono::microseconds timeout)
{
    kel_event event{4711, 0, 0, 0, 0, 0};
    timeval limit = timeval_of(timeout);
    EXPECT_OK(kel_event_wait(asked, &event, &limit));
    return event;
}

} // namespace contract

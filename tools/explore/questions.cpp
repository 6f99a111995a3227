// SPDX-License-Identifier: MIT
#include "tools/explore/questions.h"

namespace explore {

namespace {

constexpr question QUESTIONS[] = {
    {"contiguous_max", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 9001, 1)
packet2 = get_packet(client1, 0, 16385, 1)
packet3 = get_packet(client1, 0, 32769, 1)
)"},
    {"piece_size", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 65536, 0)
get_buf_count(packet1)
)"},
    {"reserve_takes_room", R"(
client1 = register_client("client", ALWAYS, 8)
buffer1 = get_buffer(client1, 0, 1000, 1)
buf_set_length(buffer1, 500)
buf_reserve_space(buffer1, 100)
buf_get_length(buffer1)
)"},
    {"head_growth_fills_room", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 1000, 1)
reserve_space(packet1, 100)
add_head(packet1, 150)
buffer1 = get_buf_head(packet1)
buf_get_length(buffer1)
)"},
    {"tail_growth_fills_room", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 1000, 1)
trim_tail(packet1, 100)
add_tail(packet1, 150)
buffer1 = get_buf_head(packet1)
buf_get_length(buffer1)
)"},
    {"dptr_clamps", R"(
client1 = register_client("client", ALWAYS, 8)
buffer1 = get_buffer(client1, 0, 1000, 1)
buf_reserve_space(buffer1, 100)
buf_get_dptr(buffer1, -101)
)"},
    {"threshold_governs", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
bufgroup_set_params(client1, group1, 3, {max=3, low=1, high=2}, {max=5000, low=3000, high=4000})
buffer1 = get_buffer(client1, group1, 10, 1, error=null)
buffer2 = get_buffer(client1, group1, 10, 1, error=null)
buffer3 = get_buffer(client1, group1, 10, 1, error=null)
buffer4 = get_buffer(client1, group1, 10, 1, error=null)
group2 = register_bufgroup(client1, "b")
bufgroup_set_params(client1, group2, 3, {max=30, low=10, high=20}, {max=25, low=1, high=20})
buffer5 = get_buffer(client1, group2, 15, 1, error=null)
buffer6 = get_buffer(client1, group2, 15, 1, error=null)
)"},
    {"high_notice_repeats", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
bufgroup_set_params(client1, group1, 1, {max=5, low=0, high=1}, null)
buffer1 = get_buffer(client1, group1, 10, 1)
buffer2 = get_buffer(client1, group1, 10, 1)
)"},
    {"low_notice_from_buffers", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
bufgroup_set_params(client1, group1, 1, {max=6, low=1, high=5}, null)
buffer1 = get_buffer(client1, group1, 10, 1)
buffer2 = get_buffer(client1, group1, 10, 1)
free_buffer(buffer1)
)"},
    {"thresholds_ordered", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
bufgroup_set_params(client1, group1, 1, {max=1, low=5, high=3}, null)
)"},
    {"group_name_max", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a name with 21 letter")
group2 = register_bufgroup(client1, "a name that has 32 characters in")
)"},
    {"group_use_needs_registration", R"(
client1 = register_client("client", ALWAYS, 8)
client2 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
buffer1 = get_buffer(client2, group1, 10, 1)
)"},
    {"bound_error", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 100, 1)
set_offset(packet1, OFFSET_NETWORK, 200)
)"},
    {"write_beyond_end_error", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 100, 1)
set_data(packet1, OFFSET_DATA, 50, pattern(1, 100), 100)
)"},
    {"get_data_short_succeeds", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 100, 1)
set_data(packet1, OFFSET_DATA, 0, pattern(1, 100), 100)
get_data(packet1, OFFSET_DATA, 0, 200)
)"},
    {"data_kinds", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 100, 1)
set_offset(packet1, OFFSET_NETWORK, 10)
set_data(packet1, OFFSET_NETWORK, 0, pattern(1, 8), 8)
)"},
    {"data_start_moves_data", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 100, 1)
set_data(packet1, OFFSET_DATA, 0, pattern(1, 100), 100)
metadata_set({mask=0x1000, data_start=10}, packet1)
get_data(packet1, OFFSET_DATA, 90, 10)
)"},
    {"with_tlv_counts", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr_with_tlv(client1, 2, 4)
tlv_get_head(packet1)
)"},
    {"list_result_error", R"(
client1 = register_client("client", ALWAYS, 8)
get_packet_list({count=1, requests[0].client=client1, requests[0].group=0xdeadface, requests[0].size=10})
)"},
    {"fresh_metadata", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr(client1)
get_cause(packet1)
)"},
    {"offset_kinds", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr(client1)
get_offset(packet1, 4)
)"},
    {"offset_may_equal_length", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 100, 1)
set_offset(packet1, OFFSET_NETWORK, 100)
)"},
    {"set_length_grows", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_packet(client1, 0, 100, 1)
set_length(packet1, 50)
set_length(packet1, 60)
)"},
    {"tlv_size_error", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr(client1)
tlv_alloc(packet1, 1, 1024)
)"},
    {"tlv_size_max", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr(client1)
tlv_alloc(packet1, 1, 232)
tlv_alloc(packet1, 2, 237)
)"},
    {"tlv_unknown_next_error", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr(client1)
tlv_get_next(packet1, 5)
)"},
    {"first_tlv_version", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr(client1)
tlv_alloc(packet1, 1, 4)
tlv_version_get(packet1, 1)
)"},
    {"version_check_from_zero", R"(
client1 = register_client("client", ALWAYS, 8)
packet1 = get_pkthdr(client1)
tlv_alloc(packet1, 1, 4)
tlv_version_set(packet1, 1, 1)
tlv_version_check(packet1, 1, 0, 2)
)"},
    {"stale_client_error", R"(
client1 = register_client("client", ALWAYS, 8)
deregister_client(client1)
deregister_client(client1)
)"},
    {"null_result_error", R"(
register_client("client", ALWAYS, 8, client=null)
)"},
    {"own_tag_error", R"(
client1 = register_client("client", ALWAYS, 8)
register_tag(client1, 5)
register_tag(client1, 5)
)"},
    {"foreign_tag_error", R"(
client1 = register_client("client", ALWAYS, 8)
client2 = register_client("client", ALWAYS, 8)
tag1 = alloc_tag(client1, "tag")
register_tag(client2, tag1)
)"},
    {"unheld_tag_error", R"(
client1 = register_client("client", ALWAYS, 8)
deregister_tag(client1, 5)
)"},
    {"unallocated_tag_error", R"(
client1 = register_client("client", ALWAYS, 8)
free_tag(client1, 5)
)"},
    {"dynamic_tags_increase", R"(
client1 = register_client("client", ALWAYS, 8)
tag1 = alloc_tag(client1, "tag")
free_tag(client1, tag1)
tag2 = alloc_tag(client1, "tag")
register_tag(client1, tag2)
is_tag_registered(client1, tag1)
)"},
    {"role_refusal_error", R"(
client1 = register_client("client", ALWAYS, 8)
client_ha_role_notify(client1, ACTIVE)
)"},
    {"same_role_result", R"(
client1 = register_client("client", ACTIVE, 8)
client_ha_role_notify(client1, ACTIVE)
)"},
    {"sharing_by_present_role", R"(
client1 = register_client("client", STANDBY, 8)
client2 = register_client("client", STANDBY, 8)
client_ha_role_notify(client2, ACTIVE)
register_tag(client1, 5)
register_tag(client2, 5)
)"},
    {"sinks_limit_error", R"(
client1 = register_client("client", STANDBY, 8)
client2 = register_client("client", STANDBY, 8)
client3 = register_client("client", STANDBY, 8)
client4 = register_client("client", STANDBY, 8)
client5 = register_client("client", STANDBY, 8)
client6 = register_client("client", STANDBY, 8)
client7 = register_client("client", STANDBY, 8)
client8 = register_client("client", STANDBY, 8)
client9 = register_client("client", STANDBY, 8)
register_tag(client1, 5)
register_tag(client2, 5)
register_tag(client3, 5)
register_tag(client4, 5)
register_tag(client5, 5)
register_tag(client6, 5)
register_tag(client7, 5)
register_tag(client8, 5)
register_tag(client9, 5)
)"},
    {"sinks_limit_is_total", R"(
client1 = register_client("client", STANDBY, 8)
client2 = register_client("client", STANDBY, 8)
client3 = register_client("client", STANDBY, 8)
client4 = register_client("client", STANDBY, 8)
client5 = register_client("client", STANDBY, 8)
client6 = register_client("client", STANDBY, 8)
client7 = register_client("client", STANDBY, 8)
client8 = register_client("client", STANDBY, 8)
client9 = register_client("client", STANDBY, 8)
register_tag(client1, 5)
register_tag(client2, 5)
register_tag(client3, 5)
register_tag(client4, 5)
register_tag(client5, 5)
register_tag(client6, 5)
register_tag(client7, 5)
register_tag(client8, 5)
register_tag(client9, 99)
)"},
    {"event_group_type", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
bufgroup_set_params(client1, group1, 1, {max=4, low=1, high=3}, null)
event_add_bufgroup(client1, group1, 3, 1, 2)
buffer1 = get_buffer(client1, group1, 10, 1, error=null)
buffer2 = get_buffer(client1, group1, 10, 1, error=null)
buffer3 = get_buffer(client1, group1, 10, 1, error=null)
buffer4 = get_buffer(client1, group1, 10, 1, error=null)
event_wait(client1, {})
)"},
    {"event_group_flags", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
bufgroup_set_params(client1, group1, 1, {max=4, low=1, high=3}, null)
event_add_bufgroup(client1, group1, 2, 1, 2)
buffer1 = get_buffer(client1, group1, 10, 1, error=null)
buffer2 = get_buffer(client1, group1, 10, 1, error=null)
buffer3 = get_buffer(client1, group1, 10, 1, error=null)
event_wait(client1, {})
buffer4 = get_buffer(client1, group1, 10, 1, error=null)
event_wait(client1, {})
)"},
    {"event_group_reports_level", R"(
client1 = register_client("client", ALWAYS, 8)
group1 = register_bufgroup(client1, "a")
bufgroup_set_params(client1, group1, 1, {max=2, low=0, high=1}, null)
buffer1 = get_buffer(client1, group1, 10, 1, error=null)
buffer2 = get_buffer(client1, group1, 10, 1, error=null)
event_add_bufgroup(client1, group1, 3, 1, 2)
event_wait(client1, {})
)"},
    {"unarmed_event_error", R"(
client1 = register_client("client", ALWAYS, 8)
register_tag(client1, 5)
event_remove_tag(client1, 5)
)"},
    {"device", R"(
device1 = open_device()
)"},
};

constexpr const char *PROBES[] = {
    // Deferred signals: by the default interval, in time, and not too early.
    R"(
client1 = register_client("client", ALWAYS, 8)
descriptor1 = getfd(client1)
register_tag(client1, 5)
packet1 = get_packet(client1, 0, 10, 1)
set_tag(packet1, 5)
pkt_no_sig_required(packet1, 1)
send(client1, packet1)
select(descriptor1, 0, {microseconds=200000})
)",
    R"(
client1 = register_client("client", ALWAYS, 8)
descriptor1 = getfd(client1)
register_tag(client1, 5)
set_client_signal_interval(client1, 50)
packet1 = get_packet(client1, 0, 10, 1)
set_tag(packet1, 5)
pkt_no_sig_required(packet1, 1)
send(client1, packet1)
select(descriptor1, 0, {microseconds=250000})
)",
    R"(
client1 = register_client("client", ALWAYS, 8)
descriptor1 = getfd(client1)
register_tag(client1, 5)
set_client_signal_interval(client1, 1800)
packet1 = get_packet(client1, 0, 10, 1)
set_tag(packet1, 5)
pkt_no_sig_required(packet1, 1)
send(client1, packet1)
select(descriptor1, 0, {microseconds=250000})
)",
    // None of a packet that has been received before.
    R"(
client1 = register_client("client", ALWAYS, 8)
descriptor1 = getfd(client1)
register_tag(client1, 5)
set_client_signal_interval(client1, 50)
packet1 = get_packet(client1, 0, 10, 1)
set_tag(packet1, 5)
pkt_no_sig_required(packet1, 1)
send(client1, packet1)
recv(client1)
select(descriptor1, 0, {microseconds=150000})
)",
    // Of two clients at the same time.
    R"(
client1 = register_client("client", ALWAYS, 8)
client2 = register_client("client", ALWAYS, 8)
descriptor1 = getfd(client1)
descriptor2 = getfd(client2)
register_tag(client1, 5)
register_tag(client2, 6)
set_client_signal_interval(client1, 50)
set_client_signal_interval(client2, 50)
packet1 = get_packet(client1, 0, 10, 1)
set_tag(packet1, 5)
pkt_no_sig_required(packet1, 1)
packet2 = get_packet(client1, 0, 10, 1)
set_tag(packet2, 6)
pkt_no_sig_required(packet2, 1)
send(client1, packet1)
send(client1, packet2)
select(descriptor1, 0, {microseconds=250000})
select(descriptor2, 0, {microseconds=250000})
)",
    // The end of the last client, which sequences leave out: one more is registered there.
    R"(
client1 = register_client("client", ALWAYS, 8)
descriptor1 = getfd(client1)
select(descriptor1, 0, {microseconds=10000})
deregister_client(client1)
client2 = register_client("client", ALWAYS, 8)
deregister_client(client2)
)",
    // Waits that another thread ends.
    R"(
client1 = register_client("client", ALWAYS, 8)
event_wait(client1, {seconds=1}) ...
@2 event_clear(client1)
returned()
)",
    R"(
client1 = register_client("client", ALWAYS, 8)
event_wait(client1, {seconds=1}) ...
@2 deregister_client(client1)
returned()
)",
    R"(
client1 = register_client("client", ALWAYS, 8)
event_add(client1, {type=4, context1=1, context2=2, object=5})
event_wait(client1, {seconds=1}) ...
@2 register_tag(client1, 5)
returned()
)",
};

} // namespace

std::span<const char *const> probes()
{
    return PROBES;
}

std::span<const question> questions()
{
    return QUESTIONS;
}

} // namespace explore

// SPDX-License-Identifier: MIT
//
// Prints what the library does where the option named on the command line decides it.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kelapi/kel.h"

namespace {

using std::to_string;

kel_client new_client(std::uint32_t role = KEL_ROLE_ALWAYS)
{
    kel_client client = 0;
    if (kel_register_client(&client, "probe", role, 32)) std::abort();
    return client;
}

kel_packet new_packet(kel_client client, std::uint32_t size = 1500, kel_bufgroup group = 0)
{
    return kel_get_packet(client, group, size, 1, nullptr);
}

kel_bufgroup new_group(kel_client client, const kel_bufgroup_thresholds &thresholds)
{
    kel_bufgroup group = 0;
    if (kel_register_bufgroup(client, &group, "probe group")) std::abort();
    if (kel_bufgroup_set_params(client, group, KEL_BUFGROUP_BUFFERS, &thresholds, nullptr)) {
        std::abort();
    }
    return group;
}

std::uint32_t length_of(kel_buffer buffer)
{
    std::uint32_t length = 0;
    kel_buf_get_length(buffer, &length);
    return length;
}

const std::uint8_t *data_of(kel_buffer buffer)
{
    void *data = nullptr;
    std::uint32_t length = 0;
    kel_buf_get_dptr(buffer, 0, &data, &length);
    return static_cast<const std::uint8_t *>(data);
}

std::string lengths_of(kel_buffer chain)
{
    std::string text = to_string(length_of(chain));
    for (kel_buffer next = kel_buf_get_next(chain); next; next = kel_buf_get_next(next)) {
        text += " " + to_string(length_of(next));
    }
    return text;
}

std::string largest_contiguous()
{
    const kel_client client = new_client();
    for (std::uint32_t size = 65536; size > 0; size--) {
        if (kel_get_buffer(client, 0, size, 1, nullptr)) return to_string(size);
    }
    return "none";
}

// What stands there is what is asked about, freed or not.
__attribute__((no_sanitize("address"))) std::string poison()
{
    const kel_buffer buffer = kel_get_buffer(new_client(), 0, 512, 1, nullptr);
    const volatile std::uint8_t *data = data_of(buffer);
    kel_buf_set_data(buffer, 0, std::array<char, 512>{'x'}.data(), 512);
    kel_free_buffer(buffer);
    return to_string(data[200]);
}

std::string data_before_it_is_written()
{
    const kel_buffer buffer = kel_get_buffer(new_client(), 0, 512, 1, nullptr);
    kel_buf_set_data(buffer, 0, std::array<char, 512>{'x'}.data(), 512);
    kel_buf_set_length(buffer, 0);
    kel_buf_set_length(buffer, 512);
    std::uint8_t first = 0;
    std::uint32_t length = 1;
    kel_buf_get_data(buffer, 0, &first, &length);
    return to_string(first);
}

std::string growth_at_the_front()
{
    const kel_packet packet = new_packet(new_client());
    kel_reserve_space(packet, 64);
    kel_add_head(packet, 96);
    return lengths_of(kel_get_buf_head(packet));
}

std::string growth_at_the_end()
{
    const kel_packet packet = new_packet(new_client(), 576);
    kel_set_length(packet, 512);
    kel_add_tail(packet, 128);
    return lengths_of(kel_get_buf_head(packet));
}

std::string reservation_in_a_trimmed_buffer()
{
    kel_buffer buffer = kel_get_buffer(new_client(), 0, 1500, 1, nullptr);
    const std::uint8_t *start = data_of(buffer);
    kel_buf_trim_tail(&buffer, 512);
    kel_buf_reserve_space(buffer, 100);
    return to_string(data_of(buffer) - start) + " " + to_string(length_of(buffer));
}

std::string pointer_before_the_head_room()
{
    const kel_buffer buffer = kel_get_buffer(new_client(), 0, 1500, 1, nullptr);
    kel_buf_reserve_space(buffer, 128);
    void *data = nullptr;
    std::uint32_t length = 0;
    return to_string(kel_buf_get_dptr(buffer, -200, &data, &length));
}

std::string notice_from_buffers()
{
    const kel_client client = new_client();
    const kel_bufgroup group = new_group(client, {5, 1, 4});
    const kel_buffer first = kel_get_buffer(client, group, 64, 1, nullptr);
    kel_get_buffer(client, group, 64, 1, nullptr);
    return to_string(kel_free_buffer(first));
}

std::string short_read()
{
    std::array<char, 1024> data{};
    std::uint32_t length = data.size();
    const std::uint32_t error =
        kel_get_data(new_packet(new_client(), 512), OFFSET_DATA, 0, data.data(), &length);
    return to_string(error) + " " + to_string(length);
}

std::string write_from(std::uint32_t kind, std::uint32_t offset)
{
    return to_string(kel_set_data(new_packet(new_client(), 512), kind, offset, "xy", 2));
}

std::string place_of_data_with_data_start()
{
    const kel_packet packet = new_packet(new_client());
    kel_metadata_group record;
    kel_metadata_init(&record);
    record.mask = KEL_METADATA_DATA_START;
    record.data_start = 64;
    const std::array<std::uint8_t, 1400> zeros{};
    kel_set_data(packet, OFFSET_DATA, 0, zeros.data(), zeros.size());
    if (kel_metadata_set(&record, packet)) return "refused";
    kel_set_data(packet, OFFSET_DATA, 0, "x", 1);
    const std::uint8_t *data = data_of(kel_get_buf_head(packet));
    for (int place = 0; place < 1400; place++) {
        if (data[place] == 'x') return to_string(place);
    }
    return "nowhere";
}

std::string tlvs_of_number_2()
{
    const kel_packet packet = kel_get_packet_with_tlv(new_client(), 0, 64, 0, 2, 100, nullptr);
    std::string text;
    std::uint32_t id = 0;
    for (kel_tlv_get_head(packet, &id); id; kel_tlv_get_next(packet, &id)) {
        text += (text.empty() ? "" : " ") + to_string(id);
    }
    return text;
}

// How many of ten packets of 512 bytes a group gives.
std::uint32_t packets_given(const kel_bufgroup_thresholds &buffers,
                            const kel_bufgroup_thresholds &bytes)
{
    const kel_client client = new_client();
    kel_bufgroup group = 0;
    kel_register_bufgroup(client, &group, "probe group");
    kel_bufgroup_set_params(client, group, 3, &buffers, &bytes);
    std::uint32_t given = 0;
    while (given < 10 && new_packet(client, 512, group)) given++;
    kel_deregister_client(client);
    return given;
}

std::string governing_threshold()
{
    return to_string(packets_given({3, 1, 2}, {9999, 1, 9000})) + " " +
           to_string(packets_given({99, 1, 90}, {3 * 512, 1, 1000}));
}

std::string notice_above_high()
{
    const kel_client client = new_client();
    const kel_bufgroup group = new_group(client, {5, 1, 2});
    std::uint32_t error = 0;
    for (int count = 0; count < 3; count++) kel_get_packet(client, group, 64, 1, &error);
    return to_string(error);
}

std::string disordered_thresholds()
{
    const kel_client client = new_client();
    const kel_bufgroup group = new_group(client, {5, 1, 4});
    const kel_bufgroup_thresholds disordered{1, 3, 2};
    return to_string(kel_bufgroup_set_params(client, group, 1, &disordered, nullptr));
}

std::string longest_name()
{
    const kel_client client = new_client();
    kel_bufgroup group = 0;
    std::size_t length = 40;
    while (kel_register_bufgroup(client, &group, std::string(length, 'n').c_str())) length--;
    return to_string(length);
}

std::string use_by_a_stranger()
{
    const kel_bufgroup group = new_group(new_client(), {5, 1, 4});
    std::uint32_t error = 0;
    kel_get_packet(new_client(), group, 64, 1, &error);
    return to_string(error);
}

std::string reserved_head_room()
{
    const kel_client client = new_client();
    kel_bufgroup group = 0;
    // Wide enough to tell elements with their head room from those without.
    kel_register_reserved_bufgroup(client, &group, "probe group", 128, 4, 256, 0);
    const kel_packet first = new_packet(client, 128, group);
    const kel_packet second = new_packet(client, 128, group);
    std::uint32_t head_room = 0;
    kel_head_space(first, &head_room);
    const auto distance =
        std::labs(data_of(kel_get_buf_head(second)) - data_of(kel_get_buf_head(first)));
    return to_string(head_room) + (distance >= 128 + 256 ? " apart" : " close");
}

std::string refused_list_result()
{
    kel_packet_list list{};
    list.count = 1;
    list.requests[0] = {0, 0, 64, 0, {}, 0, 0};
    list.results[0].error = 4711;
    kel_get_packet_list(&list);
    return to_string(list.results[0].error);
}

std::string fresh_cause()
{
    std::uint32_t cause = 4711;
    kel_get_cause(new_packet(new_client()), &cause);
    return to_string(cause);
}

std::string offset_kinds()
{
    const kel_packet packet = new_packet(new_client());
    std::uint32_t offset = 0;
    return to_string(kel_get_offset(packet, 4, &offset)) + " " +
           to_string(kel_set_offset(packet, 5, 10));
}

std::string grown_length()
{
    const kel_packet packet = new_packet(new_client());
    kel_set_length(packet, 512);
    return to_string(kel_set_length(packet, 1500));
}

std::string largest_tlv()
{
    const kel_packet packet = new_packet(new_client());
    std::uint32_t size = 1024;
    while (kel_tlv_alloc(packet, 1, size)) size--;
    return to_string(size);
}

kel_packet packet_with_tlv(std::uint16_t version)
{
    const kel_packet packet = new_packet(new_client());
    kel_tlv_alloc(packet, 1, 100);
    if (version) kel_tlv_version_set(packet, 1, version);
    return packet;
}

std::string next_of_unknown_tlv()
{
    std::uint32_t id = 9;
    return to_string(kel_tlv_get_next(packet_with_tlv(0), &id));
}

std::string fresh_tlv_version()
{
    std::uint16_t version = 4711;
    kel_tlv_version_get(packet_with_tlv(0), 1, &version);
    return to_string(version);
}

std::string fresh_tlv_byte()
{
    std::array<std::uint8_t, 100> data{};
    std::uint32_t length = data.size();
    kel_tlv_getdata(packet_with_tlv(0), 1, data.data(), &length);
    return to_string(data[99]);
}

// The length after reads without room, with too little, of a version too low, of an unknown id.
std::string length_after_refused_reads()
{
    const kel_packet packet = packet_with_tlv(10);
    std::array<std::uint8_t, 100> data{};
    std::uint32_t no_room = 100;
    std::uint32_t too_small = 99;
    std::uint32_t too_old = 100;
    std::uint32_t unknown = 100;
    kel_tlv_getdata(packet, 1, nullptr, &no_room);
    kel_tlv_getdata(packet, 1, data.data(), &too_small);
    kel_tlv_get_versioned_data(packet, 1, data.data(), &too_old, 11, 0, nullptr);
    kel_tlv_getdata(packet, 2, data.data(), &unknown);
    return to_string(no_room) + " " + to_string(too_small) + " " + to_string(too_old) + " " +
           to_string(unknown);
}

// The default interval, of a few tries the shortest: a flush never comes early.
std::string signal_interval()
{
    using namespace std::chrono;
    const kel_client client = new_client();
    kel_register_tag(client, 1000);
    auto shortest = milliseconds(1000);
    for (int attempt = 0; attempt < 20; attempt++) {
        const kel_packet packet = new_packet(client, 64);
        kel_set_tag(packet, 1000);
        kel_pkt_no_sig_required(packet, 1);
        const auto sent = steady_clock::now();
        kel_send(client, packet);
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(kel_getfd(client), &readable);
        select(kel_getfd(client) + 1, &readable, nullptr, nullptr, nullptr);
        shortest = std::min(shortest, floor<milliseconds>(steady_clock::now() - sent));
        kel_free_packet(kel_recv(client));
    }
    // What stands for 10, 15 and 20 on a machine that has other things to do as well.
    return to_string(shortest.count() < 13 ? 10 : shortest.count() < 18 ? 15 : 20);
}

kel_client stale_client()
{
    const kel_client client = new_client();
    kel_deregister_client(client);
    return client;
}

// A queue says whether it is empty by 1: no error of a choice.
std::string error_for_a_stale_client()
{
    const kel_client stale = stale_client();
    return to_string(kel_register_tag(stale, 5)) + " " + to_string(kel_queue_is_empty(stale));
}

std::string own_tag()
{
    const kel_client client = new_client();
    kel_register_tag(client, 5);
    return to_string(kel_register_tag(client, 5));
}

std::string foreign_tag()
{
    kel_tag tag = 0;
    kel_alloc_tag(new_client(), &tag, nullptr);
    return to_string(kel_register_tag(new_client(), tag));
}

std::string dynamic_tags()
{
    const kel_client client = new_client();
    kel_tag first = 0;
    kel_tag second = 0;
    kel_alloc_tag(client, &first, nullptr);
    kel_free_tag(client, first);
    kel_alloc_tag(client, &second, nullptr);
    return first == second ? "reused" : "fresh";
}

// How many sinks two tags take together, and why no more.
std::pair<int, std::uint32_t> sinks_of_two_tags()
{
    int sinks = 0;
    std::uint32_t error = 0;
    for (const kel_tag tag : {100u, 101u}) {
        while (!(error = kel_register_tag(new_client(KEL_ROLE_STANDBY), tag))) sinks++;
    }
    return {sinks, error};
}

// Whether a client that was registered STANDBY and is ACTIVE shares a tag, and the reverse.
std::string sharing_after_a_change_of_role()
{
    std::string text;
    for (const std::uint32_t role : {KEL_ROLE_STANDBY, KEL_ROLE_ACTIVE}) {
        const kel_client holder = new_client(KEL_ROLE_STANDBY);
        const kel_client changed = new_client(role);
        kel_register_tag(holder, 5);
        kel_client_ha_role_notify(changed,
                                  role == KEL_ROLE_STANDBY ? KEL_ROLE_ACTIVE : KEL_ROLE_STANDBY);
        text += (text.empty() ? "" : " ") + to_string(kel_register_tag(changed, 5));
        kel_deregister_client(changed);
        kel_deregister_client(holder);
    }
    return text;
}

std::string same_role()
{
    return to_string(kel_client_ha_role_notify(new_client(KEL_ROLE_ACTIVE), KEL_ROLE_ACTIVE));
}

kel_event next_event(kel_client client)
{
    kel_event event{};
    timeval no_time{0, 0};
    kel_event_wait(client, &event, &no_time);
    return event;
}

// For each group flag the counts at which it fires, negative while they fall.
std::string group_flags()
{
    const kel_client client = new_client();
    const kel_bufgroup group = new_group(client, {5, 1, 4});
    std::string text;
    for (const std::uint32_t flag : {1u, 2u}) {
        text += (flag == 1 ? "" : " ") + to_string(flag) + ":";
        kel_event_add_bufgroup(client, group, flag, 0, 0);
        std::vector<kel_packet> packets;
        const auto look = [&](int count) {
            if (next_event(client).type != KEL_EVENT_NONE) text += to_string(count);
        };
        for (int count = 1; count <= 5; count++) {
            packets.push_back(new_packet(client, 64, group));
            look(count);
        }
        for (int left = 4; left >= 0; left--) {
            kel_free_packet(packets[static_cast<std::size_t>(left)]);
            look(-left);
        }
        kel_event_clear(client);
    }
    return text;
}

kel_event event_beyond_the_high_threshold(bool armed_before)
{
    const kel_client client = new_client();
    const kel_bufgroup group = new_group(client, {5, 1, 4});
    if (armed_before) kel_event_add_bufgroup(client, group, 3, 0, 0);
    for (int count = 0; count < 4; count++) new_packet(client, 64, group);
    if (!armed_before) kel_event_add_bufgroup(client, group, 3, 0, 0);
    return next_event(client);
}

std::string removal_of_an_unarmed_event()
{
    const kel_client client = new_client();
    kel_register_tag(client, 5);
    return to_string(kel_event_remove_tag(client, 5));
}

// On a busy machine the client may be gone before the wait begins: then once more, with more time.
std::string record_of_an_interrupted_wait()
{
    for (int wait = 200; wait < 20'000; wait *= 2) {
        const kel_client client = new_client();
        kel_event event{4711, 0, 0, 0, 0, 0};
        std::uint32_t result = 0;
        std::thread waiting([&] { result = kel_event_wait(client, &event, nullptr); });
        std::this_thread::sleep_for(std::chrono::milliseconds(wait));
        kel_deregister_client(client);
        waiting.join();
        if (result == EINTR) return to_string(event.type);
    }
    return "not interrupted";
}

// The time-out after a wait that took all of it.
std::string time_left_of_a_wait()
{
    const kel_client client = new_client();
    kel_event event{};
    timeval limit{0, 200'000};
    kel_event_wait(client, &event, &limit);
    return to_string(limit.tv_sec) + " " + to_string(limit.tv_usec);
}

std::string used_records()
{
    const kel_client client = new_client();
    kel_bufgroup_thresholds thresholds{5, 1, 4};
    kel_bufgroup group = 0;
    kel_register_bufgroup(client, &group, "probe group");
    kel_bufgroup_set_params(client, group, KEL_BUFGROUP_BUFFERS, &thresholds, nullptr);
    kel_event event{KEL_EVENT_BUFGROUP, 0, 0, 0, group, KEL_EVENT_GROUP_LOW};
    kel_event_add(client, &event);
    kel_event removed{KEL_EVENT_BUFGROUP, 0, 0, 0, group, KEL_EVENT_GROUP_LOW};
    kel_event_remove(client, &removed);
    kel_metadata_group record;
    kel_metadata_init(&record);
    kel_metadata_set(&record, new_packet(client));
    return to_string(thresholds.max) + " " + to_string(event.type) + " " + to_string(removed.type) +
           " " + to_string(record.mask);
}

std::string query_of_the_device()
{
    const int device = open(KEL_DEVICE, O_RDWR | O_CLOEXEC);
    if (device < 0) return "no device";
    kel_region_desc region{};
    region.id = 0xabcd;
    return ioctl(device, KEL_IOCTL_GET_REGION_INFO, &region) == -1 ? to_string(errno) : "known";
}

const std::map<std::string, std::function<std::string()>> PROBES = {
    {"contiguous_max", largest_contiguous},
    {"piece_size",
     [] { return to_string(length_of(kel_get_buffer(new_client(), 0, 65536, 0, nullptr))); }},
    {"poison_byte", poison},
    {"unwritten_byte", data_before_it_is_written},
    {"reserve_takes_room", reservation_in_a_trimmed_buffer},
    {"head_growth_fills_room", growth_at_the_front},
    {"tail_growth_fills_room", growth_at_the_end},
    {"dptr_clamps", pointer_before_the_head_room},
    {"low_notice_from_buffers", notice_from_buffers},
    {"get_data_short_succeeds", short_read},
    {"write_beyond_end_error", [] { return write_from(OFFSET_DATA, 511); }},
    {"data_kinds", [] { return write_from(OFFSET_APP, 0); }},
    {"data_start_moves_data", place_of_data_with_data_start},
    {"with_tlv_counts", tlvs_of_number_2},
    {"threshold_governs", governing_threshold},
    {"high_notice_repeats", notice_above_high},
    {"thresholds_ordered", disordered_thresholds},
    {"group_name_max", longest_name},
    {"group_use_needs_registration", use_by_a_stranger},
    {"reserved_head_room", reserved_head_room},
    {"list_result_error", refused_list_result},
    {"fresh_metadata", fresh_cause},
    {"offset_kinds", offset_kinds},
    {"offset_may_equal_length",
     [] { return to_string(kel_set_offset(new_packet(new_client()), OFFSET_APP, 1500)); }},
    {"set_length_grows", grown_length},
    {"bound_error", [] { return to_string(kel_set_length(new_packet(new_client()), 9000)); }},
    {"tlv_size_max", largest_tlv},
    {"tlv_size_error", [] { return to_string(kel_tlv_alloc(new_packet(new_client()), 1, 1024)); }},
    {"tlv_unknown_next_error", next_of_unknown_tlv},
    {"version_check_from_zero",
     [] { return to_string(kel_tlv_version_check(packet_with_tlv(10), 1, 0, 20)); }},
    {"first_tlv_version", fresh_tlv_version},
    {"first_tlv_byte", fresh_tlv_byte},
    {"refused_tlv_read_zeroes", length_after_refused_reads},
    {"signal_interval", signal_interval},
    {"stale_client_error", error_for_a_stale_client},
    {"null_result_error",
     [] { return to_string(kel_register_client(nullptr, nullptr, KEL_ROLE_ALWAYS, 32)); }},
    {"own_tag_error", own_tag},
    {"foreign_tag_error", foreign_tag},
    {"unheld_tag_error", [] { return to_string(kel_deregister_tag(new_client(), 5)); }},
    {"unallocated_tag_error", [] { return to_string(kel_free_tag(new_client(), 0x20064)); }},
    {"dynamic_tags_increase", dynamic_tags},
    {"role_refusal_error",
     [] { return to_string(kel_client_ha_role_notify(new_client(), KEL_ROLE_ACTIVE)); }},
    {"same_role_result", same_role},
    {"sharing_by_present_role", sharing_after_a_change_of_role},
    {"sinks_limit_is_total", [] { return to_string(sinks_of_two_tags().first); }},
    {"sinks_limit_error", [] { return to_string(sinks_of_two_tags().second); }},
    {"event_group_flags", group_flags},
    {"event_group_reports_level",
     [] {
         const bool reported = event_beyond_the_high_threshold(false).type != KEL_EVENT_NONE;
         return std::string(reported ? "reported" : "none");
     }},
    {"event_group_type", [] { return to_string(event_beyond_the_high_threshold(true).type); }},
    {"unarmed_event_error", removal_of_an_unarmed_event},
    {"interrupted_wait_keeps_record", record_of_an_interrupted_wait},
    {"wait_stores_time_left", time_left_of_a_wait},
    {"records_are_used_up", used_records},
    {"device", query_of_the_device},
};

} // namespace

int main(int count, char **arguments)
{
    const auto probe = PROBES.find(count == 2 ? arguments[1] : "");
    if (probe == PROBES.end()) {
        std::fprintf(stderr, "usage: option_probe <option>\n");
        return 3;
    }
    kel_nocrash_set();
    std::printf("%s\n", probe->second().c_str());
    return 0;
}

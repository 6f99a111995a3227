// SPDX-License-Identifier: MIT
//
// Many threads use the library at once, each in its own way, seeded; what travels is checked
// when it arrives, and nothing may live at the end. Meant to be run under the thread sanitizer
// too.

#include <sys/select.h>

#include <CLI/CLI.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kelapi/kel.h"
#include "reference/census.h"

namespace {

constexpr kel_tag FIRST_TAG = 100;
constexpr std::uint32_t RECEIVERS = 2;
constexpr std::uint32_t SENDERS = 3;
constexpr const char *SHARED_GROUP = "stress group";
// Close together, so that they are crossed often.
constexpr kel_bufgroup_thresholds THRESHOLDS{40, 34, 38};

std::atomic<bool> stop = false;
std::atomic<std::uint32_t> senders_at_work = SENDERS;
std::atomic<std::uint32_t> failures = 0;

void fail(const char *what, std::uint32_t value)
{
    if (failures++ < 20) std::fprintf(stderr, "stress_test: %s: %u\n", what, value);
}

bool is_fine(std::uint32_t error)
{
    return error == 0 || error == KEL_HIGH_THRESHOLD_REACHED || error == KEL_LOW_THRESHOLD_REACHED;
}

void expect_fine(const char *what, std::uint32_t error)
{
    if (!is_fine(error)) fail(what, error);
}

class client {
public:
    explicit client(std::uint32_t role = KEL_ROLE_ALWAYS, std::uint32_t depth = 16)
    {
        expect_fine("kel_register_client", kel_register_client(&handle, "stress", role, depth));
    }
    client(const client &) = delete;
    client &operator=(const client &) = delete;
    ~client() { expect_fine("kel_deregister_client", kel_deregister_client(handle)); }
    operator kel_client() const { return handle; }

private:
    kel_client handle = 0;
};

// A thread's own random numbers and the count of what it did.
struct worker {
    std::mt19937 random;
    std::uint64_t rounds = 0;

    std::uint32_t below(std::uint32_t limit)
    {
        return static_cast<std::uint32_t>(random() % limit);
    }
};

// The bytes of packet `number`, of which the first four are the number.
std::vector<std::uint8_t> content(std::uint32_t number, std::uint32_t size)
{
    std::vector<std::uint8_t> bytes(size);
    for (std::uint32_t index = 0; index < size; index++) {
        bytes[index] = static_cast<std::uint8_t>(number * 31 + index * 7 + (index >> 8));
    }
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

void check_content(kel_packet packet)
{
    std::uint32_t length = kel_get_length(packet);
    std::vector<std::uint8_t> bytes(length);
    expect_fine("kel_get_data", kel_get_data(packet, OFFSET_DATA, 0, bytes.data(), &length));
    std::uint32_t number = 0;
    if (bytes.size() < sizeof number) return fail("a packet is too short", length);
    std::memcpy(&number, bytes.data(), sizeof number);
    if (bytes != content(number, length)) fail("a packet's data was changed", number);
}

// Sends until told to stop; a refused packet waits for room.
void send(worker &self, std::uint32_t number_of_sender)
{
    const client sender;
    std::map<kel_tag, std::uint32_t> sent;
    while (!stop) {
        const kel_tag tag = FIRST_TAG + self.below(RECEIVERS);
        const std::uint32_t size = 16 + self.below(self.below(10) ? 2000 : 30000);
        const kel_packet packet = kel_get_packet(sender, 0, size, 0, nullptr);
        if (!packet) {
            fail("no packet", size);
            continue;
        }
        const auto bytes = content(static_cast<std::uint32_t>(self.random()), size);
        expect_fine("kel_set_data", kel_set_data(packet, OFFSET_DATA, 0, bytes.data(), size));
        expect_fine("kel_set_tag", kel_set_tag(packet, tag));
        expect_fine("kel_set_cause", kel_set_cause(packet, sent[tag]++));
        expect_fine("kel_set_vrf_id", kel_set_vrf_id(packet, number_of_sender));
        if (self.below(2)) kel_pkt_no_sig_required(packet, 1);
        if (self.below(4) == 0) {
            expect_fine("kel_tlv_alloc", kel_tlv_alloc(packet, 1, 100));
            expect_fine("kel_tlv_setdata", kel_tlv_setdata(packet, 1, bytes.data(), 16));
        }
        while (const std::uint32_t error = kel_send(sender, packet)) {
            if (error != 11) {
                fail("kel_send", error);
                kel_free_packet(packet);
                break;
            }
            kel_event event{};
            timeval limit{10, 0};
            expect_fine("kel_event_add_tag", kel_event_add_tag(sender, tag, 1, 2));
            expect_fine("kel_event_wait", kel_event_wait(sender, &event, &limit));
            if (event.type != KEL_EVENT_TAG) fail("a sender was not woken", event.type);
        }
        self.rounds++;
    }
    senders_at_work--;
}

// Receives what is sent to its tag, in order by sender, until all senders have ended.
void receive(worker &self, kel_client receiver)
{
    std::map<std::uint32_t, std::uint32_t> expected;
    while (true) {
        const bool is_last_look = senders_at_work == 0;
        fd_set readable;
        FD_ZERO(&readable);
        const int descriptor = kel_getfd(receiver);
        FD_SET(descriptor, &readable);
        timeval limit{0, 50'000};
        select(descriptor + 1, &readable, nullptr, nullptr, &limit);
        while (const kel_packet packet = kel_recv(receiver)) {
            std::uint32_t sender = 0;
            std::uint32_t number = 0;
            kel_get_vrf_id(packet, &sender);
            kel_get_cause(packet, &number);
            if (number != expected[sender]++) fail("packets changed their order", number);
            check_content(packet);
            expect_fine("kel_free_packet", kel_free_packet(packet));
            self.rounds++;
        }
        if (is_last_look) return;
    }
}

// Packets and buffers of every shape, changed and freed in any order.
void allocate(worker &self)
{
    const client owner;
    kel_bufgroup group = 0;
    expect_fine("kel_register_bufgroup", kel_register_bufgroup(owner, &group, SHARED_GROUP));
    std::vector<kel_packet> packets;
    while (!stop || !packets.empty()) {
        if (!stop && packets.size() < 50 && self.below(3)) {
            const std::uint32_t size = 100 + self.below(20000);
            const kel_packet packet =
                kel_get_packet(owner, self.below(2) ? group : 0, size, 0, nullptr);
            if (packet) packets.push_back(packet);
        } else if (!packets.empty()) {
            const std::size_t index = self.below(static_cast<std::uint32_t>(packets.size()));
            const kel_packet packet = packets[index];
            const kel_buffer buffer = kel_get_buffer(owner, 0, 1 + self.below(9000), 1, nullptr);
            if (buffer && !is_fine(kel_append(packet, buffer))) fail("kel_append", buffer);
            expect_fine("kel_trim_head", kel_trim_head(packet, self.below(100)));
            kel_add_head(packet, self.below(100));
            kel_coalesce(packet);
            std::uint32_t error = 0;
            const kel_packet copy = kel_duplicate(packet, OFFSET_DATA, 0, KEL_COPY_ALL, &error);
            if (copy && kel_get_length(copy) != kel_get_length(packet)) fail("duplicate", copy);
            if (copy) expect_fine("kel_free_packet", kel_free_packet(copy));
            expect_fine("kel_free_packet", kel_free_packet(packet));
            packets.erase(packets.begin() + static_cast<std::ptrdiff_t>(index));
        }
        self.rounds++;
    }
    expect_fine("kel_deregister_bufgroup", kel_deregister_bufgroup(owner, group));
}

// Chains of buffers, alone.
void chain(worker &self)
{
    const client owner;
    while (!stop) {
        kel_buffer head = kel_get_buffer(owner, 0, 1 + self.below(65536), 0, nullptr);
        if (!head) continue;
        const kel_buffer copy = kel_buf_duplicate(head, 0, KEL_COPY_ALL, nullptr);
        if (copy) expect_fine("kel_buf_append", kel_buf_append(head, copy));
        kel_buf_adj(&head, static_cast<std::int32_t>(self.below(200)) - 100);
        if (head) kel_buf_add_tail(head, self.below(500));
        if (head) expect_fine("kel_free_bufchain", kel_free_bufchain(head));
        self.rounds++;
    }
}

// Clients that come and go, leaving much of what they hold to their deregistration.
void come_and_go(worker &self)
{
    while (!stop) {
        const client first(KEL_ROLE_STANDBY);
        const client second(KEL_ROLE_STANDBY);
        kel_tag tag = 0;
        expect_fine("kel_alloc_tag", kel_alloc_tag(first, &tag, nullptr));
        expect_fine("kel_register_tag", kel_register_tag(first, tag));
        kel_client_ha_role_notify(first, KEL_ROLE_ACTIVE);
        for (std::uint32_t count = self.below(8); count > 0; count--) {
            const kel_packet packet = kel_get_packet_with_tlv(second, 0, 200, 0, 1, 100, nullptr);
            kel_set_tag(packet, tag);
            if (self.below(2)) expect_fine("kel_send", kel_send(second, packet));
        }
        kel_bufgroup group = 0;
        expect_fine("kel_register_reserved_bufgroup",
                    kel_register_reserved_bufgroup(second, &group, "stress reserved", 256, 8,
                                                   self.below(64), self.below(2)));
        const kel_packet packet = kel_get_packet(second, group, 256, 1, nullptr);
        if (self.below(2)) kel_free_packet(packet);
        if (self.below(2)) kel_event_add_tag(second, tag, 0, 0);
        if (self.below(2)) expect_fine("kel_free_tag", kel_free_tag(first, tag));
        self.rounds++;
    }
}

void use_tlvs(worker &self)
{
    const client owner;
    while (!stop) {
        const kel_packet header = kel_get_pkthdr(owner);
        std::uint8_t data[228] = {};
        for (std::uint32_t id = 1; id <= 3; id++) {
            const std::uint32_t size = 1 + self.below(228);
            std::memset(data, static_cast<int>(id), sizeof data);
            expect_fine("kel_tlv_alloc", kel_tlv_alloc(header, id, size));
            expect_fine("kel_tlv_set_versioned_data",
                        kel_tlv_set_versioned_data(header, id, data, size, 10));
        }
        expect_fine("kel_tlv_free", kel_tlv_free(header, 1 + self.below(3)));
        std::uint32_t id = 0;
        expect_fine("kel_tlv_get_head", kel_tlv_get_head(header, &id));
        while (id) {
            std::uint32_t length = sizeof data;
            expect_fine("kel_tlv_getdata", kel_tlv_getdata(header, id, data, &length));
            if (data[length - 1] != id) fail("a TLV's data was changed", id);
            expect_fine("kel_tlv_get_next", kel_tlv_get_next(header, &id));
        }
        expect_fine("kel_free_pkthdr", kel_free_pkthdr(header));
        self.rounds++;
    }
}

// Waits for the shared group's events while the allocating threads drive it up and down.
void watch_group(worker &self)
{
    const client owner;
    kel_bufgroup group = 0;
    expect_fine("kel_register_bufgroup", kel_register_bufgroup(owner, &group, SHARED_GROUP));
    while (!stop) {
        kel_event event{};
        timeval limit{0, 20'000};
        expect_fine("kel_event_add_bufgroup", kel_event_add_bufgroup(owner, group, 3, 7, 8));
        const std::uint32_t error = kel_event_wait(owner, &event, &limit);
        if (error != 0 && error != 4) fail("kel_event_wait", error);
        if (error == 0 && event.type != KEL_EVENT_NONE && event.context2 != 8) {
            fail("an event's context was changed", event.context2);
        }
        if (self.below(4) == 0) expect_fine("kel_event_clear", kel_event_clear(owner));
        std::uint32_t buffers = 0;
        std::uint32_t bytes = 0;
        kel_get_count_bygroup(owner, group, &buffers, &bytes);
        if (buffers > THRESHOLDS.max) fail("a group went beyond its maximum", buffers);
        self.rounds++;
    }
    expect_fine("kel_deregister_bufgroup", kel_deregister_bufgroup(owner, group));
}

// One thread waits without limit, another ends its waits.
void wait_and_clear(worker &self)
{
    const client owner;
    std::atomic<bool> has_ended = false;
    std::thread waiting([&] {
        while (!stop) {
            kel_event event{};
            const std::uint32_t error = kel_event_wait(owner, &event, nullptr);
            if (error != 0 && error != 4) fail("kel_event_wait", error);
        }
        has_ended = true;
    });
    while (!has_ended) {
        const kel_event event{KEL_EVENT_TAG_REGISTERED, 0, 1, 2, FIRST_TAG, 0};
        if (self.below(2)) expect_fine("kel_event_add", kel_event_add(owner, &event));
        expect_fine("kel_event_clear", kel_event_clear(owner));
        std::this_thread::yield();
        self.rounds++;
    }
    waiting.join();
}

struct task {
    std::string name;
    std::function<void(worker &)> run;
};

void run_all(std::uint32_t seconds, std::uint32_t seed)
{
    const client receivers[RECEIVERS];
    kel_bufgroup group = 0;
    expect_fine("kel_register_bufgroup", kel_register_bufgroup(receivers[0], &group, SHARED_GROUP));
    expect_fine(
        "kel_bufgroup_set_params",
        kel_bufgroup_set_params(receivers[0], group, KEL_BUFGROUP_BUFFERS, &THRESHOLDS, nullptr));
    std::vector<task> tasks = {{"allocate", allocate},
                               {"allocate", allocate},
                               {"chain", chain},
                               {"come_and_go", come_and_go},
                               {"use_tlvs", use_tlvs},
                               {"watch_group", watch_group},
                               {"wait_and_clear", wait_and_clear}};
    for (std::uint32_t index = 0; index < RECEIVERS; index++) {
        expect_fine("kel_register_tag", kel_register_tag(receivers[index], FIRST_TAG + index));
        tasks.push_back({"receive", [&, index](worker &self) { receive(self, receivers[index]); }});
    }
    for (std::uint32_t index = 0; index < SENDERS; index++) {
        tasks.push_back({"send", [index](worker &self) { send(self, index); }});
    }

    std::vector<worker> workers(tasks.size());
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < tasks.size(); index++) {
        workers[index].random.seed(seed + static_cast<std::uint32_t>(index));
        threads.emplace_back([&, index] { tasks[index].run(workers[index]); });
    }
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    stop = true;
    for (std::thread &each : threads) each.join();
    for (std::size_t index = 0; index < tasks.size(); index++) {
        std::printf("%-16s%10llu\n", tasks[index].name.c_str(),
                    static_cast<unsigned long long>(workers[index].rounds));
        if (workers[index].rounds == 0) fail("a thread did nothing", 0);
    }
    expect_fine("kel_deregister_bufgroup", kel_deregister_bufgroup(receivers[0], group));
    for (std::uint32_t index = 0; index < RECEIVERS; index++) {
        expect_fine("kel_deregister_tag", kel_deregister_tag(receivers[index], FIRST_TAG + index));
    }
}

void expect_nothing_lives()
{
    kel_reference_census census{};
    kel_reference_take_census(&census);
    const std::pair<const char *, std::uint64_t> counts[] = {
        {"clients", census.clients},
        {"packets", census.packets},
        {"buffers", census.buffers},
        {"bufgroups", census.bufgroups},
        {"tags", census.tags},
        {"allocated tags", census.allocated_tags},
        {"tlvs", census.tlvs},
        {"events", census.events},
        {"arena bytes", census.arena_bytes}};
    for (const auto &[name, count] : counts) {
        if (count) fail(name, static_cast<std::uint32_t>(count));
    }
}

} // namespace

int main(int count, char **arguments)
{
    CLI::App options("Uses the library from many threads at once.");
    std::uint32_t seconds = 2;
    std::uint32_t seed = 1;
    options.add_option("--seconds", seconds, "how long")->capture_default_str();
    options.add_option("--seed", seed, "for the random choices")->capture_default_str();
    CLI11_PARSE(options, count, arguments);

    kel_nocrash_set();
    run_all(seconds, seed);
    expect_nothing_lives();
    if (failures) std::fprintf(stderr, "stress_test: %u failures\n", failures.load());
    return failures ? 1 : 0;
}

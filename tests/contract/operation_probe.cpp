// SPDX-License-Identifier: MIT
//
// Repeats an operation between two marks that a tracer sees, calls of getppid, and says how
// often memory was asked for between them. Allocations are counted by standing in for the C
// library's allocator, which is asked in turn.

#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kelapi/kel.h"
#include "tests/contract/traced_probe.h"

namespace {

std::atomic<std::size_t> allocations = 0;

} // namespace

extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
void *malloc(std::size_t size) noexcept;
void *calloc(std::size_t count, std::size_t size) noexcept;
void *realloc(void *memory, std::size_t size) noexcept;

void *malloc(std::size_t size) noexcept
{
    allocations++;
    return __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) noexcept
{
    allocations++;
    return __libc_calloc(count, size);
}

void *realloc(void *memory, std::size_t size) noexcept
{
    allocations++;
    return __libc_realloc(memory, size);
}

} // extern "C"

namespace {

constexpr kel_tag TAG = 1000;
constexpr std::uint32_t SIZE = 1500;
constexpr std::uint32_t TLV_SIZE = 228;
// Until the library's tables have grown to what they need: freed handles rest for a while.
constexpr int WARM_UP = 600;
constexpr int TIMES = 2000;

struct subject {
    kel_client client = 0;
    kel_packet packet = 0;
    std::array<char, SIZE> data{};
};

kel_packet new_packet(const subject &used)
{
    const kel_packet packet = kel_get_packet(used.client, 0, SIZE, 1, nullptr);
    check(packet != 0, "get_packet");
    check(kel_set_tag(packet, TAG) == 0, "set_tag");
    return packet;
}

void get_and_free(subject &used)
{
    check(kel_free_packet(new_packet(used)) == 0, "free_packet");
}

// Another packet waits all the while, so that no signal begins or ends.
void send_and_receive(subject &used)
{
    check(kel_send(used.client, used.packet) == 0, "send");
    used.packet = kel_recv(used.client);
    check(used.packet != 0, "recv");
}

// TLVs apart: the copies of those are allocations.
void duplicate(subject &used)
{
    kel_tlv_free(used.packet, 1);
    const kel_packet made = kel_duplicate(used.packet, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr);
    check(made != 0 && kel_free_packet(made) == 0, "duplicate");
}

void append_and_trim(subject &used)
{
    const kel_buffer added = kel_get_buffer(used.client, 0, SIZE, 1, nullptr);
    check(added != 0 && kel_append(used.packet, added) == 0, "append");
    check(kel_trim_tail(used.packet, SIZE) == 0, "trim_tail");
}

void set_and_get_data(subject &used)
{
    std::uint32_t length = SIZE;
    check(kel_set_data(used.packet, OFFSET_DATA, 0, used.data.data(), SIZE) == 0, "set_data");
    check(kel_get_data(used.packet, OFFSET_DATA, 0, used.data.data(), &length) == 0, "get_data");
}

void set_and_get_tlv(subject &used)
{
    std::uint32_t length = TLV_SIZE;
    check(kel_tlv_setdata(used.packet, 1, used.data.data(), TLV_SIZE) == 0, "tlv_setdata");
    check(kel_tlv_getdata(used.packet, 1, used.data.data(), &length) == 0, "tlv_getdata");
}

void set_and_get_metadata(subject &used)
{
    kel_metadata_group group;
    kel_metadata_init(&group);
    group.mask = ~0u;
    check(kel_metadata_get(&group, used.packet) == 0, "metadata_get");
    check(kel_metadata_set(&group, used.packet) == 0, "metadata_set");
}

// While the other client keeps the daemon. A client's descriptor is not part of it.
void register_and_deregister(subject &)
{
    kel_client client = 0;
    check(kel_register_client(&client, "another", KEL_ROLE_ALWAYS, 32) == 0, "register_client");
    check(kel_deregister_client(client) == 0, "deregister_client");
}

constexpr struct {
    const char *name;
    void (*run)(subject &);
} OPERATIONS[] = {
    {"get_and_free", get_and_free},
    {"send_and_receive", send_and_receive},
    {"duplicate", duplicate},
    {"append_and_trim", append_and_trim},
    {"set_and_get_data", set_and_get_data},
    {"set_and_get_tlv", set_and_get_tlv},
    {"set_and_get_metadata", set_and_get_metadata},
    {"register_and_deregister", register_and_deregister},
};

void repeat(void (*operation)(subject &))
{
    subject used;
    check(kel_register_client(&used.client, "probe", KEL_ROLE_ALWAYS, 32) == 0, "register_client");
    check(kel_register_tag(used.client, TAG) == 0, "register_tag");
    wait_for_daemon();
    check(kel_send(used.client, new_packet(used)) == 0, "send");
    used.packet = new_packet(used);
    check(kel_tlv_alloc(used.packet, 1, TLV_SIZE) == 0, "tlv_alloc");
    for (int time = 0; time < WARM_UP; time++) operation(used);

    const std::size_t allocations_before = allocations;
    getppid();
    for (int time = 0; time < TIMES; time++) operation(used);
    getppid();
    const std::size_t made = allocations - allocations_before;
    check(kel_deregister_client(used.client) == 0, "deregister_client");
    std::printf("%d times, %zu allocations\n", TIMES, made);
}

} // namespace

int main(int count, char **arguments)
{
    for (const auto &operation : OPERATIONS) {
        if (count != 2 || std::strcmp(arguments[1], operation.name) != 0) continue;
        repeat(operation.run);
        return 0;
    }
    std::fprintf(stderr, "usage: operation_probe operation\n");
    return 3;
}

// SPDX-License-Identifier: MIT
//
// What operations of the reference library cost on one thread, beside what a program would do
// without it, measured in the same run.

#include <benchmark/benchmark.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <mutex>

#include "bench/support.h"

namespace library_bench {

namespace {

// The peers.

void copy_1500_bytes(benchmark::State &state)
{
    std::array<char, SIZE> source{};
    std::array<char, SIZE> destination{};
    const copies_column column(state);
    for (auto _ : state) copy(destination.data(), source.data());
}
BENCHMARK(copy_1500_bytes);

// Between two blocks that stay, as in a program that has others in use: the block comes from the
// allocator's list of free ones and not off the end of its memory.
void malloc_and_free_1500_bytes(benchmark::State &state)
{
    void *before = std::malloc(SIZE);
    void *between = std::malloc(SIZE);
    void *behind = std::malloc(SIZE);
    std::free(between);
    const copies_column column(state);
    for (auto _ : state) {
        void *memory = std::malloc(SIZE);
        benchmark::DoNotOptimize(memory);
        std::free(memory);
    }
    std::free(before);
    std::free(behind);
}
BENCHMARK(malloc_and_free_1500_bytes);

// An eventfd counts the signals that stand; it is written and read when the queue becomes
// non-empty and empty, as the library's descriptor is changed.
class peer_queue {
public:
    explicit peer_queue(bool signals) : event(signals ? eventfd(0, EFD_CLOEXEC) : -1) {}
    peer_queue(const peer_queue &) = delete;
    peer_queue &operator=(const peer_queue &) = delete;
    ~peer_queue()
    {
        if (event >= 0) close(event);
    }

    void put(void *packet)
    {
        const std::lock_guard guard(lock);
        if (event >= 0 && packets.empty() && eventfd_write(event, 1)) std::abort();
        packets.push_back(packet);
    }

    void *get()
    {
        eventfd_t count = 0;
        const std::lock_guard guard(lock);
        void *packet = packets.front();
        packets.pop_front();
        if (event >= 0 && packets.empty() && eventfd_read(event, &count)) std::abort();
        return packet;
    }

private:
    std::mutex lock;
    std::deque<void *> packets;
    int event;
};

void put_and_get(benchmark::State &state, bool signals, int waiting)
{
    peer_queue queue(signals);
    for (int count = 0; count < waiting; count++) queue.put(&queue);
    const copies_column column(state);
    for (auto _ : state) {
        queue.put(&queue);
        benchmark::DoNotOptimize(queue.get());
    }
}
BENCHMARK_CAPTURE(put_and_get, mutex_and_deque, false, 1);
BENCHMARK_CAPTURE(put_and_get, mutex_deque_and_eventfd_queue_never_empty, true, 1);
BENCHMARK_CAPTURE(put_and_get, mutex_deque_and_eventfd_queue_empty_each_time, true, 0);

void pipe_write_and_read(benchmark::State &state)
{
    int ends[2];
    if (pipe(ends)) std::abort();
    void *address = &state;
    const copies_column column(state);
    for (auto _ : state) {
        const bool is_written = write(ends[1], &address, sizeof address) == sizeof address;
        const bool is_read = read(ends[0], &address, sizeof address) == sizeof address;
        if (!is_written || !is_read) std::abort();
    }
    close(ends[0]);
    close(ends[1]);
}
BENCHMARK(pipe_write_and_read);

void eventfd_write_and_read(benchmark::State &state)
{
    const int event = eventfd(0, EFD_CLOEXEC);
    eventfd_t count = 0;
    const copies_column column(state);
    for (auto _ : state) {
        if (eventfd_write(event, 1) || eventfd_read(event, &count)) std::abort();
    }
    close(event);
}
BENCHMARK(eventfd_write_and_read);

// The library.

void get_and_free_packet(benchmark::State &state)
{
    const client owner;
    const copies_column column(state);
    get_and_free(state, owner);
}
BENCHMARK(get_and_free_packet);

void get_and_free_buffer(benchmark::State &state)
{
    const client owner;
    const copies_column column(state);
    for (auto _ : state) {
        const kel_buffer buffer = kel_get_buffer(owner, 0, SIZE, 1, nullptr);
        if (kel_free_buffer(buffer)) state.SkipWithError("not obtained and freed");
    }
}
BENCHMARK(get_and_free_buffer);

enum class queue { never_empty, empty_each_time, empty_and_deferred, empty_and_unwatched };

void send_and_receive_packet(benchmark::State &state, queue how)
{
    const client owner;
    if (how != queue::empty_and_unwatched) require(state, owner.has_descriptor(), "no descriptor");
    if (how == queue::never_empty) require(state, !kel_send(owner, owner.new_packet()), "not sent");
    const kel_packet packet = owner.new_packet();
    kel_pkt_no_sig_required(packet, how == queue::empty_and_deferred);
    const copies_column column(state);
    send_and_receive(state, owner, packet);
}
BENCHMARK_CAPTURE(send_and_receive_packet, queue_never_empty, queue::never_empty);
BENCHMARK_CAPTURE(send_and_receive_packet, queue_empty_each_time, queue::empty_each_time);
BENCHMARK_CAPTURE(send_and_receive_packet, queue_empty_signal_deferred, queue::empty_and_deferred);
BENCHMARK_CAPTURE(send_and_receive_packet, queue_empty_no_descriptor, queue::empty_and_unwatched);

void duplicate_packet(benchmark::State &state)
{
    const client owner;
    const kel_packet source = owner.new_packet();
    const copies_column column(state);
    for (auto _ : state) {
        const kel_packet made = kel_duplicate(source, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr);
        if (kel_free_packet(made)) state.SkipWithError("not duplicated and freed");
    }
}
BENCHMARK(duplicate_packet);

void append_and_trim(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = owner.new_packet();
    const copies_column column(state);
    for (auto _ : state) {
        const kel_buffer buffer = kel_get_buffer(owner, 0, SIZE, 1, nullptr);
        if (kel_append(packet, buffer) || kel_trim_tail(packet, SIZE)) {
            state.SkipWithError("not appended and trimmed");
        }
    }
}
BENCHMARK(append_and_trim);

void set_and_get_data(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = owner.new_packet();
    std::array<char, SIZE> data{};
    const copies_column column(state);
    for (auto _ : state) {
        std::uint32_t length = SIZE;
        if (kel_set_data(packet, OFFSET_DATA, 0, data.data(), length) ||
            kel_get_data(packet, OFFSET_DATA, 0, data.data(), &length)) {
            state.SkipWithError("not written and read");
        }
    }
}
BENCHMARK(set_and_get_data);

void set_and_get_tlv(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = owner.new_packet();
    std::array<char, 228> data{};
    require(state, kel_tlv_alloc(packet, 1, data.size()) == 0, "no TLV");
    const copies_column column(state);
    for (auto _ : state) {
        std::uint32_t length = data.size();
        if (kel_tlv_setdata(packet, 1, data.data(), length) ||
            kel_tlv_getdata(packet, 1, data.data(), &length)) {
            state.SkipWithError("not written and read");
        }
    }
}
BENCHMARK(set_and_get_tlv);

// All fields.
void set_and_get_metadata_group(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = owner.new_packet();
    kel_metadata_group group;
    kel_metadata_init(&group);
    group.mask = ~0u;
    require(state, kel_metadata_get(&group, packet) == 0, "no metadata");
    const copies_column column(state);
    for (auto _ : state) {
        if (kel_metadata_set(&group, packet) || kel_metadata_get(&group, packet)) {
            state.SkipWithError("not written and read");
        }
    }
}
BENCHMARK(set_and_get_metadata_group);

} // namespace

} // namespace library_bench

int main(int count, char **arguments)
{
    return library_bench::run(count, arguments);
}

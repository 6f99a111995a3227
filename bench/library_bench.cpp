// SPDX-License-Identifier: MIT
//
// What operations of the reference library cost, beside what a program would do without it,
// measured in the same run.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <vector>

#include "kelapi/kel.h"

namespace {

constexpr kel_tag TAG = 1000;
constexpr std::uint32_t SIZE = 1500;

class client {
public:
    client()
    {
        kel_register_client(&handle, "bench", KEL_ROLE_ALWAYS, 32);
        kel_register_tag(handle, TAG);
    }
    client(const client &) = delete;
    client &operator=(const client &) = delete;
    ~client() { kel_deregister_client(handle); }
    operator kel_client() const { return handle; }
    kel_packet new_packet() const
    {
        const kel_packet packet = kel_get_packet(handle, 0, SIZE, 1, nullptr);
        kel_set_tag(packet, TAG);
        return packet;
    }

private:
    kel_client handle = 0;
};

void require(benchmark::State &state, bool holds, const char *what)
{
    if (!holds) state.SkipWithError(what);
}

void copy_1500_bytes(benchmark::State &state)
{
    std::array<char, SIZE> source{};
    std::array<char, SIZE> destination{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(source.data());
        std::memcpy(destination.data(), source.data(), SIZE);
        benchmark::DoNotOptimize(destination.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(copy_1500_bytes);

void malloc_and_free_1500_bytes(benchmark::State &state)
{
    for (auto _ : state) {
        void *memory = std::malloc(SIZE);
        benchmark::DoNotOptimize(memory);
        std::free(memory);
    }
}
BENCHMARK(malloc_and_free_1500_bytes);

void hand_over_by_mutex_and_deque(benchmark::State &state)
{
    std::mutex lock;
    std::deque<void *> queue;
    for (auto _ : state) {
        {
            const std::lock_guard guard(lock);
            queue.push_back(&queue);
        }
        const std::lock_guard guard(lock);
        benchmark::DoNotOptimize(queue.front());
        queue.pop_front();
    }
}
BENCHMARK(hand_over_by_mutex_and_deque);

void hand_over_by_pipe(benchmark::State &state)
{
    int ends[2];
    if (pipe(ends)) std::abort();
    void *address = &state;
    for (auto _ : state) {
        const bool is_written = write(ends[1], &address, sizeof address) == sizeof address;
        const bool is_read = read(ends[0], &address, sizeof address) == sizeof address;
        if (!is_written || !is_read) std::abort();
    }
    close(ends[0]);
    close(ends[1]);
}
BENCHMARK(hand_over_by_pipe);

// With so many packets held meanwhile: what grows with them shows here.
void get_and_free_packet(benchmark::State &state)
{
    const client owner;
    std::vector<kel_packet> held;
    for (std::int64_t count = 0; count < state.range(0); count++) {
        held.push_back(owner.new_packet());
        require(state, held.back() != 0, "no packet");
    }
    for (auto _ : state) {
        const kel_packet packet = kel_get_packet(owner, 0, SIZE, 1, nullptr);
        benchmark::DoNotOptimize(packet);
        kel_free_packet(packet);
    }
    for (const kel_packet packet : held) kel_free_packet(packet);
}
BENCHMARK(get_and_free_packet)->RangeMultiplier(10)->Range(1, 100'000);

void get_and_free_buffer(benchmark::State &state)
{
    const client owner;
    for (auto _ : state) {
        const kel_buffer buffer = kel_get_buffer(owner, 0, SIZE, 1, nullptr);
        benchmark::DoNotOptimize(buffer);
        kel_free_buffer(buffer);
    }
}
BENCHMARK(get_and_free_buffer);

enum class signalling { none_due, due };

void send_and_receive(benchmark::State &state, signalling how)
{
    const client owner;
    kel_set_client_signal_interval(owner, 600'000);
    kel_packet packet = owner.new_packet();
    kel_pkt_no_sig_required(packet, how == signalling::none_due);
    for (auto _ : state) {
        const std::uint32_t error = kel_send(owner, packet);
        const kel_packet received = kel_recv(owner);
        if (error || received != packet) state.SkipWithError("not handed over");
    }
    kel_free_packet(packet);
}
BENCHMARK_CAPTURE(send_and_receive, no_signal_due, signalling::none_due);
BENCHMARK_CAPTURE(send_and_receive, signal_due, signalling::due);

void duplicate_packet(benchmark::State &state)
{
    const client owner;
    const kel_packet source = owner.new_packet();
    for (auto _ : state) {
        const kel_packet copy = kel_duplicate(source, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr);
        benchmark::DoNotOptimize(copy);
        kel_free_packet(copy);
    }
    kel_free_packet(source);
}
BENCHMARK(duplicate_packet);

void append_and_trim(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = owner.new_packet();
    for (auto _ : state) {
        const kel_buffer buffer = kel_get_buffer(owner, 0, SIZE, 1, nullptr);
        if (kel_append(packet, buffer) || kel_trim_tail(packet, SIZE)) {
            state.SkipWithError("not appended and trimmed");
        }
    }
    kel_free_packet(packet);
}
BENCHMARK(append_and_trim);

void set_and_get_tlv(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = owner.new_packet();
    require(state, kel_tlv_alloc(packet, 1, 228) == 0, "no TLV");
    std::array<char, 228> data{};
    for (auto _ : state) {
        std::uint32_t length = data.size();
        kel_tlv_setdata(packet, 1, data.data(), length);
        kel_tlv_getdata(packet, 1, data.data(), &length);
        benchmark::DoNotOptimize(data.data());
    }
    kel_free_packet(packet);
}
BENCHMARK(set_and_get_tlv);

void set_and_get_data(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = owner.new_packet();
    std::array<char, SIZE> data{};
    for (auto _ : state) {
        std::uint32_t length = SIZE;
        kel_set_data(packet, OFFSET_DATA, 0, data.data(), length);
        kel_get_data(packet, OFFSET_DATA, 0, data.data(), &length);
        benchmark::DoNotOptimize(data.data());
    }
    kel_free_packet(packet);
}
BENCHMARK(set_and_get_data);

} // namespace

int main(int count, char **arguments)
{
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
    kel_nocrash_set();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// SPDX-License-Identifier: MIT
//
// How the cost of operations changes with what the library holds meanwhile, and with threads.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <vector>

#include "bench/support.h"

namespace library_bench {

namespace {

// Filling the library up takes longer than the measurement: once for each repetition is enough.
constexpr int ITERATIONS = 200'000;
constexpr int SLOW_ITERATIONS = 2'000;

// Small ones, so that a million fits into the buffer memory.
constexpr std::uint32_t SMALL = 64;

void up_to_10000(benchmark::internal::Benchmark *bench)
{
    bench->RangeMultiplier(10)->Range(1, 10'000)->Iterations(ITERATIONS);
}

void up_to_1000000(benchmark::internal::Benchmark *bench)
{
    bench->RangeMultiplier(10)->Range(1, 1'000'000)->Iterations(ITERATIONS);
}

void up_to_1000(benchmark::internal::Benchmark *bench)
{
    bench->RangeMultiplier(10)->Range(1, 1'000)->Iterations(ITERATIONS / 4);
}

// What is in the library while an operation is measured.

std::vector<std::unique_ptr<client>> hold_clients(benchmark::State &state)
{
    std::vector<std::unique_ptr<client>> held;
    for (kel_tag tag = TAG + 1; tag <= TAG + state.range(0); tag++) {
        held.push_back(std::make_unique<client>(tag));
        require(state, *held.back() != 0, "no client");
    }
    return held;
}

void hold_tags(benchmark::State &state, kel_client owner)
{
    for (kel_tag tag = TAG + 1; tag <= TAG + state.range(0); tag++) {
        require(state, kel_register_tag(owner, tag) == 0, "no tag");
    }
}

void hold_packets(benchmark::State &state, const client &owner)
{
    for (std::int64_t count = 0; count < state.range(0); count++) {
        require(state, owner.new_packet(SMALL) != 0, "no packet");
    }
}

kel_packet hold_chain(benchmark::State &state, const client &owner)
{
    const kel_packet packet = owner.new_packet(SMALL);
    for (std::int64_t count = 1; count < state.range(0); count++) {
        const kel_buffer added = kel_get_buffer(owner, 0, SMALL, 1, nullptr);
        require(state, kel_append(packet, added) == 0, "no chain");
    }
    return packet;
}

// Another packet waits all the while.
void send_and_receive_beside_another(benchmark::State &state, const client &owner)
{
    require(state, owner.has_descriptor(), "no descriptor");
    require(state, kel_send(owner, owner.new_packet(SMALL)) == 0, "not sent");
    send_and_receive(state, owner, owner.new_packet(SMALL));
}

void clients_get_and_free(benchmark::State &state)
{
    const auto held = hold_clients(state);
    const client owner;
    get_and_free(state, owner);
}
BENCHMARK(clients_get_and_free)->Apply(up_to_10000);

void clients_send_and_receive(benchmark::State &state)
{
    const auto held = hold_clients(state);
    const client owner;
    send_and_receive_beside_another(state, owner);
}
BENCHMARK(clients_send_and_receive)->Apply(up_to_10000);

void clients_register_and_deregister(benchmark::State &state)
{
    const auto held = hold_clients(state);
    for (auto _ : state) {
        const client one_more;
        if (!one_more) state.SkipWithError("no client");
    }
}
BENCHMARK(clients_register_and_deregister)->Apply(up_to_10000)->Iterations(SLOW_ITERATIONS);

void tags_send_and_receive(benchmark::State &state)
{
    const client owner;
    hold_tags(state, owner);
    send_and_receive_beside_another(state, owner);
}
BENCHMARK(tags_send_and_receive)->Apply(up_to_10000);

void tags_register_and_deregister(benchmark::State &state)
{
    const client owner;
    hold_tags(state, owner);
    for (auto _ : state) {
        if (kel_register_tag(owner, 1) || kel_deregister_tag(owner, 1)) {
            state.SkipWithError("no tag");
        }
    }
}
BENCHMARK(tags_register_and_deregister)->Apply(up_to_10000);

void packets_get_and_free(benchmark::State &state)
{
    const client owner;
    hold_packets(state, owner);
    get_and_free(state, owner, SMALL);
}
BENCHMARK(packets_get_and_free)->Apply(up_to_1000000);

void packets_send_and_receive(benchmark::State &state)
{
    const client owner;
    hold_packets(state, owner);
    send_and_receive_beside_another(state, owner);
}
BENCHMARK(packets_send_and_receive)->Apply(up_to_1000000);

void packets_duplicate(benchmark::State &state)
{
    const client owner;
    hold_packets(state, owner);
    const kel_packet source = owner.new_packet(SMALL);
    for (auto _ : state) {
        const kel_packet made = kel_duplicate(source, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr);
        if (kel_free_packet(made)) state.SkipWithError("not duplicated and freed");
    }
}
BENCHMARK(packets_duplicate)->Apply(up_to_1000000);

// The last byte of the chain lies behind all its buffers.
void chain_read_last_byte(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = hold_chain(state, owner);
    const std::uint32_t last = kel_get_length(packet) - 1;
    for (auto _ : state) {
        char byte = 0;
        std::uint32_t length = 1;
        if (kel_get_data(packet, OFFSET_DATA, last, &byte, &length)) {
            state.SkipWithError("not read");
        }
        benchmark::DoNotOptimize(byte);
    }
}
BENCHMARK(chain_read_last_byte)->Apply(up_to_1000);

void chain_duplicate_and_free(benchmark::State &state)
{
    const client owner;
    const kel_packet source = hold_chain(state, owner);
    for (auto _ : state) {
        const kel_packet made = kel_duplicate(source, OFFSET_DATA, 0, KEL_COPY_ALL, nullptr);
        if (kel_free_packet(made)) state.SkipWithError("not duplicated and freed");
    }
}
BENCHMARK(chain_duplicate_and_free)->Apply(up_to_1000)->Iterations(SLOW_ITERATIONS);

void chain_append_and_trim(benchmark::State &state)
{
    const client owner;
    const kel_packet packet = hold_chain(state, owner);
    for (auto _ : state) {
        const kel_buffer added = kel_get_buffer(owner, 0, SMALL, 1, nullptr);
        if (kel_append(packet, added) || kel_trim_tail(packet, SMALL)) {
            state.SkipWithError("not appended and trimmed");
        }
    }
}
BENCHMARK(chain_append_and_trim)->Apply(up_to_1000);

void chain_send_and_receive(benchmark::State &state)
{
    const client owner;
    require(state, owner.has_descriptor(), "no descriptor");
    require(state, kel_send(owner, owner.new_packet(SMALL)) == 0, "not sent");
    send_and_receive(state, owner, hold_chain(state, owner));
}
BENCHMARK(chain_send_and_receive)->Apply(up_to_1000);

// Each thread has a client of its own; what they share is the library.

void by_thread(benchmark::internal::Benchmark *bench)
{
    bench->Threads(1)->Threads(2)->Threads(4)->UseRealTime();
}

kel_tag tag_of(const benchmark::State &state)
{
    return TAG + static_cast<kel_tag>(state.thread_index());
}

void threads_get_and_free(benchmark::State &state)
{
    const client owner(tag_of(state));
    get_and_free(state, owner);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(threads_get_and_free)->Apply(by_thread);

void threads_send_and_receive(benchmark::State &state)
{
    const client owner(tag_of(state));
    send_and_receive_beside_another(state, owner);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(threads_send_and_receive)->Apply(by_thread);

// The least that a lock shared by all threads allows: two short holds of it.
void threads_lock_twice(benchmark::State &state)
{
    static std::mutex lock;
    static std::uint64_t count = 0;
    for (auto _ : state) {
        for (int half = 0; half < 2; half++) {
            const std::lock_guard guard(lock);
            benchmark::DoNotOptimize(++count);
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(threads_lock_twice)->Apply(by_thread);

} // namespace

} // namespace library_bench

int main(int count, char **arguments)
{
    return library_bench::run(count, arguments);
}

// SPDX-License-Identifier: MIT
//
// What the benchmarks of the library share.

#include "bench/support.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>

namespace library_bench {

namespace {

double processor_seconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The shortest of a few times: what disturbs can only lengthen them.
double seconds_of_copy()
{
    constexpr int BATCHES = 20;
    constexpr int COPIES = 500;
    static std::array<char, SIZE> source{};
    static std::array<char, SIZE> destination{};
    double shortest = std::numeric_limits<double>::max();
    for (int batch = 0; batch < BATCHES; batch++) {
        const double begin = processor_seconds();
        for (int done = 0; done < COPIES; done++) copy(destination.data(), source.data());
        shortest = std::min(shortest, processor_seconds() - begin);
    }
    return shortest / COPIES;
}

} // namespace

client::client(kel_tag received) : tag(received)
{
    kel_register_client(&handle, "bench", KEL_ROLE_ALWAYS, 32);
    kel_register_tag(handle, tag);
    kel_set_client_signal_interval(handle, 600'000);
}

client::~client()
{
    kel_deregister_client(handle);
}

bool client::has_descriptor() const
{
    return kel_getfd(handle) > 0;
}

kel_packet client::new_packet(std::uint32_t size) const
{
    const kel_packet packet = kel_get_packet(handle, 0, size, 1, nullptr);
    kel_set_tag(packet, tag);
    return packet;
}

void require(benchmark::State &state, bool holds, const char *what)
{
    if (!holds) state.SkipWithError(what);
}

void copy(char *destination, const char *source)
{
    std::size_t size = SIZE;
    benchmark::DoNotOptimize(size);
    std::memcpy(destination, source, size);
    benchmark::ClobberMemory();
}

copies_column::copies_column(benchmark::State &measured)
    : state(measured), copy_seconds(seconds_of_copy()), begin(processor_seconds())
{
}

copies_column::~copies_column()
{
    const double taken = processor_seconds() - begin;
    state.counters["copies"] = taken / static_cast<double>(state.iterations()) / copy_seconds;
}

void get_and_free(benchmark::State &state, kel_client owner, std::uint32_t size)
{
    for (auto _ : state) {
        const kel_packet packet = kel_get_packet(owner, 0, size, 1, nullptr);
        if (kel_free_packet(packet)) state.SkipWithError("not obtained and freed");
    }
}

void send_and_receive(benchmark::State &state, kel_client owner, kel_packet packet)
{
    for (auto _ : state) {
        const std::uint32_t error = kel_send(owner, packet);
        packet = kel_recv(owner);
        if (error || !packet) state.SkipWithError("not handed over");
    }
}

int run(int count, char **arguments)
{
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
    kel_nocrash_set();
    const client first_to_last(TAG - 1);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace library_bench

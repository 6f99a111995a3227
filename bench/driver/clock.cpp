// SPDX-License-Identifier: MIT
//
// Preloaded into a program that is measured: notes the time when the loader is done and at the end,
// so that starting the process does not count, and with BENCH_CLOCK_FLUSHES at each fflush, too:
// the runner flushes once before each case. What it noted goes to the file that BENCH_CLOCK names:
// lines
// "<CPU ns> <wall ns>", counted from the first, the last one for the end.
#include <dlfcn.h>
#include <time.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

using flush_function = int (*)(FILE *);

struct instant {
    long long cpu;
    long long wall;
};

flush_function real_flush;
bool notes_flushes;
std::array<instant, 4096> noted;
std::size_t noted_count;

long long nanoseconds_of(clockid_t clock)
{
    constexpr long long PER_SECOND = 1'000'000'000;
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * PER_SECOND + now.tv_nsec;
}

void note()
{
    if (noted_count < noted.size()) {
        noted[noted_count++] = {nanoseconds_of(CLOCK_PROCESS_CPUTIME_ID),
                                nanoseconds_of(CLOCK_MONOTONIC)};
    }
}

void report()
{
    note();
    const char *path = std::getenv("BENCH_CLOCK");
    FILE *file = path ? std::fopen(path, "w") : nullptr;
    if (!file) return;
    for (std::size_t i = 0; i < noted_count; i++) {
        std::fprintf(file, "%lld %lld\n", noted[i].cpu - noted[0].cpu,
                     noted[i].wall - noted[0].wall);
    }
    std::fclose(file);
}

__attribute__((constructor)) void begin()
{
    notes_flushes = std::getenv("BENCH_CLOCK_FLUSHES") != nullptr;
    real_flush = reinterpret_cast<flush_function>(dlsym(RTLD_NEXT, "fflush"));
    std::atexit(report);
    note();
}

} // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): its own is reserved
extern "C" int fflush(FILE *file)
{
    if (notes_flushes) note();
    return real_flush(file);
}

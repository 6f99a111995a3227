// SPDX-License-Identifier: MIT
//
// Preloaded into a program that is measured: notes the time when main begins and at its end, so
// that starting the process does not count, and with BENCH_CLOCK_FLUSHES at each fflush, too: the
// runner flushes once before each case. What it noted goes to the file that BENCH_CLOCK names:
// lines
// "<CPU ns> <wall ns>", counted from the beginning of main, the last one for the end.
#include <dlfcn.h>
#include <time.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

using main_function = int (*)(int, char **, char **);
using start_function = int (*)(main_function, int, char **, void (*)(), void (*)(), void (*)(),
                               void *);
using flush_function = int (*)(FILE *);

struct instant {
    long long cpu;
    long long wall;
};

main_function real_main;
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

int timed_main(int argc, char **argv, char **environment)
{
    std::atexit(report);
    note();
    return real_main(argc, argv, environment);
}

template <typename function> function next(const char *name)
{
    return reinterpret_cast<function>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int __libc_start_main(main_function main, int argc, char **argv, void (*init)(), void (*fini)(),
                      void (*loader_fini)(), void *stack_end);

int __libc_start_main(main_function main, int argc, char **argv, void (*init)(), void (*fini)(),
                      void (*loader_fini)(), void *stack_end)
{
    real_main = main;
    notes_flushes = std::getenv("BENCH_CLOCK_FLUSHES") != nullptr;
    real_flush = next<flush_function>("fflush");
    return next<start_function>("__libc_start_main")(timed_main, argc, argv, init, fini,
                                                     loader_fini, stack_end);
}

int fflush(FILE *stream)
{
    if (notes_flushes) note();
    return real_flush(stream);
}
}

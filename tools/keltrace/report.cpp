// SPDX-License-Identifier: MIT
//
// Writing of the report, from counters only: no lock is taken and nothing is allocated.
#include "tools/keltrace/report.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "tools/keltrace/census.h"
#include "tools/keltrace/state.h"

namespace keltrace {

namespace report {

namespace {

constinit const char *target = nullptr;

using long_number = unsigned long long;

void write_calls(int file)
{
    for (std::size_t i = 0; i < OPERATION_COUNT; ++i) {
        const auto count = call_counts[i].load(std::memory_order_relaxed);
        if (count == 0) continue;
        dprintf(file, "calls %s %llu\n", OPERATION_INFO[i].name, static_cast<long_number>(count));
    }
}

void write_faults(int file)
{
    if (plan == nullptr) return;
    for (const auto &each : plan->faults)
        dprintf(file, "fault %s hits %llu fired %llu\n", each.text.c_str(),
                static_cast<long_number>(each.hits.load(std::memory_order_relaxed)),
                static_cast<long_number>(each.fired.load(std::memory_order_relaxed)));
}

void write_census(int file)
{
    for (int i = 0; i < static_cast<int>(census::kind::count); ++i) {
        const auto kind = static_cast<census::kind>(i);
        const auto now = census::counted(kind);
        if (now.obtained == 0) continue;
        dprintf(file, "census %s %llu %llu %llu\n", census::name(kind),
                static_cast<long_number>(now.obtained), static_cast<long_number>(now.released),
                static_cast<long_number>(now.left));
        if (now.swept != 0)
            dprintf(file, "swept %s %llu\n", census::name(kind),
                    static_cast<long_number>(now.swept));
    }
}

} // namespace

void start(const char *path)
{
    target = path;
}

void write()
{
    if (target == nullptr) return;
    const int file = open(target, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) {
        dprintf(STDERR_FILENO, "keltrace: cannot write %s\n", target);
        return;
    }
    write_calls(file);
    write_faults(file);
    write_census(file);
    close(file);
}

} // namespace report

} // namespace keltrace

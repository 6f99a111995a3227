// SPDX-License-Identifier: MIT
//
// Writing of the report, from counters only: no lock is taken and nothing is allocated.
#include "tools/keltrace/report.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "tools/keltrace/census.h"
#include "tools/keltrace/state.h"

namespace keltrace {

namespace report {

namespace {

constinit const char *target = nullptr;

// How often a fault of the library's own could act, and did.
using counts_of_library = bool(const char *text, std::uint64_t *hits, std::uint64_t *fired);
constinit counts_of_library *library_counts = nullptr;

using long_number = unsigned long long;

// Lines for a file, gathered: with a system call for each the report would cost more than the case.
class lines {
public:
    explicit lines(int file) : destination(file) {}
    lines(const lines &) = delete;
    lines &operator=(const lines &) = delete;
    ~lines() { flush(); }

    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...)
    {
        va_list values;
        va_start(values, format);
        if (!fits(format, values)) {
            flush();
            if (!fits(format, values)) vdprintf(destination, format, values);
        }
        va_end(values);
    }

private:
    [[gnu::format(printf, 2, 0)]] bool fits(const char *format, va_list values)
    {
        va_list copy;
        va_copy(copy, values);
        const std::size_t room = text.size() - used;
        const int length = std::vsnprintf(text.data() + used, room, format, copy);
        va_end(copy);
        if (length < 0 || static_cast<std::size_t>(length) >= room) return false;
        used += static_cast<std::size_t>(length);
        return true;
    }

    void flush()
    {
        const char *next = text.data();
        while (used) {
            const ssize_t written = ::write(destination, next, used);
            if (written <= 0) break;
            next += written;
            used -= static_cast<std::size_t>(written);
        }
        used = 0;
    }

    int destination;
    std::array<char, 4096> text;
    std::size_t used = 0;
};

void write_calls(lines &file)
{
    for (std::size_t i = 0; i < OPERATION_COUNT; ++i) {
        const auto count = call_counts[i].load(std::memory_order_relaxed);
        if (count == 0) continue;
        file.add("calls %s %llu\n", OPERATION_INFO[i].name, static_cast<long_number>(count));
    }
}

void write_faults(lines &file)
{
    if (plan == nullptr) return;
    for (const auto &each : plan->faults) {
        std::uint64_t hits = each.hits.load(std::memory_order_relaxed);
        std::uint64_t fired = each.fired.load(std::memory_order_relaxed);
        if (each.of_library && library_counts != nullptr) {
            library_counts(each.text.c_str(), &hits, &fired);
        }
        file.add("fault %s hits %llu fired %llu\n", each.text.c_str(),
                 static_cast<long_number>(hits), static_cast<long_number>(fired));
    }
}

void write_census(lines &file)
{
    for (int i = 0; i < static_cast<int>(census::kind::count); ++i) {
        const auto kind = static_cast<census::kind>(i);
        const auto now = census::counted(kind);
        if (now.obtained == 0) continue;
        file.add("census %s %llu %llu %llu\n", census::name(kind),
                 static_cast<long_number>(now.obtained), static_cast<long_number>(now.released),
                 static_cast<long_number>(now.left));
        if (now.swept != 0) {
            file.add("swept %s %llu\n", census::name(kind), static_cast<long_number>(now.swept));
        }
    }
}

} // namespace

void start(const char *path)
{
    target = path;
}

void set_library_counts(void *function)
{
    library_counts = reinterpret_cast<counts_of_library *>(function);
}

void write()
{
    if (target == nullptr) return;
    const int file = open(target, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) {
        dprintf(STDERR_FILENO, "keltrace: cannot write %s\n", target);
        return;
    }
    {
        lines report(file);
        write_calls(report);
        write_faults(report);
        write_census(report);
        report.add("end\n");
    }
    close(file);
}

} // namespace report

} // namespace keltrace

// SPDX-License-Identifier: MIT
//
// The table of live objects, and the counts, which are read without it.
#include "tools/keltrace/census.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace keltrace {

namespace census {

namespace {

struct holding {
    kel_client owner = 0;
    std::string call{}; // empty where calls are not kept
};

struct table {
    std::mutex lock;
    std::map<key, holding> held;
    std::vector<std::string> swept{}; // lines about them, where calls are kept
};

struct counters {
    std::atomic<std::uint64_t> obtained{0};
    std::atomic<std::uint64_t> released{0};
    std::atomic<std::uint64_t> swept{0};
};

constinit table *live = nullptr;
constinit int left_descriptor = -1;
constinit std::array<counters, static_cast<std::size_t>(kind::count)> counts{};

counters &of(census::kind kind)
{
    return counts[static_cast<std::size_t>(kind)];
}

void increment(std::atomic<std::uint64_t> &counter)
{
    counter.fetch_add(1, std::memory_order_relaxed);
}

bool is_librarys(census::kind kind)
{
    return kind < kind::memory;
}

// "packet 0x5001 by 12 t1 kel_get_packet(...)"
std::string line_about(const key &which, const holding &what)
{
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), " 0x%llx",
                  static_cast<unsigned long long>(which.number));
    return name(which.kind) + std::string(number.data()) + " by " + what.call;
}

} // namespace

void start()
{
    if (!wanted()) live = new table;
}

bool wanted()
{
    return live != nullptr;
}

void keep_calls(int descriptor)
{
    start();
    left_descriptor = descriptor;
}

bool calls_wanted()
{
    return left_descriptor >= 0;
}

void obtain(const key &which, kel_client owner, std::string_view call)
{
    const std::lock_guard guard(live->lock);
    const bool is_new =
        live->held.insert_or_assign(which, holding{owner, std::string(call)}).second;
    if (is_new) increment(of(which.kind).obtained);
}

void release(const key &which)
{
    const std::lock_guard guard(live->lock);
    if (live->held.erase(which) != 0) increment(of(which.kind).released);
}

void release_scope(census::kind kind, std::uint64_t scope)
{
    const std::lock_guard guard(live->lock);
    auto entry = live->held.lower_bound({kind, scope, 0, 0});
    while (entry != live->held.end() && entry->first.kind == kind && entry->first.scope == scope) {
        entry = live->held.erase(entry);
        increment(of(kind).released);
    }
}

void renumber(const key &which, std::uint64_t number)
{
    if (number == which.number) return;
    if (number == 0) return release(which);
    const std::lock_guard guard(live->lock);
    auto entry = live->held.extract(which);
    if (!entry) return;
    entry.key().number = number;
    if (!live->held.insert(std::move(entry)).inserted) increment(of(which.kind).released);
}

void sweep(kel_client owner)
{
    const std::lock_guard guard(live->lock);
    for (auto entry = live->held.begin(); entry != live->held.end();) {
        if (entry->second.owner != owner || entry->first.kind == kind::client) {
            ++entry;
            continue;
        }
        increment(of(entry->first.kind).swept);
        if (calls_wanted()) live->swept.push_back(line_about(entry->first, entry->second));
        entry = live->held.erase(entry);
    }
}

kel_client owner_of(const key &which)
{
    const std::lock_guard guard(live->lock);
    const auto entry = live->held.find(which);
    return entry == live->held.end() ? 0 : entry->second.owner;
}

const char *name(census::kind kind)
{
    static constexpr const char *NAMES[] = {"client", "packet",      "buffer",    "bufgroup",
                                            "tag",    "dynamic_tag", "tlv",       "event",
                                            "memory", "thread",      "descriptor"};
    static_assert(std::size(NAMES) == static_cast<std::size_t>(kind::count));
    return NAMES[static_cast<std::size_t>(kind)];
}

count counted(census::kind kind)
{
    const auto &counter = of(kind);
    count now{};
    now.obtained = counter.obtained.load(std::memory_order_relaxed);
    now.released = counter.released.load(std::memory_order_relaxed);
    now.swept = counter.swept.load(std::memory_order_relaxed);
    now.left = now.obtained - now.released - now.swept;
    return now;
}

void write_left()
{
    if (!calls_wanted()) return;
    const std::lock_guard guard(live->lock);
    for (const auto &[which, what] : live->held) {
        if (is_librarys(which.kind)) {
            dprintf(left_descriptor, "keltrace: left %s\n", line_about(which, what).c_str());
        }
    }
    for (const std::string &line : live->swept) {
        dprintf(left_descriptor, "keltrace: swept %s\n", line.c_str());
    }
}

} // namespace census

} // namespace keltrace

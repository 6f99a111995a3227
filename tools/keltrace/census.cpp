// SPDX-License-Identifier: MIT
//
// The table of live objects, and the counts, which are read without it.
#include "tools/keltrace/census.h"

#include <array>
#include <atomic>
#include <map>
#include <mutex>

namespace keltrace {

namespace census {

namespace {

struct table {
    std::mutex lock;
    std::map<key, kel_client> owners;
};

struct counters {
    std::atomic<std::uint64_t> obtained{0};
    std::atomic<std::uint64_t> released{0};
    std::atomic<std::uint64_t> swept{0};
};

constinit table *live = nullptr;
constinit std::array<counters, static_cast<std::size_t>(kind::count)> counts{};

counters &of(census::kind kind)
{
    return counts[static_cast<std::size_t>(kind)];
}

void increment(std::atomic<std::uint64_t> &counter)
{
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void start()
{
    live = new table;
}

bool wanted()
{
    return live != nullptr;
}

void obtain(const key &which, kel_client owner)
{
    const std::lock_guard guard(live->lock);
    if (live->owners.insert_or_assign(which, owner).second) increment(of(which.kind).obtained);
}

void release(const key &which)
{
    const std::lock_guard guard(live->lock);
    if (live->owners.erase(which) != 0) increment(of(which.kind).released);
}

void release_scope(census::kind kind, std::uint64_t scope)
{
    const std::lock_guard guard(live->lock);
    auto entry = live->owners.lower_bound({kind, scope, 0, 0});
    while (entry != live->owners.end() && entry->first.kind == kind &&
           entry->first.scope == scope) {
        entry = live->owners.erase(entry);
        increment(of(kind).released);
    }
}

void renumber(const key &which, std::uint64_t number)
{
    if (number == which.number) return;
    if (number == 0) return release(which);
    const std::lock_guard guard(live->lock);
    auto entry = live->owners.extract(which);
    if (!entry) return;
    entry.key().number = number;
    if (!live->owners.insert(std::move(entry)).inserted) increment(of(which.kind).released);
}

void sweep(kel_client owner)
{
    const std::lock_guard guard(live->lock);
    for (auto entry = live->owners.begin(); entry != live->owners.end();) {
        if (entry->second != owner || entry->first.kind == kind::client) {
            ++entry;
            continue;
        }
        increment(of(entry->first.kind).swept);
        entry = live->owners.erase(entry);
    }
}

kel_client owner_of(const key &which)
{
    const std::lock_guard guard(live->lock);
    const auto entry = live->owners.find(which);
    return entry == live->owners.end() ? 0 : entry->second;
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

} // namespace census

} // namespace keltrace

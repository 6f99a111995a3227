// SPDX-License-Identifier: MIT
//
// Where trace lines go.
#include "tools/keltrace/trace.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <unistd.h>

namespace keltrace {

// NOLINTNEXTLINE(cert-dcl50-cpp)
void trace_line::add(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int added = vsnprintf(text_ + length_, CAPACITY - length_, format, arguments);
    va_end(arguments);
    if (added > 0) length_ = std::min(length_ + static_cast<std::size_t>(added), CAPACITY - 1);
}

void trace_line::next_item()
{
    if (!first_item_) add(", ");
    first_item_ = false;
}

void trace_line::open_list(const char *bracket)
{
    add("%s", bracket);
    first_item_ = true;
}

void trace_line::close_list(const char *bracket)
{
    add("%s", bracket);
    first_item_ = true;
}

void trace_line::truncate(std::size_t length)
{
    length_ = std::min(length_, length);
    text_[length_] = 0;
}

std::size_t trace_line::finish(char *room, const char *rest) const
{
    const int length = snprintf(room, ROOM, "%s%s\n", text_, rest);
    return std::min(static_cast<std::size_t>(length), ROOM - 1);
}

namespace trace {

namespace {

constexpr const char *UNRETURNED = " ... not returned";

struct ring_entry {
    std::uint64_t sequence = 0;
    std::size_t length = 0;
    char text[trace_line::ROOM];
};

struct ring {
    std::mutex lock;
    std::unique_ptr<ring_entry[]> entries;
    std::size_t capacity = 0;
    std::uint64_t stored = 0; // calls ever stored; the next goes to this slot
    int descriptor = -1;
};

constinit int file = -1;
constinit ring *last_calls = nullptr;
constinit std::atomic<std::uint64_t> sequences{0};
constinit std::atomic<unsigned> threads{0};

[[gnu::tls_model("initial-exec")]] thread_local unsigned thread_number = 0;
[[gnu::tls_model("initial-exec")]] thread_local trace_line *unreturned = nullptr;

void write_all(int descriptor, const char *text, std::size_t length)
{
    while (length > 0) {
        const ssize_t written = write(descriptor, text, length);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

void write_line(const trace_line &line, const char *rest)
{
    char room[trace_line::ROOM];
    write_all(file, room, line.finish(room, rest));
}

bool may_block(operation which)
{
    using enum operation;
    return which == kel_event_wait || which == system_select || which == system_sleep;
}

void store(const trace_line &line, const char *rest)
{
    const std::lock_guard guard(last_calls->lock);
    auto &entry = last_calls->entries[last_calls->stored++ % last_calls->capacity];
    entry.sequence = line.sequence;
    entry.length = line.finish(entry.text, rest);
}

// Completes the call's entry unless newer calls have taken its place.
void restore(const trace_line &line)
{
    const std::lock_guard guard(last_calls->lock);
    const std::uint64_t oldest =
        last_calls->stored - std::min<std::uint64_t>(last_calls->stored, last_calls->capacity);
    for (std::uint64_t i = last_calls->stored; i > oldest; --i) {
        auto &entry = last_calls->entries[(i - 1) % last_calls->capacity];
        if (entry.sequence != line.sequence) continue;
        entry.length = line.finish(entry.text, "");
        return;
    }
}

} // namespace

void write_to(int descriptor)
{
    file = descriptor;
}

void keep_ring(std::size_t calls, int descriptor)
{
    auto *made = new ring;
    made->entries = std::make_unique<ring_entry[]>(calls);
    made->capacity = calls;
    made->descriptor = descriptor;
    last_calls = made;
}

bool wanted()
{
    return file >= 0 || last_calls != nullptr;
}

void begin(trace_line &line, operation which)
{
    if (thread_number == 0) thread_number = threads.fetch_add(1, std::memory_order_relaxed) + 1;
    line.sequence = sequences.fetch_add(1, std::memory_order_relaxed) + 1;
    line.add("%llu t%u %s", static_cast<unsigned long long>(line.sequence), thread_number,
             info(which).function);
}

void started(trace_line &line, operation which)
{
    unreturned = &line;
    if (file >= 0 && may_block(which)) write_line(line, " ...");
    if (last_calls != nullptr) store(line, UNRETURNED);
}

void returned(trace_line &line)
{
    unreturned = nullptr;
    if (file >= 0) write_line(line, "");
    if (last_calls != nullptr) restore(line);
}

void write_unreturned()
{
    if (file >= 0 && unreturned != nullptr) write_line(*unreturned, UNRETURNED);
}

void write_ring()
{
    if (last_calls == nullptr) return;
    // The thread that was interrupted may hold the lock; then the newest line may be torn.
    const bool locked = last_calls->lock.try_lock();
    const std::uint64_t kept = std::min<std::uint64_t>(last_calls->stored, last_calls->capacity);
    char title[64];
    const int length = snprintf(title, sizeof title, "keltrace: the last %llu of %llu calls\n",
                                static_cast<unsigned long long>(kept),
                                static_cast<unsigned long long>(last_calls->stored));
    write_all(last_calls->descriptor, title, static_cast<std::size_t>(length));
    for (std::uint64_t i = last_calls->stored - kept; i < last_calls->stored; ++i) {
        const auto &entry = last_calls->entries[i % last_calls->capacity];
        write_all(last_calls->descriptor, entry.text, entry.length);
    }
    if (locked) last_calls->lock.unlock();
}

} // namespace trace

} // namespace keltrace

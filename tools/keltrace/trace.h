// SPDX-License-Identifier: MIT
//
// The call trace: one line a call, to a file as the calls return, and to a ring of the last calls
// that is written when the process ends or is ended. A call that never returns is seen as such:
// calls that may block are written when they start, and the others when the process dies in them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/keltrace/operations.h"

namespace keltrace {

// A line of bounded length, built without allocating: the allocator is among what is traced.
class trace_line {
public:
    static constexpr std::size_t CAPACITY = 480;
    static constexpr std::size_t ROOM = CAPACITY + 32;

    trace_line() = default;
    trace_line(const trace_line &) = delete;
    trace_line &operator=(const trace_line &) = delete;

    // NOLINTNEXTLINE(cert-dcl50-cpp): formats are checked, and printf's are the shortest
    [[gnu::format(printf, 2, 3)]] void add(const char *format, ...);
    // Adds what separates it from the item before it.
    void next_item();
    void open_list(const char *bracket);
    void close_list(const char *bracket);
    void truncate(std::size_t length);

    std::size_t length() const { return length_; }
    const char *text() const { return text_; }
    // Writes the text, the rest of the line and a newline into ROOM bytes; returns their number.
    std::size_t finish(char *room, const char *rest) const;

    std::uint64_t sequence = 0;

private:
    char text_[CAPACITY] = "";
    std::size_t length_ = 0;
    bool first_item_ = true;
};

namespace trace {

// Where lines go, as the calls return.
void write_to(int descriptor);
void keep_ring(std::size_t calls, int descriptor);

bool wanted();

// The line of a call that starts: its number, its thread and its name.
void begin(trace_line &line, operation which);
// The arguments are complete and the call is about to be made.
void started(trace_line &line, operation which);
// The call has returned and the line is complete.
void returned(trace_line &line);

// In a signal handler: the calling thread's call that has not returned, and the ring.
void write_unreturned();
void write_ring();

} // namespace trace

} // namespace keltrace

// SPDX-License-Identifier: MIT
//
// A descriptor for the caller's own select: readable while packets are signalled, with an
// exceptional condition while an event is pending, each set and cleared on its own. A
// connected pair of loopback TCP sockets does this: its low-water mark makes it readable, an
// out-of-band byte raises the exceptional condition.
#pragma once

#include <utility>

namespace kel_reference {

// A descriptor that is closed with its owner.
class unique_descriptor {
public:
    unique_descriptor() = default;
    explicit unique_descriptor(int owned) : descriptor(owned) {}
    unique_descriptor(unique_descriptor &&moved) noexcept
        : descriptor(std::exchange(moved.descriptor, -1))
    {
    }
    unique_descriptor &operator=(unique_descriptor &&moved) noexcept
    {
        std::swap(descriptor, moved.descriptor);
        return *this;
    }
    ~unique_descriptor();

    int get() const { return descriptor; }
    bool is_open() const { return descriptor >= 0; }

private:
    int descriptor = -1;
};

// Two loopback TCP sockets, connected with each other: the client's and the library's.
struct socket_pair {
    unique_descriptor client_end;
    unique_descriptor library_end;

    // False when the system grants no descriptors.
    bool open();
};

// The conditions of a client's descriptor. Those set before a pair is attached show from then on.
class signal_descriptor {
public:
    // What the client selects on; -1 before attach.
    int descriptor() const { return ends.client_end.get(); }
    bool is_open() const { return ends.client_end.is_open(); }

    // Shows the conditions on the pair from now on. To be called once.
    void attach(socket_pair pair);

    // Both do nothing when the condition already is as asked; then they cost no system call.
    // When they return, a select without time-out sees the change.
    void set_readable(bool readable);
    void set_exceptional(bool exceptional);

private:
    socket_pair ends;
    bool is_readable = false;
    bool is_exceptional = false;
    int spent_urgent_bytes = 0; // that stand in the client end's queue

    void show_readable();
    void show_exceptional();
    void send_to_client_end(int flags);
    void drop_spent_bytes();
};

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// KELd, the thread that signals deferred packets when their receiver's signal interval has
// passed. It lives from the first client to the last, and sleeps until a flush is due.
#pragma once

#include <pthread.h>

#include <memory>

#include "reference/state.h"

namespace kel_reference {

class flush_daemon {
public:
    // Throws std::system_error when the system grants no thread.
    flush_daemon();
    flush_daemon(const flush_daemon &) = delete;
    flush_daemon &operator=(const flush_daemon &) = delete;
    // Waits for the thread to end: must not be called with the library's lock held.
    ~flush_daemon();

    // The following are called with the lock held.

    // Makes the thread look for flushes not later than `time`.
    void wake_by(clock::time_point time);

    void retire();

private:
    void run();

    std::condition_variable wake;
    clock::time_point wakes_at = clock::time_point::max();
    bool is_retired = false;
    pthread_t thread;
};

// All of these are called with the library's lock held.

// False when the system grants no thread. Does nothing while one runs.
bool start_daemon();

// Takes the daemon out of service, for the caller to destroy after releasing the lock.
std::unique_ptr<flush_daemon> retire_daemon();

// Has the client signalled an interval from now, instead of from the last time it was asked.
void defer_signal(state &library, client_object &client);

// The client's signal interval has changed.
void reschedule_flush(const client_object &client);

void cancel_flush(state &library, client_object &client);

} // namespace kel_reference

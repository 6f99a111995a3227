// SPDX-License-Identifier: MIT
//
// KELd, the thread that signals deferred packets when their receiver's signal interval has
// passed. It lives from the first client to the last, and sleeps until a flush is due.
#pragma once

#include <pthread.h>

#include <memory>

#include "reference/state.h"

namespace kel_reference {

// Does what is due, and returns when it wants to be called next.
using flush_function = clock::time_point(state &);

class flush_daemon {
public:
    // Throws std::system_error when the system grants no thread.
    explicit flush_daemon(flush_function *carried_out);
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

    flush_function *flush;
    std::condition_variable wake;
    clock::time_point wakes_at = clock::time_point::max();
    bool is_retired = false;
    pthread_t thread;
};

// All of these are called with the library's lock held.

// False when the system grants no thread. Does nothing while one runs.
bool start_daemon(flush_function *flush);

// Takes the daemon out of service, for the caller to destroy after releasing the lock.
std::unique_ptr<flush_daemon> retire_daemon();

// Has the flush looked after not later than `time`.
void wake_daemon_by(clock::time_point time);

} // namespace kel_reference

// SPDX-License-Identifier: MIT
//
// The daemon's thread, its start and its end.

#include "reference/daemon.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <system_error>

namespace kel_reference {

namespace {

constexpr clock::time_point NEVER = clock::time_point::max();

// Reachable for ever, so that leaving the process with clients registered is no leak.
std::unique_ptr<flush_daemon> &current_daemon()
{
    static auto &current = *new std::unique_ptr<flush_daemon>;
    return current;
}

// A flush has to be in time on a busy machine, too. Where no priority is granted the daemon
// does without.
void raise_priority()
{
    sched_param lowest{};
    lowest.sched_priority = sched_get_priority_min(SCHED_RR);
    if (pthread_setschedparam(pthread_self(), SCHED_RR, &lowest) != 0) {
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), -20);
    }
}

// While it lives, no signal is delivered to this thread and those it starts.
class signals_blocked {
public:
    signals_blocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    signals_blocked(const signals_blocked &) = delete;
    signals_blocked &operator=(const signals_blocked &) = delete;
    ~signals_blocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }

private:
    sigset_t previous;
};

// A thread must not be running when static objects are gone. When the lock is taken, the
// process is being left from within the library and nobody may wait here.
struct daemon_end {
    ~daemon_end()
    {
        std::unique_ptr<flush_daemon> retired;
        std::unique_lock guard(library().lock, std::try_to_lock);
        if (guard.owns_lock()) retired = retire_daemon();
        if (guard.owns_lock()) guard.unlock();
    }
};

} // namespace

flush_daemon::flush_daemon(flush_function *carried_out) : flush(carried_out)
{
    // Not a std::thread: that gives back memory in the new thread, for which the C library sets
    // up a heap there first.
    const auto run_daemon = [](void *daemon) -> void * {
        static_cast<flush_daemon *>(daemon)->run();
        return nullptr;
    };
    const signals_blocked for_the_thread;
    const int error = pthread_create(&thread, nullptr, run_daemon, this);
    if (error) throw std::system_error(error, std::generic_category());
}

flush_daemon::~flush_daemon()
{
    pthread_join(thread, nullptr);
}

void flush_daemon::run()
{
    pthread_setname_np(pthread_self(), "KELd");
    raise_priority();
    locked_state library;
    while (!is_retired) {
        // A time of its own: the wait goes on reading it without the lock.
        const clock::time_point next_flush = flush(*library);
        wakes_at = next_flush;
        if (next_flush == NEVER) {
            wake.wait(library.lock());
        } else {
            wake.wait_until(library.lock(), next_flush);
        }
    }
}

void flush_daemon::wake_by(clock::time_point time)
{
    if (time >= wakes_at) return;
    wakes_at = time;
    wake.notify_one();
}

void flush_daemon::retire()
{
    is_retired = true;
    wake.notify_one();
}

bool start_daemon(flush_function *flush)
{
    if (current_daemon()) return true;
    static const daemon_end at_exit;
    try {
        current_daemon() = std::make_unique<flush_daemon>(flush);
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

std::unique_ptr<flush_daemon> retire_daemon()
{
    if (current_daemon()) current_daemon()->retire();
    return std::move(current_daemon());
}

void wake_daemon_by(clock::time_point time)
{
    if (current_daemon()) current_daemon()->wake_by(time);
}

} // namespace kel_reference

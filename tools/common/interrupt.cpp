// SPDX-License-Identifier: MIT
#include "tools/common/interrupt.h"

#include <atomic>
#include <csignal>
#include <cstdlib>

namespace tools {

namespace {

std::atomic<int> requests{0};
std::atomic<int> first_signal{0};
static_assert(std::atomic<int>::is_always_lock_free);

void on_signal(int signal)
{
    int none = 0;
    first_signal.compare_exchange_strong(none, signal);
    requests += signal == SIGINT ? 1 : 2;
}

} // namespace

void catch_interrupts()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            action.sa_handler = on_signal;
            action.sa_flags = SA_RESTART;
            sigaction(signal, &action, nullptr);
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
}

stop asked_to_stop()
{
    const int count = requests;
    return count == 0 ? stop::no : count == 1 ? stop::soon : stop::now;
}

void end_by_interrupt()
{
    const int signal = first_signal;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::_Exit(128 + signal);
}

} // namespace tools

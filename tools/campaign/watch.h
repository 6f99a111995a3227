// SPDX-License-Identifier: MIT
//
// Tells a run that never ends from one that the machine holds up, by what the kernel says of its
// threads. Time alone cannot tell: on a busy machine a right run takes as long as it takes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>

namespace campaign {

class run_watch {
public:
    // `limit` is the longest that a run may take, without the time in which it had to wait for a
    // processor. `waits` is called once, as soon as the run waits instead of computing.
    run_watch(std::chrono::milliseconds limit, std::function<void()> waits);

    // Whether the run is a hang by now; to be asked again and again while it lasts.
    //  - It stands still: for a tenth of the limit no thread has run, and all of them wait for
    //    another without a time limit of their own.
    //  - It goes round: it has computed for a fortieth of the limit, less the time in which a
    //  thread
    //    that has hardly computed had to wait for a processor.
    //  - The limit has passed.
    bool is_hang(pid_t process);

private:
    struct thread_state {
        bool runs = false;
        bool waits_for_ever = false;
        std::chrono::nanoseconds computed{};
        std::chrono::nanoseconds held_up{}; // ready to run, without a processor
        unsigned long turns = 0;            // on a processor
        bool operator==(const thread_state &) const = default;
    };
    using state = std::map<pid_t, thread_state>;

    static state state_of(pid_t process);
    static bool may_move(const state &seen);
    bool stands_still(const state &now, std::chrono::steady_clock::time_point moment);
    bool goes_round(const state &now) const;
    void tell_waiting(const state &now);

    std::chrono::nanoseconds limit;
    std::function<void()> waits;
    std::chrono::steady_clock::time_point started;
    std::chrono::steady_clock::time_point looked;
    std::chrono::steady_clock::time_point still_since;
    std::chrono::nanoseconds held_up{}; // the longest that a thread of it was
    state last{};
};

} // namespace campaign

// SPDX-License-Identifier: MIT
//
// Tells a process that hangs from one that the machine holds up, by what the kernel says of its
// threads. Time alone cannot tell: on a busy machine a right call takes as long as it takes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>

namespace tools {

// Whether a thread of the process may go on by itself: it runs, waits for a processor or a disk,
// or is stopped. A thread that sleeps may not. The thread `except` is left out.
bool may_go_on(pid_t process, pid_t except = 0);

// The processor time of all threads of the process.
std::chrono::nanoseconds used_time(pid_t process);

// The other threads of this process, from now on.
class other_threads {
public:
    other_threads();
    // Whether one of them may go on, unless they compute all the time.
    bool are_busy() const;

private:
    static std::chrono::nanoseconds used();

    std::chrono::nanoseconds used_;
};

// Of one call, or of whatever is to come to an end. Not to be used by two threads at a time.
class hang_watch {
public:
    // `limit`: how long the call may sleep, and how long it may compute.
    explicit hang_watch(std::chrono::milliseconds limit);

    // Whether the process hangs by now; to be asked often while the call lasts. Looks at its
    // threads have found all asleep for `limit` longer than not, or it has computed for `limit`.
    bool is_hang(pid_t process);

private:
    std::chrono::milliseconds limit_;
    std::chrono::steady_clock::time_point looked_;
    std::chrono::nanoseconds asleep_{};
    std::optional<std::chrono::nanoseconds> used_{}; // at the first look
};

} // namespace tools

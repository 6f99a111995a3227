// SPDX-License-Identifier: MIT
//
// Reading /proc/PID/task.
#include "tools/campaign/watch.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>

namespace campaign {

namespace {

using steady = std::chrono::steady_clock;

// No look sooner after the last one: at first, and once the run has lasted for a while.
constexpr std::chrono::milliseconds PACE{15};
constexpr std::chrono::milliseconds LATER_PACE{90};
constexpr std::chrono::milliseconds A_WHILE{200};

// A thread that computes for less between two looks waits for something.
constexpr std::chrono::milliseconds HARDLY_ANY{1};

// Of all waiting runs together this is read some thousand times a second.
std::string text_of(const std::string &path)
{
    std::array<char, 512> text{};
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t size = file < 0 ? 0 : read(file, text.data(), text.size());
    if (file >= 0) {
        close(file);
    }
    return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

// The letter behind the name, which may hold blanks and brackets.
char state_letter(const std::string &stat)
{
    const std::size_t bracket = stat.rfind(')');
    return bracket == std::string::npos || bracket + 2 >= stat.size() ? '?' : stat[bracket + 2];
}

// "<number of the call> <six arguments> ..." of a thread that sleeps in a call: whether that waits
// for another thread and has no time limit.
bool is_wait_without_limit(const std::string &call)
{
    std::istringstream words(call);
    long number = -1;
    std::array<std::uint64_t, 6> arguments{};
    words >> number >> std::hex;
    for (std::uint64_t &argument : arguments) {
        std::string word;
        words >> word;
        argument = word.empty() ? 1 : std::strtoull(word.c_str(), nullptr, 16);
    }
    switch (number) {
    case SYS_futex: {
        const auto operation = static_cast<int>(arguments[1]) & FUTEX_CMD_MASK;
        return (operation == FUTEX_WAIT || operation == FUTEX_WAIT_BITSET) && arguments[3] == 0;
    }
#ifdef SYS_select
    case SYS_select:
#endif
    case SYS_pselect6:
        return arguments[4] == 0;
#ifdef SYS_poll
    case SYS_poll:
        return static_cast<std::int32_t>(arguments[2]) < 0;
#endif
    case SYS_ppoll:
        return arguments[2] == 0;
    default:
        return false;
    }
}

} // namespace

run_watch::run_watch(std::chrono::milliseconds longest, std::function<void()> when_it_waits)
    : limit(longest), waits(std::move(when_it_waits)), started(steady::now()), looked(started),
      still_since(started)
{
}

run_watch::state run_watch::state_of(pid_t process)
{
    state seen;
    std::error_code none;
    const std::filesystem::path tasks = "/proc/" + std::to_string(process) + "/task";
    for (const auto &entry : std::filesystem::directory_iterator(tasks, none)) {
        const std::string folder = entry.path().string() + "/";
        thread_state thread;
        std::uint64_t computed = 0;
        std::uint64_t held_up = 0;
        std::istringstream(text_of(folder + "schedstat")) >> computed >> held_up >> thread.turns;
        thread.computed = std::chrono::nanoseconds(computed);
        thread.held_up = std::chrono::nanoseconds(held_up);
        const char letter = state_letter(text_of(folder + "stat"));
        thread.runs = letter == 'R';
        thread.waits_for_ever = letter == 'S' && is_wait_without_limit(text_of(folder + "syscall"));
        seen.emplace(std::stoi(entry.path().filename()), thread);
    }
    return seen;
}

// Whether anything could happen in it by itself.
bool run_watch::may_move(const state &seen)
{
    return seen.empty() || !std::all_of(seen.begin(), seen.end(), [](const auto &thread) {
               return thread.second.waits_for_ever;
           });
}

// The same turns at both ends of a time say that no thread has run in it.
bool run_watch::stands_still(const state &now, steady::time_point moment)
{
    if (may_move(now) || now != last) {
        still_since = moment;
    }
    return moment - still_since >= limit / 10;
}

// One thread may ask again and again for what another would do, had it a processor. That other one
// has hardly computed.
bool run_watch::goes_round(const state &now) const
{
    std::chrono::nanoseconds computed{};
    for (const auto &[id, thread] : now) {
        computed += thread.computed;
        if (thread.computed < limit / 400) {
            computed -= thread.held_up;
        }
    }
    return computed > limit / 40;
}

void run_watch::tell_waiting(const state &now)
{
    std::chrono::nanoseconds computed{};
    for (const auto &[id, thread] : now) {
        const auto before = last.find(id);
        computed += thread.computed -
                    (before == last.end() ? std::chrono::nanoseconds{} : before->second.computed);
        if (thread.runs) {
            return;
        }
    }
    if (waits && !last.empty() && computed < HARDLY_ANY) {
        std::exchange(waits, {})();
    }
}

bool run_watch::is_hang(pid_t process)
{
    const steady::time_point now = steady::now();
    if (now - looked < (now - started < A_WHILE ? PACE : LATER_PACE)) {
        return false;
    }
    looked = now;
    state seen = state_of(process);
    for (const auto &[id, thread] : seen) {
        held_up = std::max(held_up, thread.held_up);
    }
    tell_waiting(seen);
    const bool ended =
        stands_still(seen, now) || goes_round(seen) || now - started - held_up >= limit;
    last = std::move(seen);
    return ended;
}

} // namespace campaign

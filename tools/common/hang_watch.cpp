// SPDX-License-Identifier: MIT
#include "tools/common/hang_watch.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace tools {

namespace {

using steady = std::chrono::steady_clock;

// In the limit there are no more looks than MOST, and no hang is told by fewer than LEAST.
constexpr int MOST = 16;
constexpr int LEAST = 4;

// The letter after the name, which may hold blanks and brackets.
char state_of(const std::filesystem::path &thread)
{
    std::ifstream file(thread / "stat");
    std::string text;
    std::getline(file, text);
    const std::size_t bracket = text.rfind(')');
    return bracket == std::string::npos || bracket + 2 >= text.size() ? 'X' : text[bracket + 2];
}

std::chrono::nanoseconds time_of(clockid_t clock)
{
    timespec used{};
    clock_gettime(clock, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

} // namespace

bool may_go_on(pid_t process, pid_t except)
{
    constexpr std::string_view ASLEEP_OR_GONE = "SIZX";
    const std::string left_out = std::to_string(except);
    std::error_code gone;
    const std::filesystem::directory_iterator threads("/proc/" + std::to_string(process) + "/task",
                                                      gone);
    return std::ranges::any_of(threads, [&](const auto &each) {
        return each.path().filename() != left_out &&
               ASLEEP_OR_GONE.find(state_of(each.path())) == std::string_view::npos;
    });
}

std::chrono::nanoseconds used_time(pid_t process)
{
    clockid_t clock{};
    return clock_getcpuclockid(process, &clock) == 0 ? time_of(clock) : std::chrono::nanoseconds{0};
}

other_threads::other_threads() : used_(used()) {}

bool other_threads::are_busy() const
{
    constexpr std::chrono::milliseconds ALL_THE_TIME{100};
    return used() - used_ < ALL_THE_TIME && may_go_on(getpid(), gettid());
}

std::chrono::nanoseconds other_threads::used()
{
    return time_of(CLOCK_PROCESS_CPUTIME_ID) - time_of(CLOCK_THREAD_CPUTIME_ID);
}

hang_watch::hang_watch(std::chrono::milliseconds limit) : limit_(limit), looked_(steady::now()) {}

bool hang_watch::is_hang(pid_t process)
{
    const auto now = steady::now();
    if (now - looked_ < limit_ / MOST) return false;
    const auto passed =
        std::min<std::chrono::nanoseconds>(now - std::exchange(looked_, now), limit_ / LEAST);
    const auto used = used_time(process);
    if (!used_) used_ = used;
    asleep_ = may_go_on(process) ? std::max(asleep_ - passed, passed.zero()) : asleep_ + passed;
    return asleep_ >= limit_ || used - *used_ >= limit_;
}

} // namespace tools

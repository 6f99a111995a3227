// SPDX-License-Identifier: MIT
//
// A process that sleeps or computes without end hangs; one that does not get to run does not.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "tools/common/hang_watch.h"

namespace {

using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

class process {
public:
    explicit process(void (*work)()) : id(fork())
    {
        if (id != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        work();
        _exit(0);
    }
    ~process()
    {
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }
    process(const process &) = delete;
    process &operator=(const process &) = delete;

    const pid_t id;
};

// Whether it is said to hang within that time.
bool hangs(const process &watched, std::chrono::milliseconds limit, std::chrono::milliseconds time)
{
    tools::hang_watch watch(limit);
    const auto end = steady::now() + time;
    while (steady::now() < end) {
        if (watch.is_hang(watched.id)) return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

void sleep_for_ever()
{
    while (true) pause();
}

void compute_for_ever()
{
    for (volatile unsigned turn = 0;;) turn = turn + 1;
}

TEST(hang_watch, tells_sleep_without_end)
{
    EXPECT_TRUE(hangs(process(sleep_for_ever), 50ms, 60s));
}

TEST(hang_watch, tells_computing_without_end)
{
    EXPECT_TRUE(hangs(process(compute_for_ever), 50ms, 60s));
}

// As one that waits for a processor, for longer than it may sleep.
TEST(hang_watch, waits_for_what_is_held_up)
{
    const process held_up(compute_for_ever);
    kill(held_up.id, SIGSTOP);
    waitpid(held_up.id, nullptr, WUNTRACED);
    EXPECT_TRUE(tools::may_go_on(held_up.id));
    EXPECT_FALSE(hangs(held_up, 50ms, 300ms));
}

TEST(hang_watch, allows_the_limit)
{
    EXPECT_FALSE(hangs(process(sleep_for_ever), 60s, 200ms));
}

TEST(other_threads, are_busy_until_they_sleep)
{
    const tools::other_threads others;
    EXPECT_FALSE(others.are_busy());
    const std::jthread computes([](const std::stop_token &asked) {
        while (!asked.stop_requested()) continue;
    });
    const tools::other_threads now;
    EXPECT_TRUE(now.are_busy());
    while (now.are_busy()) continue; // that they compute all the time is no reason to wait
}

} // namespace

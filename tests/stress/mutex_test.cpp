// SPDX-License-Identifier: MIT
//
// The library's lock: it lets one in at a time, and whoever waits is woken. A wake-up that gets
// lost shows as a test that does not end.

#include "reference/mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using kel_reference::mutex;

class mutex_test : public testing::TestWithParam<mutex::barriers> {
protected:
    mutex lock{GetParam()};
};

void run_together(unsigned threads, const auto &work)
{
    std::vector<std::jthread> running;
    running.reserve(threads);
    for (unsigned index = 0; index < threads; index++) running.emplace_back(work, index);
}

TEST_P(mutex_test, is_taken_once)
{
    lock.lock();
    EXPECT_FALSE(lock.try_lock());
    lock.unlock();
    EXPECT_TRUE(lock.try_lock());
    lock.unlock();
}

TEST_P(mutex_test, lets_one_in_at_a_time)
{
    constexpr unsigned THREADS = 4;
    constexpr std::uint64_t ROUNDS = 100'000;
    std::uint64_t count = 0;
    run_together(THREADS, [&](unsigned) {
        for (std::uint64_t round = 0; round < ROUNDS; round++) {
            const std::lock_guard guard(lock);
            count++;
        }
    });
    EXPECT_EQ(count, THREADS * ROUNDS);
}

// Who holds it gives the others time to fall asleep, and all of them must come to their turns.
TEST_P(mutex_test, wakes_who_sleeps)
{
    constexpr unsigned THREADS = 4;
    constexpr int ROUNDS = 100;
    std::vector<int> turns(THREADS);
    run_together(THREADS, [&](unsigned index) {
        for (int round = 0; round < ROUNDS; round++) {
            const std::lock_guard guard(lock);
            turns[index]++;
            if (round % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    EXPECT_EQ(turns, std::vector<int>(THREADS, ROUNDS));
}

// Two threads hand a turn to and fro; each waits for the other's.
TEST_P(mutex_test, serves_condition_variables)
{
    constexpr int TURNS = 2'000;
    std::condition_variable_any changed;
    int turn = 0;
    run_together(2, [&](unsigned index) {
        const int mine = static_cast<int>(index);
        std::unique_lock guard(lock);
        while (turn < TURNS) {
            changed.wait(guard, [&] { return turn % 2 == mine || turn >= TURNS; });
            turn++;
            changed.notify_one();
        }
    });
    EXPECT_GE(turn, TURNS);
}

INSTANTIATE_TEST_SUITE_P(both, mutex_test,
                         testing::Values(mutex::barriers::by_waiters, mutex::barriers::by_releases),
                         [](const auto &which) {
                             return which.param == mutex::barriers::by_waiters
                                        ? "barriers_by_waiters"
                                        : "barriers_by_releases";
                         });

} // namespace

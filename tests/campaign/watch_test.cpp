// SPDX-License-Identifier: MIT
//
// Which runs are taken for hangs, and when.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include "tools/campaign/experiment.h"

namespace {

using namespace std::chrono_literals;

campaign::setting limited_to(std::chrono::milliseconds limit)
{
    campaign::setting where;
    where.tavor = TAVOR_BINARY;
    where.shim = KELTRACE_LIBRARY;
    where.timeout = limit;
    return where;
}

// While it lives, four loops compete for the processors.
class busy_machine {
public:
    busy_machine()
    {
        for (pid_t &loop : loops) {
            loop = fork();
            if (loop == 0) {
                std::atomic<unsigned> turns{0};
                for (;;) {
                    turns++;
                }
            }
        }
    }
    busy_machine(const busy_machine &) = delete;
    busy_machine &operator=(const busy_machine &) = delete;
    ~busy_machine()
    {
        for (const pid_t loop : loops) {
            kill(loop, SIGKILL);
            waitpid(loop, nullptr, 0);
        }
    }

private:
    std::array<pid_t, 4> loops{};
};

constexpr std::chrono::milliseconds VERY_LONG = 10min;

TEST(watch, tells_what_stands_still)
{
    // Its tenth is what has to pass.
    for (const std::string test :
         {"kel_event_wait_registered_tag", "kel_event_wait_registered_tag_via_select"}) {
        const auto seen = observe(limited_to(10s), {test, "event_add#1:lost"});
        EXPECT_TRUE(seen.timed_out) << test;
        EXPECT_GE(seen.wall_time, 1s) << test;
        EXPECT_LT(seen.wall_time, 10s) << test;
    }
}

TEST(watch, tells_what_goes_round)
{
    // In the second both threads do.
    for (const std::string fault : {"send#1+:error=EIO", "select#1+:result=0"}) {
        const auto seen = observe(limited_to(8s), {"kel_sendrecv_jumbo_mix", fault});
        EXPECT_TRUE(seen.timed_out) << fault;
    }
}

TEST(watch, tells_what_waits_and_looks_again_by_the_limit)
{
    const auto seen = observe(limited_to(1s), {"kel_event_wait_tag_event", "send#1:lost"});
    EXPECT_TRUE(seen.timed_out);
    EXPECT_GE(seen.wall_time, 1s);
}

TEST(watch, lets_waits_with_a_limit_pass)
{
    // A second, of which its tenth is exceeded twice.
    const auto seen = observe(limited_to(5s), {"kel_event_wait_timeout", "recv#4:lost"});
    EXPECT_FALSE(seen.timed_out);
    EXPECT_EQ(seen.judged, campaign::verdict::fail);
}

TEST(watch, takes_no_run_for_a_hang_that_a_busy_machine_holds_up)
{
    const busy_machine loops;
    // The first spins in one thread while another waits for its processor; the limits are 2 s
    // without a processor's time, 50 ms of computing.
    for (int run = 0; run < 10; run++) {
        for (const std::string test : {"kel_sendrecv_select_test", "kel_sendrecv_jumbo_mix",
                                       "kel_event_wait_tag_event", "kel_pkt_stress_alloc"}) {
            const auto seen = observe(limited_to(2s), {test, "nocrash_set#1:nothing"});
            EXPECT_FALSE(seen.timed_out) << test << " after " << seen.wall_time.count() << " us";
            EXPECT_EQ(seen.judged, campaign::verdict::pass) << test;
        }
    }
}

TEST(watch, says_when_a_run_waits)
{
    int told = 0;
    observe(limited_to(VERY_LONG), {"kel_event_wait_timeout", ""}, [&] { told++; });
    EXPECT_EQ(told, 1);
}

} // namespace

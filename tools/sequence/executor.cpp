// SPDX-License-Identifier: MIT
#include "tools/sequence/executor.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "tools/common/hang_watch.h"

namespace sequence {

namespace {

// A call in the making.
struct pending {
    std::size_t index = 0;
    call made{};
    laid_out_arguments arguments{};
    raw_arguments room{};
    std::uint64_t result = 0;
};

void make(const library &tested, pending &one)
{
    one.result = tested.call(one.made.operation, one.arguments.raw());
}

// A thread of the sequence's own, for the calls after the first thread's.
class helper {
public:
    explicit helper(const library &tested) : thread_([this, &tested] { run(tested); }) {}
    ~helper()
    {
        {
            const std::lock_guard guard(lock_);
            ended_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    helper(const helper &) = delete;
    helper &operator=(const helper &) = delete;

    void begin(pending &one)
    {
        {
            const std::lock_guard guard(lock_);
            current_ = &one;
        }
        changed_.notify_all();
    }

    void wait_for_end()
    {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return current_ == nullptr; });
    }

    // Until the call has returned, or waits for something and no other thread can end the wait; not
    // for ever, if one of them computes without end.
    void wait_for_sleep()
    {
        const tools::other_threads others;
        const auto returned = [this] { return current_ == nullptr; };
        do {
            std::unique_lock guard(lock_);
            if (changed_.wait_for(guard, std::chrono::microseconds(500), returned)) return;
        } while (others.are_busy());
    }

private:
    void run(const library &tested)
    {
        std::unique_lock guard(lock_);
        while (true) {
            changed_.wait(guard, [this] { return ended_ || current_ != nullptr; });
            if (current_ == nullptr) return;
            pending &one = *current_;
            guard.unlock();
            make(tested, one);
            guard.lock();
            current_ = nullptr;
            changed_.notify_all();
        }
    }

    std::mutex lock_;
    std::condition_variable changed_;
    pending *current_ = nullptr;
    bool ended_ = false;
    std::thread thread_;
};

class run {
public:
    run(const library &tested, const call_sequence &made) : tested_(tested), made_(made)
    {
        // A first thread whose calls last while others begin needs one of its own, too.
        for (const step &each : made.steps) {
            if (each.phase == phase::begin) overlapping_ = true;
        }
    }

    void begin(std::size_t index, bool is_whole)
    {
        pending &one = pending_[made_.calls[index].thread];
        one.index = index;
        one.made = made_.calls[index];
        one.arguments.lay_out(one.made, known_);
        one.room = counts_before(schema_of(one.made.operation), one.arguments.raw(), true);
        if (one.made.thread == 1 && !overlapping_) {
            make(tested_, one);
            return;
        }
        helper &thread = thread_of(one.made.thread);
        thread.begin(one);
        if (!is_whole) thread.wait_for_sleep();
    }

    answer end(std::size_t index)
    {
        pending &one = pending_[made_.calls[index].thread];
        if (one.made.thread != 1 || overlapping_) thread_of(one.made.thread).wait_for_end();
        return read_answer(one.made, one.result, one.arguments.raw(), one.room, known_, {});
    }

private:
    helper &thread_of(std::uint16_t number)
    {
        std::unique_ptr<helper> &thread = helpers_[number];
        if (!thread) thread = std::make_unique<helper>(tested_);
        return *thread;
    }

    const library &tested_;
    const call_sequence &made_;
    bindings known_;
    bool overlapping_ = false;
    std::map<std::uint16_t, pending> pending_;
    std::map<std::uint16_t, std::unique_ptr<helper>> helpers_;
};

} // namespace

void execute(const library &tested, const call_sequence &made, std::size_t end,
             const std::function<void(std::size_t call, answer &&)> &answered)
{
    run now(tested, made);
    std::set<std::uint32_t> open;
    for (const step &each : made.steps) {
        if (each.call >= end) continue;
        if (each.phase != phase::end) now.begin(each.call, each.phase == phase::whole);
        if (each.phase != phase::begin) answered(each.call, now.end(each.call));
        if (each.phase == phase::begin) open.insert(each.call);
        if (each.phase == phase::end) open.erase(each.call);
    }
    // What did not return when it was recorded may return here; the last one is asked first, since
    // others may wait for calls behind the end.
    for (auto each = open.rbegin(); each != open.rend(); ++each) answered(*each, now.end(*each));
}

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// The pool of jobs.
#include "tools/campaign/campaign.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <iostream>
#include <mutex>
#include <optional>
#include <thread>

#include "tools/campaign/pool.h"
#include "tools/common/interrupt.h"
#include "tools/common/process.h"
#include "tools/common/unique_fd.h"

namespace campaign {

namespace {

outcome judge(const task &done, const observation &seen)
{
    if (done.must_be_green) {
        const bool green = (seen.judged == verdict::pass || seen.judged == verdict::ignore) &&
                           seen.signal == 0 && !seen.timed_out;
        if (!green) {
            return outcome::stray_message;
        }
        return leaves_something(done.what.test, seen) ? outcome::leak : outcome::caught;
    }
    if (done.must_be_missed) {
        const bool missed = seen.judged == verdict::pass && seen.fault_was_hit;
        return missed ? outcome::caught : outcome::stray_message;
    }
    const outcome reached = done.expected ? judge_pair(*done.expected, seen)
                                          : judge_any(done.what.test, *done.pairs_of_case, seen);
    if (reached == outcome::leak && fault_keeps_objects(done.what)) {
        return seen.judged == verdict::fail ? outcome::caught : outcome::missed;
    }
    return reached;
}

std::string detail_of(const observation &seen)
{
    std::string detail;
    const auto add = [&](const std::string &text) {
        detail += detail.empty() ? text : ", " + text;
    };
    if (seen.timed_out) {
        add("timed out");
    } else if (seen.signal != 0) {
        add(tools::signal_name(seen.signal));
    } else if (seen.exit_status != 0) {
        add("exit status " + std::to_string(seen.exit_status));
    }
    for (const std::string &left : seen.left) {
        add("left " + left);
    }
    if (!seen.errors.empty()) {
        add("said " + seen.errors.substr(0, seen.errors.find('\n')));
    }
    return detail;
}

// What is known of a result before the run.
result described(const setting &where, const task &done)
{
    result made;
    made.id = done.id;
    made.test = done.what.test;
    made.faults = done.what.faults;
    if (done.expected) {
        made.expected = done.expected->message;
        made.place = done.expected->place();
    }
    made.repeat = repeat_line(where, done.what);
    return made;
}

result run_one(const setting &where, const task &done, const std::function<void()> &waits)
{
    const observation seen = observe(where, done.what, waits);
    result made = described(where, done);
    made.reached = judge(done, seen);
    made.shown = seen.message;
    made.detail = detail_of(seen);
    made.microseconds = seen.wall_time.count();
    return made;
}

// Held by one of the processes that run this tavor on the machine.
class machine_lock {
public:
    explicit machine_lock(const std::string &tavor) : fd(open(tavor.c_str(), O_RDONLY | O_CLOEXEC))
    {
        while (fd.get() >= 0 && flock(fd.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            if (tools::asked_to_stop() != tools::stop::no) {
                throw tools::interrupted{};
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

private:
    tools::unique_fd fd;
};

class progress {
public:
    progress(std::size_t all, bool shown) : total(all), visible(shown) {}

    void step(const result &done)
    {
        const std::size_t now = ++finished;
        if (visible) {
            std::cerr << '\r' << now << '/' << total << ' ' << done.test << "\033[K"
                      << (now == total ? "\n" : "") << std::flush;
        }
    }

private:
    std::atomic<std::size_t> finished{0};
    std::size_t total;
    bool visible;
};

} // namespace

result restored(const setting &where, const task &done, const result &recorded)
{
    result made = described(where, done);
    made.reached = recorded.reached;
    made.shown = recorded.shown;
    made.detail = recorded.detail;
    made.microseconds = recorded.microseconds;
    return made;
}

void explain(result &judged, const task &done, const reason_to_hang &may_hang)
{
    if (judged.reached == outcome::hang) {
        judged.explanation = may_hang(done.what);
    }
}

std::vector<result> run_tasks(const setting &where, const std::vector<task> &tasks,
                              results_file &file, const task_options &options)
{
    std::vector<std::optional<result>> results(tasks.size());
    progress shown(tasks.size(), options.show_progress);
    std::mutex writing;
    std::atomic<bool> stopped{false};

    const auto run = [&](std::size_t i, const std::function<void()> &waits) {
        const task &todo = tasks[i];
        const result *earlier = file.known(todo.id);
        results[i] = earlier ? restored(where, todo, *earlier) : run_one(where, todo, waits);
        explain(*results[i], todo, options.may_hang);
        const std::lock_guard<std::mutex> guard(writing);
        if (!earlier) {
            file.append(*results[i]);
        }
        shown.step(*results[i]);
        if (options.stop_at && options.stop_at(*results[i])) {
            stopped = true;
        }
        return !stopped;
    };
    std::vector<std::size_t> exclusive;
    std::vector<std::size_t> likely_hangs;
    std::vector<std::size_t> others;
    for (std::size_t i = 0; i < tasks.size(); i++) {
        const experiment &what = tasks[i].what;
        if (std::find(options.exclusive.begin(), options.exclusive.end(), what.test) !=
            options.exclusive.end()) {
            exclusive.push_back(i);
        } else {
            (options.may_hang(what).empty() ? others : likely_hangs).push_back(i);
        }
    }
    processors idle(std::max(1U, options.jobs));
    const auto run_all = [&](const std::vector<std::size_t> &list) {
        in_parallel(list.size(), idle, [&](std::size_t at, processor &held) {
            return !stopped && run(list[at], [&] { held.give_back(); });
        });
    };
    const auto run_one_by_one = [&] {
        for (const std::size_t i : exclusive) {
            const machine_lock alone(where.tavor);
            if (stopped || !run(i, {})) {
                break;
            }
        }
    };
    // All three from the start: what waits has ended when the rest has.
    const std::array<std::function<void()>, 3> parts = {
        run_one_by_one, [&] { run_all(likely_hangs); }, [&] { run_all(others); }};
    processors for_parts(parts.size());
    in_parallel(parts.size(), for_parts, [&](std::size_t i, processor &) {
        try {
            parts[i]();
        } catch (...) {
            stopped = true;
            throw;
        }
        return true;
    });
    std::vector<result> in_order;
    for (std::optional<result> &ended : results) {
        if (ended) {
            in_order.push_back(std::move(*ended));
        }
    }
    return in_order;
}

} // namespace campaign

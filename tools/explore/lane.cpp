// SPDX-License-Identifier: MIT
#include "tools/explore/lane.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include "tools/common/usage_error.h"
#include "tools/explore/convert.h"
#include "tools/explore/tested.h"

namespace explore {

namespace {

template <typename work> pid_t in_a_child(work carry_out)
{
    const pid_t id = fork();
    if (id < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (id == 0) carry_out();
    return id;
}

void end(pid_t &id)
{
    if (id <= 0) return;
    kill(id, SIGKILL);
    while (waitpid(id, nullptr, 0) < 0 && errno == EINTR) continue;
    id = -1;
}

bool has_ended(pid_t &id)
{
    int status = 0;
    if (id <= 0 || waitpid(id, &status, WNOHANG) != id) return false;
    id = -1;
    return true;
}

} // namespace

lane::lane(std::string library, making what, std::chrono::milliseconds limit)
    : shared_(make_exchange()), library_(std::move(library)), what_(std::move(what)), limit_(limit),
      watch_(limit)
{
    start_maker();
    start_tested();
}

lane::~lane()
{
    end(maker_);
    end(tested_);
    munmap(&shared_, sizeof shared_);
}

void lane::start_maker()
{
    maker_ = in_a_child([this] { be_maker(shared_, what_); });
}

void lane::start_tested()
{
    shared_.wants_replacement = false;
    shared_.is_calling = false;
    shared_.is_started = false;
    watch_ = tools::hang_watch(limit_);
    tested_ = in_a_child([this] { be_tested(shared_, library_); });
}

void lane::stop()
{
    shared_.is_stopped = true;
}

suspect lane::current(std::uint32_t call) const
{
    const batch &whole = shared_.slots[shared_.slot];
    const flat_sequence &made = whole.sequences[shared_.sequence];
    suspect told;
    told.made = to_sequence(whole, made);
    told.index = made.index;
    told.call = call;
    return told;
}

void lane::look_after_maker()
{
    if (has_ended(maker_) && !shared_.is_made) {
        throw std::runtime_error("the reference library's process ended");
    }
}

// Of a process that has ended in the middle of a sequence that sequence; the next one gets another.
std::optional<suspect> lane::replace()
{
    if (shared_.is_refused) throw tools::usage_error("cannot load " + library_);
    if (!shared_.is_started) {
        throw tools::usage_error(library_ + " ends the process when it is loaded");
    }
    if (shared_.is_done) {
        is_done_ = true;
        return std::nullopt;
    }
    std::optional<suspect> ended;
    if (!shared_.wants_replacement && shared_.is_in_batch) {
        ended = current(shared_.call);
        ended->has_ended = true;
        shared_.sequence.fetch_add(1);
        shared_.differences.fetch_add(1);
        shared_.sequences_done.fetch_add(1);
    }
    start_tested();
    return ended;
}

std::optional<suspect> lane::look_after_tested()
{
    if (shared_.has_report) {
        const suspect told = current(shared_.report.call);
        shared_.has_report = false;
        sem_post(&shared_.taken_reports);
        return told;
    }
    if (has_ended(tested_)) return replace();
    const std::uint64_t moves = shared_.moves;
    if (moves != moves_ || !shared_.is_calling) {
        moves_ = moves;
        watch_ = tools::hang_watch(limit_);
    } else if (watch_.is_hang(tested_)) {
        end(tested_);
        return replace();
    }
    return std::nullopt;
}

std::optional<suspect> lane::look()
{
    if (is_done_) return std::nullopt;
    look_after_maker();
    return look_after_tested();
}

} // namespace explore

// SPDX-License-Identifier: MIT
#include "tools/explore/examiner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <tuple>

#include "tools/common/output_file.h"

namespace explore {

examiner::~examiner()
{
    if (child_ < 0) return;
    kill(-child_, SIGKILL); // with the processes that it has started
    while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) continue;
    close(pipe_);
}

std::size_t examiner::times(const suspect &one) const
{
    const auto found = examined_.find(kind_of(one));
    return found == examined_.end() ? 0 : found->second;
}

void examiner::add(suspect one)
{
    // A library that is wrong everywhere would keep this busy for ever.
    constexpr std::size_t MOST = 4;
    const auto same =
        static_cast<std::size_t>(std::ranges::count_if(waiting_, [&](const suspect &each) {
            return !each.is_known && kind_of(each) == kind_of(one);
        }));
    if (!one.is_known && times(one) + same >= MOST) return;
    waiting_.push_back(std::move(one));
}

void examiner::start()
{
    const auto next = std::ranges::min_element(waiting_, {}, [this](const suspect &each) {
        return std::tuple(each.waits, times(each), each.call);
    });
    const suspect chosen = std::move(*next);
    waiting_.erase(next);
    index_ = chosen.index;
    was_known_ = chosen.is_known;
    examined_[kind_of(chosen)]++;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    child_ = fork();
    if (child_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setpgid(0, 0);
        int status = 0;
        try {
            // A line a message; the last one counts.
            bool is_written = true;
            const auto tell = [&](const examined &one) {
                is_written = tools::write_all(ends[1], to_message(one) + "\n") && is_written;
            };
            tell(examine(chosen.made, how_, tell));
            status = is_written ? 0 : 1;
        } catch (const std::exception &) {
            status = 1;
        }
        _exit(status);
    }
    setpgid(child_, child_);
    close(ends[1]);
    pipe_ = ends[0];
    received_.clear();
}

std::optional<examined> examiner::look()
{
    if (child_ < 0) {
        if (!waiting_.empty()) start();
        return std::nullopt;
    }
    pollfd watched{pipe_, POLLIN, 0};
    while (poll(&watched, 1, 0) > 0) {
        char piece[65536];
        const ssize_t count = read(pipe_, piece, sizeof piece);
        if (count < 0 && errno == EINTR) continue;
        if (count > 0) {
            received_.append(piece, static_cast<std::size_t>(count));
            continue;
        }
        return take();
    }
    return std::nullopt;
}

examined examiner::take()
{
    close(pipe_);
    while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) continue;
    child_ = -1;
    received_.resize(received_.rfind('\n') + 1);
    const std::size_t last = received_.find_last_of('\n', received_.size() - 2) + 1;
    examined done = from_message(received_.substr(std::min(last, received_.size())));
    done.finding.index = index_;
    done.was_known = was_known_;
    return done;
}

std::optional<examined> examiner::give_up()
{
    if (child_ < 0) return std::nullopt;
    kill(-child_, SIGKILL);
    examined done = take();
    if (done.outcome != outcome::finding) return std::nullopt;
    return done;
}

} // namespace explore

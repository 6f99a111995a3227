// SPDX-License-Identifier: MIT
#include "tools/histories/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <vector>

#include "tools/common/usage_error.h"

namespace histories {

namespace {

// The first byte of an answer.
constexpr char ANSWER = 'a';
constexpr char REFUSAL = 'r';

constexpr std::size_t MESSAGE_MAX = std::size_t{1} << 17;
constexpr int LOOK_MILLISECONDS = 5;

void send_to(int socket, std::string_view message)
{
    if (send(socket, message.data(), message.size(), MSG_NOSIGNAL) < 0) _exit(1);
}

[[noreturn]] void be_child(int socket, const std::function<answering()> &begin)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) signal(number, SIG_DFL);
    signal(SIGINT, SIG_IGN); // the parent decides
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int standard : {0, 1, 2}) dup2(nothing, standard);
    try {
        const answering answer = begin();
        std::vector<char> room(MESSAGE_MAX);
        while (true) {
            const ssize_t count = recv(socket, room.data(), room.size(), 0);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) _exit(0);
            send_to(socket, ANSWER + answer({room.data(), static_cast<std::size_t>(count)}));
        }
    } catch (const std::exception &error) {
        send_to(socket, REFUSAL + std::string(error.what()));
    }
    _exit(1);
}

} // namespace

child::child(const std::function<answering()> &begin)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    socket_.reset(ends[0]);
    const tools::unique_fd other(ends[1]);
    const pid_t parent = getpid();
    id_ = fork();
    if (id_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (id_ == 0) {
        socket_.reset();
        if (getppid() != parent) _exit(1);
        be_child(other.get(), begin);
    }
}

child::~child()
{
    end();
}

std::optional<std::string> child::ask(std::string_view message,
                                      const std::function<bool()> &is_over)
{
    // Of a child that has ended the last message is still to be read.
    if (send(socket_.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0 && errno != EPIPE &&
        errno != ECONNRESET) {
        throw std::system_error(errno, std::generic_category(), "send");
    }
    while (true) {
        pollfd watched{socket_.get(), POLLIN, 0};
        if (poll(&watched, 1, LOOK_MILLISECONDS) <= 0) {
            if (is_over()) return std::nullopt;
            continue;
        }
        std::string room(MESSAGE_MAX, '\0');
        const ssize_t count = recv(socket_.get(), room.data(), room.size(), 0);
        if (count < 0 && (errno == EINTR || errno == ECONNRESET)) continue;
        if (count <= 0) return std::nullopt;
        if (room[0] == REFUSAL) {
            throw tools::usage_error(room.substr(1, static_cast<std::size_t>(count) - 1));
        }
        return room.substr(1, static_cast<std::size_t>(count) - 1);
    }
}

int child::end()
{
    if (id_ < 0) return 0;
    // One that has crashed may not have been taken off yet: it closes its socket before it has
    // ended.
    int status = 0;
    socket_.reset();
    kill(id_, SIGKILL);
    while (waitpid(id_, &status, 0) < 0 && errno == EINTR) continue;
    id_ = -1;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

} // namespace histories

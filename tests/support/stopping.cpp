// SPDX-License-Identifier: MIT
#include "tests/support/stopping.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace support {

namespace {

void add_children(pid_t process, std::vector<pid_t> &all)
{
    const std::string task = std::to_string(process);
    std::ifstream file("/proc/" + task + "/task/" + task + "/children");
    for (pid_t each = 0; file >> each;) {
        if (each == getpid()) continue;
        all.push_back(each);
        add_children(each, all);
    }
}

// Whether the test has ended this, within that time.
bool is_over(int pipe, std::chrono::milliseconds time)
{
    pollfd watched{pipe, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(time.count())) > 0;
}

void stop_now_and_then(pid_t test, int pipe, std::chrono::milliseconds longest)
{
    std::mt19937 random(1);
    while (!is_over(pipe, std::chrono::milliseconds(random() % 20))) {
        std::vector<pid_t> all;
        add_children(test, all);
        if (all.empty()) continue;
        const pid_t chosen = all[random() % all.size()];
        kill(chosen, SIGSTOP);
        const bool is_last = is_over(pipe, longest / static_cast<int>(1 + random() % 4));
        kill(chosen, SIGCONT);
        if (is_last) return;
    }
}

} // namespace

stopping::stopping(std::chrono::milliseconds longest)
{
    int ends[2];
    if (pipe(ends) != 0) return;
    const pid_t test = getpid();
    id_ = fork();
    if (id_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ends[1]);
        stop_now_and_then(test, ends[0], longest);
        _exit(0);
    }
    close(ends[0]);
    pipe_ = ends[1];
}

stopping::~stopping()
{
    if (pipe_ < 0) return;
    // Others may have the pipe, too: closing it would not tell.
    if (write(pipe_, "", 1) == 1) waitpid(id_, nullptr, 0);
    close(pipe_);
}

} // namespace support

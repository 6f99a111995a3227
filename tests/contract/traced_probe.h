// SPDX-License-Identifier: MIT
//
// What programs share whose system calls a test counts.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

inline void check(bool holds, const char *what)
{
    if (holds) return;
    std::fprintf(stderr, "probe: %s\n", what);
    std::_Exit(1);
}

// Whether a thread of this process has the name and sleeps.
inline bool thread_sleeps(const std::string &name)
{
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string status;
        std::getline(std::ifstream(task.path() / "stat"), status);
        if (status.find("(" + name + ") S ") != std::string::npos) return true;
    }
    return false;
}

// The daemon's start, and a new time to flush at, make it call on its own. That is over when it
// sleeps.
inline void wait_for_daemon()
{
    using namespace std::chrono_literals;
    for (int tries = 0; tries < 1000 && !thread_sleeps("KELd"); tries++) {
        std::this_thread::sleep_for(10ms);
    }
    check(thread_sleeps("KELd"), "the daemon does not sleep");
}

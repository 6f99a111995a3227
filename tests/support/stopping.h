// SPDX-License-Identifier: MIT
//
// A machine that does not let a program run when it would: a process beside the test that stops
// processes which come from the test's own, now and then, and lets them go on.
#pragma once

#include <sys/types.h>

#include <chrono>

namespace support {

class stopping {
public:
    // Each process for up to `longest` at a time.
    explicit stopping(std::chrono::milliseconds longest);
    // None is stopped any more.
    ~stopping();
    stopping(const stopping &) = delete;
    stopping &operator=(const stopping &) = delete;

private:
    pid_t id_ = -1;
    int pipe_ = -1;
};

} // namespace support

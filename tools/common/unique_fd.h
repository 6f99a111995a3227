// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <utility>

namespace tools {

// A file descriptor that is closed with its owner.
class unique_fd {
public:
    explicit unique_fd(int fd = -1) : value(fd) {}
    unique_fd(unique_fd &&other) noexcept : value(std::exchange(other.value, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(std::exchange(other.value, -1));
        return *this;
    }
    ~unique_fd() { reset(); }
    int get() const { return value; }
    void reset(int fd = -1)
    {
        if (value >= 0) {
            close(value);
        }
        value = fd;
    }

private:
    int value;
};

} // namespace tools

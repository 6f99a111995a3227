// SPDX-License-Identifier: MIT
//
// A process of this program's own that answers messages. It dies with this one.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tools/common/unique_fd.h"

namespace histories {

// What the child answers to a message. When it throws, the child ends.
using answering = std::function<std::string(std::string_view message)>;

class child {
public:
    // `begin` is called in the child, opens what it needs, and gives its way of answering; when it
    // throws, so does the first `ask`, a tools::usage_error with that message. What the child
    // prints goes nowhere.
    explicit child(const std::function<answering()> &begin);
    ~child();
    child(const child &) = delete;
    child &operator=(const child &) = delete;

    // Nothing when the child has ended, or when `is_over`, asked all the while, says so. Messages
    // of up to 64 KiB.
    std::optional<std::string> ask(
        std::string_view message, const std::function<bool()> &is_over = [] { return false; });

    pid_t id() const { return id_; }

    // Kills it, if it has not ended by itself, and tells the signal that ended it; 0: it left.
    int end();

private:
    pid_t id_ = -1;
    tools::unique_fd socket_;
};

} // namespace histories

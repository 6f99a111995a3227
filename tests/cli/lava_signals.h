// SPDX-License-Identifier: MIT
//
// A strict reader of LAVA's signals in what a job prints.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace lava_signals {

struct testcase {
    std::string set{};
    std::string result{};
    std::vector<std::string> comments{}; // since the signal before
};

struct job_output {
    std::map<std::string, testcase> cases{};
    std::vector<std::string> sets{}; // as often as they were started
    bool set_is_open = false;
    std::string complaint{}; // the first thing that is wrong; what is behind it is not read
};

// Comments and signals, a line each, and nothing else: a set is started and stopped, in it are
// the cases, each of them once.
job_output read(const std::string &text);

} // namespace lava_signals

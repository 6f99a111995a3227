// SPDX-License-Identifier: MIT
//
// Which cases make another one change its verdict by running before it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/tavor-run/run/runner.h"

namespace tavor_run {

// A part of `rows` that still holds and of which nothing can be left out, in the same order.
// It has to hold for the whole and not for none.
std::vector<int> minimised(std::vector<int> rows,
                           const std::function<bool(const std::vector<int> &)> &holds);

struct outcome {
    verdict state = verdict::unseen;
    std::string message{};

    // Line numbers left aside.
    bool operator==(const outcome &other) const;
    std::string text() const;
};

struct bisection {
    outcome alone{};
    outcome behind_all{};
    std::vector<int> needed{}; // empty: it is the same behind all of them
};

// Runs `row` behind `predecessors`: in one process, where only smaller rows can come before it,
// or each case in its own with `isolate`.
bisection bisect(const launcher &how, const run_options &options, int row,
                 std::vector<int> predecessors,
                 const std::function<void(const std::string &)> &tell);

} // namespace tavor_run

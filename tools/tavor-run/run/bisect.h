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

// The first of `count` that is not good: by halves, so that it counts on all later ones being bad,
// too. `count` when the last is good.
std::size_t first_bad(std::size_t count, const std::function<bool(std::size_t)> &is_good);

// What becomes of `row` after `predecessors`; unseen when nothing ran.
outcome outcome_after(const launcher &how, const run_options &options, int row,
                      std::vector<int> predecessors = {});
// "fail : message"
std::string text_of(const outcome &what);

struct bisection {
    outcome alone{};
    outcome after_all{};
    std::vector<int> needed{}; // empty: it is the same after all of them
};

// Runs `row` after `predecessors`: in one process, where only smaller rows can come before it,
// or each case in its own with `isolate`.
bisection bisect(const launcher &how, const run_options &options, int row,
                 std::vector<int> predecessors,
                 const std::function<void(const std::string &)> &tell);

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/bisect.h"

#include <algorithm>

#include "tools/common/interrupt.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

// Line numbers left aside.
bool are_equal(const outcome &one, const outcome &other)
{
    return one.state == other.state &&
           (one.state != verdict::fail || comparable(one.message) == comparable(other.message));
}

// The rows without those from `first` up to `last`.
std::vector<int> without(const std::vector<int> &rows, std::size_t first, std::size_t last)
{
    std::vector<int> rest(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(first));
    rest.insert(rest.end(), rows.begin() + static_cast<std::ptrdiff_t>(last), rows.end());
    return rest;
}

} // namespace

outcome outcome_after(const launcher &how, const run_options &options, int row,
                      std::vector<int> predecessors)
{
    if (tools::asked_to_stop() != tools::stop::no) {
        throw tools::interrupted{};
    }
    predecessors.push_back(row);
    reporter silent{run_record{}};
    runner(how, options, silent).run(predecessors);
    outcome last{.state = verdict::unseen};
    for (const case_result &each : silent.record().results) {
        if (each.number == row) {
            last = {each.name, each.state, each.message, each.duration};
        }
    }
    return last;
}

std::string text_of(const outcome &what)
{
    return std::string(name_of(what.state)) + (what.message.empty() ? "" : " : " + what.message);
}

std::size_t first_bad(std::size_t count, const std::function<bool(std::size_t)> &is_good)
{
    if (count == 0 || is_good(count - 1)) return count;
    if (!is_good(0)) return 0;
    std::size_t good = 0;
    std::size_t bad = count - 1;
    while (bad - good > 1) {
        const std::size_t middle = good + (bad - good) / 2;
        (is_good(middle) ? good : bad) = middle;
    }
    return bad;
}

std::vector<int> minimised(std::vector<int> rows,
                           const std::function<bool(const std::vector<int> &)> &holds)
{
    for (std::size_t piece = (rows.size() + 1) / 2; !rows.empty();) {
        bool smaller = false;
        // From the front: what stands near the case is the likelier reason.
        for (std::size_t first = 0; first < rows.size();) {
            std::vector<int> rest = without(rows, first, std::min(first + piece, rows.size()));
            if (!rest.empty() && holds(rest)) {
                rows = std::move(rest);
                smaller = true;
            } else {
                first += piece;
            }
        }
        if (piece > 1) {
            piece = (piece + 1) / 2;
        } else if (!smaller) {
            break;
        }
    }
    return rows;
}

bisection bisect(const launcher &how, const run_options &options, int row,
                 std::vector<int> predecessors,
                 const std::function<void(const std::string &)> &tell)
{
    std::erase_if(predecessors,
                  [&](int each) { return each == row || (!options.isolate && each > row); });
    bisection found;
    found.alone = outcome_after(how, options, row, {});
    tell("alone: " + text_of(found.alone));
    found.after_all = outcome_after(how, options, row, predecessors);
    tell("after " + std::to_string(predecessors.size()) + ": " + text_of(found.after_all));
    if (are_equal(found.alone, found.after_all)) {
        return found;
    }
    found.needed = minimised(std::move(predecessors), [&](const std::vector<int> &part) {
        const outcome seen = outcome_after(how, options, row, part);
        tell("after " + std::to_string(part.size()) + ": " + text_of(seen));
        return are_equal(seen, found.after_all);
    });
    return found;
}

} // namespace tavor_run

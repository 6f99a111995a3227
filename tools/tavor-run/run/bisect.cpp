// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/bisect.h"

#include <algorithm>

#include "tools/common/interrupt.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

outcome outcome_behind(const launcher &how, const run_options &options, int row,
                       std::vector<int> predecessors)
{
    if (tools::asked_to_stop() != tools::stop::no) {
        throw tools::interrupted{};
    }
    predecessors.push_back(row);
    reporter silent{run_record{}};
    runner(how, options, silent).run(predecessors);
    outcome last;
    for (const case_result &each : silent.record().results) {
        if (each.number == row) {
            last = {each.state, each.message};
        }
    }
    return last;
}

// The rows without those from `first` up to `last`.
std::vector<int> without(const std::vector<int> &rows, std::size_t first, std::size_t last)
{
    std::vector<int> rest(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(first));
    rest.insert(rest.end(), rows.begin() + static_cast<std::ptrdiff_t>(last), rows.end());
    return rest;
}

} // namespace

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

bool outcome::operator==(const outcome &other) const
{
    return state == other.state &&
           (state != verdict::fail || comparable(message) == comparable(other.message));
}

std::string outcome::text() const
{
    return std::string(name_of(state)) + (message.empty() ? "" : " : " + message);
}

bisection bisect(const launcher &how, const run_options &options, int row,
                 std::vector<int> predecessors,
                 const std::function<void(const std::string &)> &tell)
{
    std::erase_if(predecessors,
                  [&](int each) { return each == row || (!options.isolate && each > row); });
    bisection found;
    found.alone = outcome_behind(how, options, row, {});
    tell("alone: " + found.alone.text());
    found.behind_all = outcome_behind(how, options, row, predecessors);
    tell("behind " + std::to_string(predecessors.size()) + ": " + found.behind_all.text());
    if (found.alone == found.behind_all) {
        return found;
    }
    found.needed = minimised(std::move(predecessors), [&](const std::vector<int> &part) {
        const outcome seen = outcome_behind(how, options, row, part);
        tell("behind " + std::to_string(part.size()) + ": " + seen.text());
        return seen == found.behind_all;
    });
    return found;
}

} // namespace tavor_run

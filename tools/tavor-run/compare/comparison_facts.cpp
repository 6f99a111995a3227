// SPDX-License-Identifier: MIT
//
// What all forms of a comparison say.
#include <algorithm>

#include "tools/tavor-run/compare/comparison.h"

namespace tavor_run {

namespace {

constexpr std::string_view ABSENT = "-";

// From good to bad.
constexpr std::array<verdict, VERDICT_COUNT> SHOWN_ORDER = {
    verdict::pass, verdict::ignore, verdict::not_run, verdict::fail,    verdict::crash,
    verdict::hang, verdict::flood,  verdict::damaged, verdict::unended, verdict::unseen};

} // namespace

std::string_view word(const std::optional<outcome> &cell)
{
    return cell ? name_of(cell->state) : ABSENT;
}

// The verdicts that occur at all: each has a row of totals.
std::vector<verdict> counted_verdicts(const comparison &what)
{
    std::vector<verdict> found;
    for (const verdict each : SHOWN_ORDER) {
        if (std::any_of(what.columns.begin(), what.columns.end(),
                        [&](const auto &column) { return counted(column.counts, each) > 0; })) {
            found.push_back(each);
        }
    }
    return found;
}

std::string ending_text(const comparison &what)
{
    std::string text = std::to_string(what.differing()) + " of " +
                       std::to_string(what.rows.size()) + " cases differ\n";
    if (!what.is_sharded) {
        return text;
    }
    text = std::to_string(what.rows.size()) + " cases in " + std::to_string(what.columns.size()) +
           " shards of one run\n";
    for (const std::string &each : what.missing_shards) {
        text += "shard " + each + " is missing\n";
    }
    return text;
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/results/baseline.h"

#include "tools/common/registry.h"

namespace tavor_run {

namespace {

constexpr const char *VANISHED = "vanished";

// Messages of ours, of a crash or a damage, tell of circumstances: the verdict says it all.
bool has_comparable_message(const stored_result &which)
{
    return which.state == verdict::fail;
}

} // namespace

std::string difference_between(const stored_result &before, const stored_result &after)
{
    if (before.state == verdict::not_run || after.state == verdict::not_run) {
        return "";
    }
    if (after.state == verdict::unseen) {
        return before.state == verdict::unseen ? "" : VANISHED;
    }
    if (before.state == after.state) {
        const bool changed = has_comparable_message(after) &&
                             comparable(before.message) != comparable(after.message);
        return changed ? "changed message" : "";
    }
    const std::string way =
        std::string(name_of(before.state)) + " -> " + std::string(name_of(after.state));
    if (is_good(before.state) && is_good(after.state)) {
        return way;
    }
    if (is_good(before.state)) {
        return "new failure";
    }
    return is_good(after.state) ? "fixed" : "changed, " + way;
}

std::vector<difference> compare(const stored_run &before, const stored_run &after)
{
    std::map<std::string, const stored_result *> later;
    for (const stored_result &each : after.results) {
        later[each.name] = &each;
    }
    std::vector<difference> differences;
    for (const stored_result &each : before.results) {
        const auto found = later.find(each.name);
        if (found == later.end()) {
            differences.push_back({each.name, VANISHED, each, std::nullopt});
            continue;
        }
        const std::string what = difference_between(each, *found->second);
        if (!what.empty()) {
            differences.push_back({each.name, what, each, *found->second});
        }
        later.erase(found);
    }
    for (const stored_result &each : after.results) {
        if (later.contains(each.name)) {
            differences.push_back({each.name, "new case", std::nullopt, each});
        }
    }
    return differences;
}

baseline::baseline(const stored_run &run)
{
    for (const stored_result &each : run.results) {
        known[each.name] = each;
    }
}

std::string baseline::judge(const case_result &what) const
{
    const stored_result now{std::string(what.name()), what.state, what.message};
    const auto found = known.find(now.name);
    if (found != known.end()) {
        return difference_between(found->second, now);
    }
    return is_good(now.state) || now.state == verdict::not_run ? "" : "new failure";
}

std::vector<std::string> baseline::vanished() const
{
    std::vector<std::string> names;
    for (const auto &[name, result] : known) {
        if (tools::case_number(name) < 0) {
            names.push_back(name);
        }
    }
    return names;
}

} // namespace tavor_run

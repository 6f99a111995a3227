// SPDX-License-Identifier: MIT
#include "tools/tavor-run/results/baseline.h"

#include "tools/common/registry.h"

namespace tavor_run {

namespace {

constexpr const char *VANISHED = "vanished";

// Messages of ours, of a crash or a damage, tell of circumstances: the verdict says it all.
bool has_comparable_message(const outcome &which)
{
    return which.state == verdict::fail;
}

judgement new_failure()
{
    return {standing::fresh, "new failure"};
}

} // namespace

judgement compare(const outcome &before, const outcome &after)
{
    if (before.state == verdict::not_run || after.state == verdict::not_run) {
        return {};
    }
    if (before.state == after.state) {
        const bool changed = has_comparable_message(after) &&
                             comparable(before.message) != comparable(after.message);
        return changed                ? judgement{standing::changed, "changed message"}
               : is_good(after.state) ? judgement{}
                                      : judgement{standing::known};
    }
    if (after.state == verdict::unseen) {
        return {standing::changed, VANISHED};
    }
    const std::string way =
        std::string(name_of(before.state)) + " -> " + std::string(name_of(after.state));
    if (is_good(before.state)) {
        return is_good(after.state) ? judgement{standing::changed, way} : new_failure();
    }
    return is_good(after.state) ? judgement{standing::fixed, "fixed"}
                                : judgement{standing::changed, "changed, " + way};
}

std::vector<difference> compare(const stored_run &before, const stored_run &after)
{
    std::map<std::string, const outcome *> later;
    for (const outcome &each : after.results) {
        later[each.name] = &each;
    }
    std::vector<difference> differences;
    for (const outcome &each : before.results) {
        const auto found = later.find(each.name);
        if (found == later.end()) {
            differences.push_back({each.name, VANISHED, each, std::nullopt});
            continue;
        }
        const std::string what = compare(each, *found->second).text;
        if (!what.empty()) {
            differences.push_back({each.name, what, each, *found->second});
        }
        later.erase(found);
    }
    for (const outcome &each : after.results) {
        if (later.contains(each.name)) {
            differences.push_back({each.name, "new case", std::nullopt, each});
        }
    }
    return differences;
}

baseline::baseline(const stored_run &run)
{
    for (const outcome &each : run.results) {
        known[each.name] = each;
    }
}

void baseline::judge(case_result &what) const
{
    judgement found;
    if (const auto before = known.find(what.name); before != known.end()) {
        found = compare(before->second, what);
    } else if (!is_good(what.state) && what.state != verdict::not_run) {
        found = new_failure();
    }
    what.against_baseline = found.what;
    what.difference = std::move(found.text);
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

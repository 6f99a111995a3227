// SPDX-License-Identifier: MIT
//
// A fault is consistent with a log when every case of the log ends as it can end with that fault.
// Texts are compared exactly. A case that the log says nothing of excludes no fault.
#include "tools/diagnosis/diagnosis.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace diagnosis {

namespace {

// "msg='...' line=204" without the number of the line.
std::string_view without_line(std::string_view message)
{
    const std::size_t at = message.rfind("' line=");
    return at == std::string_view::npos ? message : message.substr(0, at + 1);
}

// All that the table knows of a case.
struct known_texts {
    std::set<std::string> printed;
    std::set<std::string, std::less<>> messages;
    std::set<std::string, std::less<>> without_lines;

    void add(const outcome &one)
    {
        printed.insert(one.printed.begin(), one.printed.end());
        messages.insert(one.message);
        without_lines.emplace(without_line(one.message));
    }
};

bool is_same_message(std::string_view first, std::string_view second, bool has_lines)
{
    return first == second || (!has_lines && without_line(first) == without_line(second));
}

// Whether the log can show this for a case that ends so.
bool can_be(const outcome &seen, const outcome &known, const evidence &told)
{
    const bool has_stopped = known.ending == ending::crash || known.ending == ending::hang;
    if (seen.ending != known.ending && !(seen.ending == ending::stopped && has_stopped)) {
        return false;
    }
    if (seen.ending == ending::fail &&
        !is_same_message(seen.message, known.message, told.has_lines))
        return false;
    if (seen.ending == ending::crash && !seen.message.empty() && seen.message != known.message) {
        return false;
    }
    if (!seen.call.empty() && !known.call.empty() && seen.call != known.call) return false;
    const bool may_miss = !told.is_whole || has_stopped;
    return may_miss ? std::ranges::includes(known.printed, seen.printed)
                    : known.printed == seen.printed;
}

bool can_be(const sighting &seen, const std::set<outcome> &known, const evidence &told)
{
    return std::any_of(known.begin(), known.end(),
                       [&](const outcome &each) { return can_be(seen.seen, each, told); });
}

class search {
public:
    search(const table &known, const evidence &told) : known_(known), told_(told)
    {
        for (const sighting &each : told.cases) {
            seen_.insert(each.case_name);
            if (!each.seen.call.empty()) explained_.insert(each.case_name);
        }
    }

    diagnosis run()
    {
        diagnosis result;
        for (const sighting &each : told_.cases) {
            (each.seen.ending == ending::good ? result.good : result.failed)++;
        }
        std::vector<const known_fault *> consistent;
        for (const known_fault &each : known_.faults) {
            if (!each.cases.empty() && is_consistent(each)) consistent.push_back(&each);
        }
        std::ranges::stable_sort(consistent, {}, [this](auto *each) { return unseen_of(*each); });
        result.consistent = grouped(consistent);
        if (result.consistent.size() > 1) result.next = most_telling(consistent);
        if (result.consistent.empty() && result.failed > 0) result.suspects = suspects();
        return result;
    }

private:
    bool is_consistent(const known_fault &fault) const
    {
        return std::all_of(told_.cases.begin(), told_.cases.end(), [&](const sighting &each) {
            return can_be(each, endings_of(known_, &fault, each.case_name), told_);
        });
    }

    // How many of its failures the log says nothing of.
    std::size_t unseen_of(const known_fault &fault) const
    {
        return static_cast<std::size_t>(
            std::count_if(fault.cases.begin(), fault.cases.end(),
                          [this](const auto &each) { return !seen_.contains(each.first); }));
    }

    static std::vector<group> grouped(const std::vector<const known_fault *> &faults)
    {
        std::vector<group> groups;
        for (const known_fault *each : faults) {
            const auto alike = std::find_if(groups.begin(), groups.end(), [each](const group &one) {
                return one.front()->cases == each->cases;
            });
            if (alike == groups.end()) {
                groups.push_back({each});
            } else {
                alike->push_back(each);
            }
        }
        return groups;
    }

    // What a case shows with a fault: how it ends, else the call that differs. Nothing where it is
    // not always the same.
    std::optional<outcome> shown_by(const known_fault &fault, const std::string &name,
                                    bool is_explained) const
    {
        const auto &ways = endings_of(known_, &fault, name);
        if (ways.size() > 1) return std::nullopt;
        outcome one = *ways.begin();
        if (!is_explained) {
            one.call.clear();
        } else if (one.call.empty()) {
            return std::nullopt;
        }
        return one;
    }

    // The case whose largest share of the faults is the smallest.
    std::optional<further_case> most_telling(const std::vector<const known_fault *> &faults) const
    {
        std::optional<further_case> best;
        std::size_t least = faults.size();
        for (const bool is_explained : {false, true}) {
            std::set<std::string> asked;
            for (const known_fault *each : faults) {
                for (const auto &[name, ways] : each->cases) {
                    if (!(is_explained ? explained_ : seen_).contains(name)) asked.insert(name);
                }
            }
            for (const std::string &name : asked) {
                std::map<outcome, group> shares;
                std::size_t largest = 0;
                std::size_t told = 0;
                for (const known_fault *each : faults) {
                    const auto shown = shown_by(*each, name, is_explained);
                    if (!shown) continue;
                    group &share = shares[*shown];
                    share.push_back(each);
                    largest = std::max(largest, share.size());
                    told++;
                }
                // Of a fault that shows now one thing, now another it says nothing.
                largest += faults.size() - told;
                if (largest >= least) continue;
                least = largest;
                best = {name, is_explained, {}};
                for (const auto &[way, share] : shares) best->would_end.emplace_back(share, way);
            }
        }
        return best;
    }

    std::vector<suspect> suspects() const
    {
        std::map<std::string, suspect> all;
        std::size_t failed = 0;
        for (const sighting &each : told_.cases) {
            const bool is_good = each.seen.ending == ending::good;
            if (!is_good) failed++;
            const auto called = known_.operations.find(each.case_name);
            if (called == known_.operations.end()) continue;
            for (const std::string &operation : called->second) {
                suspect &one = all[operation];
                one.operation = operation;
                (is_good ? one.in_good : one.in_failed)++;
            }
        }
        std::vector<suspect> ranked;
        for (auto &[name, one] : all) {
            if (one.in_failed == 0) continue;
            const auto calls = static_cast<double>(one.in_failed + one.in_good);
            one.score =
                static_cast<double>(one.in_failed) / std::sqrt(static_cast<double>(failed) * calls);
            ranked.push_back(one);
        }
        std::ranges::stable_sort(ranked, std::ranges::greater{}, &suspect::score);
        return ranked;
    }

    const table &known_;
    const evidence &told_;
    std::set<std::string, std::less<>> seen_;
    std::set<std::string, std::less<>> explained_;
};

} // namespace

diagnosis diagnose(const table &known, const evidence &told)
{
    return search(known, told).run();
}

evidence in_terms_of(const table &known, evidence told)
{
    std::map<std::string, known_texts, std::less<>> texts;
    const auto add = [&](const outcomes &cases) {
        for (const auto &[name, ways] : cases) {
            for (const outcome &each : ways) texts[name].add(each);
        }
    };
    add(known.right);
    for (const known_fault &each : known.faults) add(each.cases);
    bool has_known = false;
    bool has_moved = false;
    for (sighting &each : told.cases) {
        known_texts &of_case = texts[each.case_name];
        std::erase_if(each.seen.printed,
                      [&](const std::string &line) { return !of_case.printed.contains(line); });
        const std::string_view message = each.seen.message;
        if (without_line(message) == message) continue;
        const bool is_known = of_case.messages.contains(message);
        has_known = has_known || is_known;
        has_moved =
            has_moved || (!is_known && of_case.without_lines.contains(without_line(message)));
    }
    told.has_lines = has_known || !has_moved;
    return told;
}

} // namespace diagnosis

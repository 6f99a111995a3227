// SPDX-License-Identifier: MIT
#include "tools/tavor-run/history/history.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "tools/common/registry.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, TREND_COUNT> TREND_NAMES = {"NEW",   "LOST",  "FLAKY",
                                                                   "KNOWN", "FIXED", "GOOD"};
constexpr std::size_t BUILD_ID_SHOWN = 12;

// By verdict.
constexpr std::string_view LETTERS = "n.-F?UDOHC";
static_assert(LETTERS.size() == VERDICT_COUNT);

environment environment_of(const stored_run &run)
{
    const program_identity &identity = run.identity;
    return {identity.host, identity.library.build_id, identity.tree, identity.target,
            identity.settings};
}

std::vector<stored_run> runs_in(const fs::path &folder, std::vector<std::string> &skipped)
{
    std::vector<stored_run> runs;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() != ".jsonl") continue;
        try {
            runs.push_back(read_results(entry.path()));
        } catch (const usage_error &) {
            skipped.push_back(entry.path());
        }
    }
    return runs;
}

bool is_judged(const outcome *result)
{
    return result && result->state != verdict::not_run;
}

// The runs of one device that have something to say of a case, the oldest first.
struct series {
    std::vector<std::size_t> runs{};
    bool is_cut = false; // the newest run ended early, before this case
};

// How one device sees a case.
class device_view {
public:
    device_view(const history &of, const case_trend &seen, const series &on)
        : all(of), subject(seen), device(on)
    {
    }

    case_trend judge() const
    {
        case_trend found;
        found.newest = found.since = newest();
        count_environment(found);
        if (device.is_cut || is_lost(state(newest()))) {
            found.what = trend::lost;
            found.since = start_of_streak();
        } else if (found.bad > 0 && found.bad < found.judged) {
            found.what = trend::flaky;
            found.since = first_bad_of_environment();
        } else if (!is_good(state(newest()))) {
            found.since = start_of_streak();
            const bool is_new =
                is_in_newest_environment(found.since) && was_ever_good_before(found.since);
            found.what = is_new ? trend::new_failure : trend::known;
        } else if (const auto since = fixed_since()) {
            found.what = trend::fixed;
            found.since = *since;
        }
        return found;
    }

private:
    std::size_t newest() const { return device.runs.back(); }
    verdict state(std::size_t run) const { return subject.results[run]->state; }
    bool is_in_newest_environment(std::size_t run) const
    {
        return all.runs[run].environment == all.runs[newest()].environment;
    }

    void count_environment(case_trend &found) const
    {
        for (const std::size_t run : device.runs) {
            if (!is_in_newest_environment(run)) continue;
            found.judged++;
            found.bad += is_good(state(run)) ? 0U : 1U;
        }
    }

    std::size_t first_bad_of_environment() const
    {
        return *std::find_if(device.runs.begin(), device.runs.end(), [&](std::size_t run) {
            return is_in_newest_environment(run) && !is_good(state(run));
        });
    }

    // On whichever device the failures began.
    std::size_t start_of_streak() const
    {
        std::size_t start = newest();
        for (std::size_t run = newest(); run-- > 0;) {
            if (!is_judged(subject.results[run])) continue;
            if (is_good(state(run))) break;
            start = run;
        }
        return start;
    }

    // A case that was never seen good is known: nothing changed.
    bool was_ever_good_before(std::size_t start) const
    {
        return std::any_of(subject.results.begin(),
                           subject.results.begin() + static_cast<std::ptrdiff_t>(start), is_judged);
    }

    // The first good run after an environment, of whichever device, in which it was always bad.
    std::optional<std::size_t> fixed_since() const
    {
        std::optional<std::size_t> last_bad;
        for (std::size_t run = 0; run < subject.results.size(); run++) {
            if (is_judged(subject.results[run]) && !is_good(state(run))) last_bad = run;
        }
        if (!last_bad) return std::nullopt;
        std::optional<std::size_t> after;
        for (std::size_t run = 0; run < subject.results.size(); run++) {
            if (!is_judged(subject.results[run])) continue;
            const bool is_there = all.runs[run].environment == all.runs[*last_bad].environment;
            if (is_there && is_good(state(run))) return std::nullopt;
            if (run > *last_bad && !after) after = run;
        }
        return after;
    }

    const history &all;
    const case_trend &subject;
    const series &device;
};

std::size_t first_run_of(const history &all, std::size_t environment)
{
    const auto first = std::find_if(all.runs.begin(), all.runs.end(), [&](const history_run &each) {
        return each.environment == environment;
    });
    return static_cast<std::size_t>(first - all.runs.begin());
}

void judge(case_trend &subject, const history &all)
{
    std::map<std::string, series> devices;
    for (std::size_t run = 0; run < all.runs.size(); run++) {
        series &device = devices[all.runs[run].run.identity.host];
        const stored_run &stored = all.runs[run].run;
        if (is_judged(subject.results[run])) {
            device.runs.push_back(run);
            device.is_cut = false;
        } else if (!stored.has_end || stored.results.size() < stored.planned) {
            device.is_cut = !device.runs.empty();
        }
    }
    // A device that has not run since the newest environment began is out of use, unless all are.
    const std::size_t began = first_run_of(all, all.runs.back().environment);
    const auto is_in_use = [&](const auto &device) {
        return !device.second.runs.empty() && device.second.runs.back() >= began;
    };
    const bool any_in_use = std::any_of(devices.begin(), devices.end(), is_in_use);
    std::optional<case_trend> urgent;
    for (const auto &device : devices) {
        if (device.second.runs.empty() || (any_in_use && !is_in_use(device))) continue;
        const case_trend seen = device_view(all, subject, device.second).judge();
        if (!urgent || seen.what < urgent->what) urgent = seen;
    }
    urgent->name = std::move(subject.name);
    urgent->results = std::move(subject.results);
    subject = std::move(*urgent);
}

void add_run(history &all, stored_run run)
{
    const environment where = environment_of(run);
    auto known = std::find(all.environments.begin(), all.environments.end(), where);
    if (known == all.environments.end()) {
        known = all.environments.insert(known, where);
    }
    history_run added;
    added.environment = static_cast<std::size_t>(known - all.environments.begin());
    for (const outcome &each : run.results) {
        added.counts[static_cast<std::size_t>(each.state)]++;
        added.seconds += each.seconds();
    }
    added.run = std::move(run);
    all.runs.push_back(std::move(added));
}

// Cases of today's table, then those that only older reports have.
std::vector<case_trend> cases_of(const history &all)
{
    std::vector<case_trend> cases;
    std::map<std::string_view, std::size_t> places;
    const auto add = [&](std::string_view name) {
        const auto [place, is_new] = places.try_emplace(name, cases.size());
        if (is_new) {
            cases.push_back({.name = std::string(name)});
            cases.back().results.resize(all.runs.size());
        }
        return place->second;
    };
    for (const tools::test_case &each : tools::all_cases()) {
        add(each.name);
    }
    for (std::size_t run = 0; run < all.runs.size(); run++) {
        for (const outcome &each : all.runs[run].run.results) {
            cases[add(each.name)].results[run] = &each;
        }
    }
    std::erase_if(cases, [](const case_trend &each) {
        return std::none_of(each.results.begin(), each.results.end(), is_judged);
    });
    return cases;
}

} // namespace

std::string_view name_of(trend which)
{
    return TREND_NAMES[static_cast<std::size_t>(which)];
}

std::string environment::text() const
{
    return "library " + (build_id.empty() ? "unknown" : build_id.substr(0, BUILD_ID_SHOWN)) +
           ", tavor " + (tree.empty() ? "unknown" : tree) + (host.empty() ? "" : ", on " + host) +
           (settings.empty() ? "" : ", with " + settings);
}

std::string case_trend::last_message() const
{
    const auto newest_bad = std::find_if(results.rbegin(), results.rend(), [](const auto *each) {
        return is_judged(each) && !is_good(each->state);
    });
    return newest_bad == results.rend() ? "" : (*newest_bad)->message;
}

std::array<unsigned, TREND_COUNT> history::counts() const
{
    std::array<unsigned, TREND_COUNT> counted{};
    for (const case_trend &each : cases) {
        counted[static_cast<std::size_t>(each.what)]++;
    }
    return counted;
}

std::vector<const case_trend *> history::with(trend which) const
{
    std::vector<const case_trend *> found;
    for (const case_trend &each : cases) {
        if (each.what == which) found.push_back(&each);
    }
    return found;
}

history read_history(const std::vector<std::string> &files_and_folders)
{
    history all;
    std::vector<stored_run> runs;
    std::set<fs::path> seen; // a file that is named and in a folder counts once
    for (const std::string &path : files_and_folders) {
        std::vector<stored_run> found;
        if (fs::is_directory(path)) {
            found = runs_in(path, all.skipped);
        } else {
            found.push_back(read_results(path));
        }
        for (stored_run &each : found) {
            if (seen.insert(fs::canonical(each.path)).second) runs.push_back(std::move(each));
        }
    }
    if (runs.empty()) throw usage_error("no results in what was named");
    std::sort(runs.begin(), runs.end(), [](const stored_run &one, const stored_run &other) {
        return std::tie(one.started, one.path) < std::tie(other.started, other.path);
    });
    all.runs.reserve(runs.size());
    for (stored_run &each : runs) {
        add_run(all, std::move(each));
    }
    all.cases = cases_of(all);
    for (case_trend &each : all.cases) {
        judge(each, all);
    }
    return all;
}

char letter_of(const outcome *result)
{
    return result ? LETTERS[static_cast<std::size_t>(result->state)] : ' ';
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// A history in about twenty lines, for the terminal.
#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/tavor-run/history/history.h"

namespace tavor_run {

namespace {

constexpr std::size_t SHOWN = 5;   // cases of each kind
constexpr std::size_t RECENT = 30; // runs of a case

std::string number(std::size_t count, const char *what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

// The newest results, the oldest of them first.
std::string recent(const case_trend &of)
{
    std::string letters;
    const std::size_t first = of.results.size() - std::min(of.results.size(), RECENT);
    for (std::size_t run = first; run < of.results.size(); run++) {
        letters += letter_of(of.results[run]);
    }
    return letters;
}

std::string explanation(const history &all, const case_trend &of)
{
    const history_run &since = all.runs[of.since];
    const std::string when = since.run.started + ", " + all.environments[since.environment].text();
    const outcome *const newest = of.results[of.newest];
    const std::string text = of.last_message();
    const std::string message = text.empty() ? "" : ": " + text;
    switch (of.what) {
    case trend::flaky:
        return "bad in " + std::to_string(of.bad) + " of " + std::to_string(of.judged) +
               " runs of one library, program and machine" + message;
    case trend::fixed:
        return "good since " + when;
    case trend::lost:
        return std::string(newest ? name_of(newest->state) : "not reached") + " since " + when +
               message;
    default:
        return "bad since " + when + message;
    }
}

std::string duration(double seconds)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3f s", seconds);
    return text.data();
}

std::string slowest_line(const history &all)
{
    std::vector<const outcome *> newest;
    for (const outcome &each : all.runs.back().run.results) {
        newest.push_back(&each);
    }
    const auto shown = std::min(newest.size(), std::size_t{3});
    std::partial_sort(
        newest.begin(), newest.begin() + static_cast<std::ptrdiff_t>(shown), newest.end(),
        [](const auto *one, const auto *other) { return one->duration > other->duration; });
    std::string text = "slowest:";
    for (std::size_t i = 0; i < shown; i++) {
        text += (i == 0 ? " " : ", ") + newest[i]->name + " " + duration(newest[i]->seconds());
    }
    return text + "\n";
}

} // namespace

std::string text_of(const history &what)
{
    const history_run &newest = what.runs.back();
    std::string text = number(what.runs.size(), "run") + " of " +
                       number(what.cases.size(), "case") + ", " + what.runs.front().run.started +
                       " to " + newest.run.started + ", " +
                       number(what.environments.size(), "environment") + "\n";
    text += "newest: " + counts_text(newest.counts) + ", " + duration(newest.seconds) + ", " +
            what.environments[newest.environment].text() + "\n";
    for (std::size_t i = 0; i < TREND_COUNT - 1; i++) {
        const auto which = static_cast<trend>(i);
        const std::vector<const case_trend *> cases = what.with(which);
        for (std::size_t shown = 0; shown < std::min(cases.size(), SHOWN); shown++) {
            const case_trend &each = *cases[shown];
            text += padded(std::string(name_of(which)), 6) + padded(each.name, 42) + "[" +
                    recent(each) + "] " + explanation(what, each) + "\n";
        }
        if (cases.size() > SHOWN) {
            text += padded(std::string(name_of(which)), 6) + "and " +
                    number(cases.size() - SHOWN, "more case") + "\n";
        }
    }
    text += slowest_line(what);
    for (const std::string &each : what.skipped) {
        text += "no results in " + each + "\n";
    }
    return text + std::string(LEGEND) + "\n";
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/results/results.h"

#include <algorithm>
#include <ctime>
#include <map>

#include "tools/common/registry.h"
#include "tools/tavor_output/table.h"

namespace tavor_run {

namespace {

constexpr std::array<std::string_view, VERDICT_COUNT> NAMES = {
    "not_run", "pass", "ignore", "fail", "unseen", "unended", "damaged", "flood", "hang", "crash"};

constexpr std::array<std::string_view, VERDICT_COUNT> COUNTED_AS = {
    "not run",     "passed",  "ignored", "failed", "never seen",
    "never ended", "damaged", "flooded", "hung",   "crashed"};

const tools::test_case &row(int number)
{
    return tools::all_cases()[static_cast<std::size_t>(number)];
}

} // namespace

std::string_view name_of(verdict which)
{
    return NAMES[static_cast<std::size_t>(which)];
}

std::optional<verdict> verdict_named(std::string_view name)
{
    const auto *const found = std::find(NAMES.begin(), NAMES.end(), name);
    if (found == NAMES.end()) {
        return std::nullopt;
    }
    return static_cast<verdict>(found - NAMES.begin());
}

bool is_good(verdict which)
{
    return which == verdict::pass || which == verdict::ignore;
}

bool is_lost(verdict which)
{
    return which > verdict::fail;
}

std::string_view name_of(standing which)
{
    static constexpr std::array<std::string_view, STANDING_COUNT> STANDINGS = {
        "same", "known", "new", "fixed", "changed"};
    return STANDINGS[static_cast<std::size_t>(which)];
}

std::string_view case_result::suite() const
{
    return row(number).suite;
}

case_result result_of(int number, verdict state, std::string message)
{
    case_result what;
    what.name = row(number).name;
    what.number = number;
    what.state = state;
    what.message = std::move(message);
    return what;
}

std::string words_against_baseline(const case_result &what)
{
    return what.against_baseline == standing::known ? "known" : what.difference;
}

bool is_excused(const case_result &what)
{
    return what.against_baseline == standing::known && what.state == verdict::fail;
}

tally count(const std::vector<case_result> &results)
{
    tally counts{};
    for (const case_result &result : results) {
        counts[static_cast<std::size_t>(result.state)]++;
    }
    return counts;
}

unsigned counted(const tally &counts, verdict which)
{
    return counts[static_cast<std::size_t>(which)];
}

std::string counts_text(const tally &counts)
{
    std::string text;
    for (const verdict which :
         {verdict::pass, verdict::ignore, verdict::fail, verdict::crash, verdict::hang,
          verdict::flood, verdict::damaged, verdict::unended, verdict::unseen, verdict::not_run}) {
        const unsigned number = counted(counts, which);
        if (number != 0 || which == verdict::pass) {
            text += (text.empty() ? "" : ", ") + std::to_string(number) + " ";
            text += COUNTED_AS[static_cast<std::size_t>(which)];
        }
    }
    return text;
}

std::vector<case_history> by_case(const std::vector<case_result> &results)
{
    std::vector<case_history> histories;
    std::map<int, std::size_t> places;
    for (const case_result &result : results) {
        const auto [place, is_new] = places.try_emplace(result.number, histories.size());
        if (is_new) {
            histories.push_back({&result, 0, 0});
        }
        case_history &history = histories[place->second];
        if (result.state > history.worst().state) {
            history.chosen = &result;
        }
        history.runs++;
        history.bad += is_good(result.state) ? 0U : 1U;
    }
    return histories;
}

std::string baseline_text(const std::vector<case_result> &results)
{
    std::array<unsigned, STANDING_COUNT> counts{};
    for (const case_history &each : by_case(results)) {
        counts[static_cast<std::size_t>(each.worst().against_baseline)]++;
    }
    std::string text;
    for (const standing which :
         {standing::fresh, standing::fixed, standing::known, standing::changed}) {
        const unsigned number = counts[static_cast<std::size_t>(which)];
        if (number == 0 && which == standing::changed) continue;
        text += (text.empty() ? "" : ", ") + std::to_string(number) + " ";
        text += name_of(which);
    }
    return text;
}

int exit_code(const run_record &record)
{
    bool ran = false;
    bool lost = record.incomplete;
    bool failed = record.lost_cases;
    for (const case_result &result : record.results) {
        ran |= result.state != verdict::not_run && result.state != verdict::unseen;
        lost |= is_lost(result.state);
        failed |= record.has_baseline ? !result.difference.empty() : result.state == verdict::fail;
    }
    if (!ran) {
        return NOTHING_RAN;
    }
    return lost ? SOME_LOST : failed ? SOME_FAILED : ALL_PASSED;
}

std::string comparable(const std::string &message)
{
    static constexpr std::string_view LINE = "' line=";
    std::string text = message.substr(0, tavor_output::MESSAGE_WIDTH);
    const std::size_t at = text.rfind(LINE);
    if (at != std::string::npos) {
        return text.substr(0, at + 1);
    }
    // The cut may have gone through it.
    if (text.size() == tavor_output::MESSAGE_WIDTH && text.starts_with("msg='")) {
        for (std::size_t kept = LINE.size() - 1; kept > 1; kept--) {
            if (text.ends_with(LINE.substr(0, kept))) {
                return text.substr(0, text.size() - kept + 1);
            }
        }
    }
    return text;
}

std::string time_now()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

} // namespace tavor_run

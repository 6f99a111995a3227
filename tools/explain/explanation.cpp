// SPDX-License-Identifier: MIT
#include "tools/explain/explanation.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/explain/clauses.h"
#include "tools/sequence/dependencies.h"
#include "tools/sequence/printer.h"
#include "tools/sequence/report.h"

namespace explain {

namespace {

using sequence::call_sequence;

constexpr std::size_t WIDTH = 140;

std::string numbered_call(const call_sequence &made, std::size_t index, bool with_answer)
{
    const sequence::call &one = made.calls[index];
    std::string text = std::to_string(index) + " " + sequence::thread_text(one.thread) +
                       call_text(one, made.variables);
    if (with_answer) text += " -> " + answer_text(one, made.answers[index], made.variables);
    if (text.size() > WIDTH) text = text.substr(0, WIDTH) + " ..";
    return text;
}

// "register_client, get_packet (2), trim_head"
std::string operations_of(const call_sequence &made)
{
    std::vector<std::pair<std::string_view, std::size_t>> counted;
    for (const sequence::call &each : made.calls) {
        const std::string_view name = sequence::schema_of(each.operation).name;
        const auto known = std::find_if(counted.begin(), counted.end(),
                                        [&](const auto &one) { return one.first == name; });
        if (known == counted.end()) {
            counted.emplace_back(name, 1);
        } else {
            known->second++;
        }
    }
    std::string text;
    for (const auto &[name, times] : counted) {
        text += (text.empty() ? "" : ", ") + std::string(name);
        if (times > 1) text += " (" + std::to_string(times) + ")";
    }
    return text;
}

std::string wrapped(const std::string &text, const std::string &margin)
{
    constexpr std::size_t COLUMNS = 96;
    std::istringstream words(text);
    std::string all;
    std::string line = margin;
    for (std::string word; words >> word;) {
        if (line.size() + word.size() + 1 > COLUMNS && line.size() > margin.size()) {
            all += line + "\n";
            line = margin;
        }
        line += (line.size() > margin.size() ? " " : "") + word;
    }
    return all + line + "\n";
}

// The calls that the objects of the guilty call have been in.
std::string lives(const explanation &one, std::size_t guilty)
{
    std::string text;
    for (const sequence::variable each : used_by(one.recorded.calls[guilty])) {
        std::string calls;
        for (std::size_t i = 0; i < guilty; i++) {
            const sequence::call &made = one.recorded.calls[i];
            const bool gives =
                std::find(made.names.begin(), made.names.end(), each) != made.names.end();
            if (!gives && !used_by(made).contains(each)) continue;
            calls += (calls.empty() ? "" : ", ") +
                     std::string(sequence::schema_of(made.operation).name) + " (" +
                     std::to_string(i) + ")";
        }
        text += wrapped(one.recorded.variables[static_cast<std::size_t>(each)].name + ": " +
                            (calls.empty() ? "not named before" : calls),
                        "  ");
    }
    return text;
}

std::string clause_text(const explanation &one, std::size_t index)
{
    const auto &which = sequence::schema_of(one.recorded.calls[index].operation);
    const std::string clause = clause_of(which.function);
    return clause.empty() ? "" : wrapped(std::string(which.function) + ", " + clause, "  ");
}

std::string ordinal_text(std::size_t number)
{
    const bool is_teen = number % 100 >= 11 && number % 100 <= 13;
    const char *ending = is_teen            ? "th"
                         : number % 10 == 1 ? "st"
                         : number % 10 == 2 ? "nd"
                         : number % 10 == 3 ? "rd"
                                            : "th";
    return std::to_string(number) + ending;
}

std::string profile_text(const explanation &one)
{
    std::string text;
    for (const sequence::configuration &each : one.judged.profile) {
        if (each.empty()) return "";
        text += (text.empty() ? "profile: " : " | ") + sequence::text_of(each);
    }
    return text + (text.empty() ? "" : "\n");
}

// Whether looking for causes would wait for long.
bool waits(const call_sequence &made)
{
    constexpr std::chrono::milliseconds LONG{300};
    std::chrono::milliseconds told{0};
    for (const sequence::call &each : made.calls) told += sequence::told_time(each);
    return told > LONG;
}

} // namespace

explanation explain(const case_outcome &outcome, call_sequence recorded,
                    const std::string &reference, bool with_causes)
{
    explanation one{
        outcome, place_of_check(outcome.name, outcome.message), std::move(recorded), {}, {}};
    one.judged = judge(one.recorded, reference);
    if (!one.judged.finding || !with_causes) return one;
    if (waits(one.recorded)) {
        for (std::size_t i = 0; i <= one.judged.finding->call; i++) one.why.led_there.push_back(i);
    } else {
        one.why = find_causes(one.recorded, one.judged, reference);
    }
    return one;
}

std::string guilty_text(const explanation &one)
{
    const sequence::finding &found = *one.judged.finding;
    const sequence::call &guilty = one.recorded.calls[found.call];
    const std::string name(sequence::schema_of(guilty.operation).name);
    std::string text = "first call that differs: the " +
                       ordinal_text(ordinal_of(one.recorded, found.call)) + " " + name;
    if (guilty.thread != 1) text += ", in thread " + std::to_string(guilty.thread);
    text += "\n  " + numbered_call(one.recorded, found.call, false) + "\n  " +
            expectation_text(found) + "\n";
    const std::string objects = lives(one, found.call);
    if (!objects.empty()) text += "its objects so far\n" + objects;
    if (one.why.without_effect) {
        text += "the answer is what it would be without\n  " +
                numbered_call(one.recorded, *one.why.without_effect, true) + "\n";
    } else if (!one.why.wrote.empty()) {
        text += "written by\n";
        for (const std::size_t each : one.why.wrote) {
            text += "  " + numbered_call(one.recorded, each, true) + "\n";
        }
    }
    text += "the contract\n" + clause_text(one, found.call);
    if (one.why.without_effect) text += clause_text(one, *one.why.without_effect);
    text += "calls that led there\n";
    for (const std::size_t each : one.why.led_there) {
        text += "  " + numbered_call(one.recorded, each, true) + "\n";
    }
    return text;
}

std::string to_text(const explanation &one)
{
    std::string text = one.outcome.name + ": " + one.outcome.verdict;
    if (!one.outcome.message.empty()) text += ": " + one.outcome.message;
    text += "\n" + wrapped(std::to_string(one.recorded.calls.size()) +
                               " calls: " + operations_of(one.recorded),
                           "  ");
    if (!one.check.file.empty()) {
        text += "check: " + one.check.file + ":" + std::to_string(one.check.line) + "\n";
    }
    if (one.judged.finding) {
        text += guilty_text(one);
    } else if (one.outcome.verdict == "pass" || one.outcome.verdict == "ignore" ||
               one.outcome.verdict == "recorded") {
        text += "no call differs from the contract\n";
    } else {
        text += "no call differs from the contract: case and reference library disagree, which is "
                "a finding about tavor\n";
    }
    return text + profile_text(one);
}

std::string to_json(const explanation &one)
{
    nlohmann::ordered_json object;
    object["case"] = one.outcome.name;
    object["verdict"] = one.outcome.verdict;
    object["message"] = one.outcome.message;
    object["check"] = {{"file", one.check.file}, {"line", one.check.line}};
    object["difference"] = nullptr;
    if (one.judged.finding) {
        const sequence::finding &found = *one.judged.finding;
        const sequence::call &guilty = one.recorded.calls[found.call];
        const auto &which = sequence::schema_of(guilty.operation);
        std::string expected;
        for (const std::string &each : found.allowed) {
            expected += (expected.empty() ? "" : ", ") + each;
        }
        if (expected.empty()) expected = found.difference.expected;
        const std::string part =
            found.difference.part == "result" ? "" : found.difference.part + "=";
        object["difference"] = {{"operation", which.name},
                                {"n", ordinal_of(one.recorded, found.call)},
                                {"thread", guilty.thread},
                                {"expected", part + expected},
                                {"got", part + found.difference.got},
                                {"clause", clause_of(which.function)}};
    }
    object["profile"] = nlohmann::json::array();
    for (const sequence::configuration &each : one.judged.profile) {
        if (!each.empty()) object["profile"].push_back(sequence::text_of(each));
    }
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

} // namespace explain

// SPDX-License-Identifier: MIT
#include "tools/diagnosis/report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace diagnosis {

namespace {

// Of longer lists the beginning is printed.
constexpr std::size_t MOST_FAULTS = 20;
constexpr std::size_t MOST_SUSPECTS = 10;

std::string counted(std::size_t count, const std::string &what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string names_of(const group &faults)
{
    std::string text;
    for (const known_fault *each : faults) text += (text.empty() ? "" : ", ") + each->name;
    return text;
}

std::string faults_text(const table &known, const diagnosis &made)
{
    std::size_t count = 0;
    for (const group &each : made.consistent) count += each.size();
    std::string text = std::to_string(count) + " of " +
                       counted(known.faults.size(), "known fault") +
                       (count == 1 ? " explains" : " explain") + " all of it\n";
    std::size_t printed = 0;
    for (const group &each : made.consistent) {
        if (printed >= MOST_FAULTS) {
            text += "  " + std::to_string(count - printed) + " more\n";
            break;
        }
        for (const known_fault *fault : each) {
            text += "  " + fault->name + "  " + fault->text + "\n";
        }
        if (each.size() > 1) text += "    (no case tells these apart)\n";
        printed += each.size();
    }
    return text;
}

std::string next_text(const further_case &next)
{
    std::string text =
        (next.is_explained ? "explain " : "run ") + next.name + " to tell them apart\n";
    for (const auto &[faults, way] : next.would_end) {
        text += "  " + (next.is_explained ? way.call : text_of(way)) + "\n    " + names_of(faults) +
                "\n";
    }
    return text;
}

std::string suspects_text(const diagnosis &made)
{
    std::string text = "no known fault alone explains all of it; operations that the failed cases "
                       "call, the most suspicious first\n";
    for (std::size_t i = 0; i < std::min(made.suspects.size(), MOST_SUSPECTS); i++) {
        const suspect &each = made.suspects[i];
        char line[160];
        std::snprintf(line, sizeof line, "  %.2f %-28s in %zu of %zu failed, %zu of %zu good\n",
                      each.score, each.operation.c_str(), each.in_failed, made.failed, each.in_good,
                      made.good);
        text += line;
    }
    return text;
}

} // namespace

std::string to_text(const table &known, const evidence &told, const diagnosis &made)
{
    std::string text = std::to_string(made.failed) + " failed, " + std::to_string(made.good) +
                       " good, " +
                       std::to_string(known.operations.size() -
                                      std::min(known.operations.size(), made.failed + made.good)) +
                       " not told of\n";
    if (!told.has_lines) {
        text += "the line numbers are another tavor's: messages are compared without them\n";
    }
    if (made.failed == 0 && (told.is_whole || made.consistent.empty())) return text;
    if (made.consistent.empty()) return text + suspects_text(made);
    text += faults_text(known, made);
    if (made.next) text += next_text(*made.next);
    return text;
}

std::string to_json(const diagnosis &made)
{
    using nlohmann::ordered_json;
    ordered_json object = {{"failed", made.failed}, {"good", made.good}};
    object["faults"] = ordered_json::array();
    for (const group &each : made.consistent) {
        ordered_json faults = ordered_json::array();
        for (const known_fault *one : each) {
            faults.push_back({{"fault", one->name}, {"text", one->text}});
        }
        object["faults"].push_back(faults);
    }
    object["next"] = nullptr;
    if (made.next) {
        object["next"] = {{"case", made.next->name},
                          {"explain", made.next->is_explained},
                          {"ends", ordered_json::array()}};
        for (const auto &[faults, way] : made.next->would_end) {
            ordered_json names = ordered_json::array();
            for (const known_fault *one : faults) names.push_back(one->name);
            object["next"]["ends"].push_back(
                {{"faults", names}, {"as", made.next->is_explained ? way.call : text_of(way)}});
        }
    }
    object["operations"] = ordered_json::array();
    for (const suspect &each : made.suspects) {
        object["operations"].push_back({{"operation", each.operation},
                                        {"score", each.score},
                                        {"failed", each.in_failed},
                                        {"good", each.in_good}});
    }
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

} // namespace diagnosis

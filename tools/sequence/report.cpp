// SPDX-License-Identifier: MIT
#include "tools/sequence/report.h"

#include <algorithm>

#include "tools/sequence/printer.h"

namespace sequence {

namespace {

std::string uncompared_text(const call_sequence &made)
{
    std::string text;
    for (const uncompared_part &each : uncompared_parts(made)) {
        text += "not compared: " + each.operation + "'s " + each.part + ", " +
                std::to_string(each.times) + (each.times == 1 ? " time" : " times") + ": " +
                each.reason + "\n";
    }
    return text;
}

} // namespace

std::optional<finding> first_difference(const call_sequence &first, const call_sequence &second)
{
    const std::size_t count = std::max(first.answers.size(), second.answers.size());
    for (std::size_t i = 0; i < count; i++) {
        if (i >= first.answers.size() || i >= second.answers.size()) break;
        const auto found = compare(first.calls[i], first.answers[i], second.answers[i],
                                   first.variables, first.shadow_of(i));
        if (found) return finding{i, *found, {found->expected}};
    }
    return std::nullopt;
}

std::string expectation_text(const finding &found)
{
    const std::string part = found.difference.part == "result" ? "" : found.difference.part + ": ";
    if (found.allowed.size() < 2) {
        return part + "expected " + found.difference.expected + ", got " + found.difference.got;
    }
    std::string allowed;
    for (const std::string &each : found.allowed) allowed += (allowed.empty() ? "" : ", ") + each;
    return part + "allowed were: " + allowed + "; got " + found.difference.got;
}

std::string difference_text(const call_sequence &made, const std::optional<finding> &found)
{
    if (!found) {
        return "no difference in " + std::to_string(made.calls.size()) + " calls\n" +
               uncompared_text(made);
    }
    const call &guilty = made.calls[found->call];
    return "call " + std::to_string(found->call) +
           " differs: " + call_text(guilty, made.variables) + "\n" + expectation_text(*found) +
           "\n" + uncompared_text(made);
}

std::string verdict_text(const call_sequence &made, const verdict &judged)
{
    std::string text = difference_text(made, judged.finding);
    const auto is_default = [](const configuration &each) { return each.empty(); };
    if (std::any_of(judged.profile.begin(), judged.profile.end(), is_default)) return text;
    const char *separator = "profile: ";
    for (const configuration &each : judged.profile) {
        text += separator + text_of(each);
        separator = " | ";
    }
    return text + "\n";
}

} // namespace sequence

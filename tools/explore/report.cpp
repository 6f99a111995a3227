// SPDX-License-Identifier: MIT
#include "tools/explore/report.h"

#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/explain/clauses.h"
#include "tools/sequence/constants.h"

namespace explore {

namespace {

using json = nlohmann::ordered_json;

std::string line_of(const json &object)
{
    return object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

// Words of capitals that are errors or notices.
std::set<std::uint64_t> errors_named(const std::string &clause)
{
    std::set<std::uint64_t> named;
    std::string word;
    for (const char each : clause + " ") {
        if (std::isupper(static_cast<unsigned char>(each)) != 0 || each == '_') {
            word += each;
            continue;
        }
        const auto number = sequence::constant_number(word);
        if (number && (word.front() == 'E' || word.starts_with("KEL_HIGH_") ||
                       word.starts_with("KEL_LOW_"))) {
            named.insert(*number);
        }
        word.clear();
    }
    return named;
}

std::string shortened(double number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", number);
    return text;
}

} // namespace

std::string to_json(const found &one)
{
    return line_of({{"operation", one.operation},
                    {"n", one.n},
                    {"expected", one.expected},
                    {"got", one.got},
                    {"clause", one.clause},
                    {"calls", one.calls},
                    {"sequence", one.text}});
}

std::string to_json(const totals &all, const library_profile &learned)
{
    return line_of({{"sequences", all.sequences},
                    {"calls", all.calls},
                    {"seconds", all.seconds},
                    {"profile", sequence::text_of(learned.chosen)}});
}

std::string profile_text(const library_profile &learned)
{
    const std::string chosen = sequence::text_of(learned.chosen);
    return std::to_string(learned.known.size()) + " choices found out; " +
           (chosen.empty() ? "all are the reference library's"
                           : "other than the reference "
                             "library's: " +
                                 chosen) +
           "\n";
}

std::string to_text(const found &one, std::size_t number)
{
    const auto *which = sequence::find_operation(one.operation);
    const bool is_system = which == nullptr || which->is_system();
    return "finding " + std::to_string(number) + ": " + (is_system ? "" : "kel_") + one.operation +
           ", call " + std::to_string(one.n) + " of it: expected " + one.expected + ", got " +
           one.got + "\n" + one.text + "the contract: " + one.clause + "\n\n";
}

std::vector<std::string> never_reached(const std::set<std::uint64_t> &reached)
{
    std::vector<std::string> missing;
    for (const auto &which : sequence::operations()) {
        if (which.is_system()) continue;
        const std::uint64_t upper = std::uint64_t{number_of(which)} << 32;
        for (const std::uint64_t error : errors_named(explain::clause_of(which.function))) {
            if (reached.contains(upper | error)) continue;
            const char *name = sequence::constant_name(interface::form::error, error);
            missing.push_back(std::string(which.name) + " " +
                              (name ? name : std::to_string(error)));
        }
    }
    return missing;
}

std::string to_text(const totals &all, std::size_t findings)
{
    const double time = all.seconds > 0 ? all.seconds : 1;
    std::string text =
        std::to_string(all.sequences) + " sequences, " + std::to_string(all.calls) + " calls in " +
        shortened(all.seconds) + " s: " +
        std::to_string(static_cast<std::uint64_t>(static_cast<double>(all.sequences) / time)) +
        " sequences a second; findings: " + std::to_string(findings) + "\n";
    if (all.not_again > 0) {
        text += "differences that did not come again in a fresh process: " +
                std::to_string(all.not_again) + "\n";
    }
    if (all.not_looked_into > 0) {
        text +=
            "differences that were not looked into: " + std::to_string(all.not_looked_into) + "\n";
    }
    const auto missing = never_reached(all.reached);
    if (missing.empty()) return text;
    text += "never reached:";
    for (const std::string &each : missing) text += (&each == &missing.front() ? " " : ", ") + each;
    return text + "\n";
}

} // namespace explore

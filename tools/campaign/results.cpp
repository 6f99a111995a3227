// SPDX-License-Identifier: MIT
//
// Writing, reading back and summing up results.
#include "tools/campaign/results.h"

#include <iomanip>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>

#include "tools/common/registry.h"

namespace campaign {

namespace {

constexpr std::array<outcome, OUTCOMES> ALL_OUTCOMES = {
    outcome::caught, outcome::caught_elsewhere,
    outcome::missed, outcome::not_reached,
    outcome::crash,  outcome::hang,
    outcome::leak,   outcome::stray_message,
};

nlohmann::json as_json(const result &written)
{
    return {{"id", written.id},
            {"test", written.test},
            {"faults", written.faults},
            {"expected", written.expected},
            {"place", written.place},
            {"outcome", name_of(written.reached)},
            {"shown", written.shown},
            {"detail", written.detail},
            {"repeat", written.repeat},
            {"explanation", written.explanation},
            {"microseconds", written.microseconds}};
}

result from_json(const nlohmann::json &read)
{
    result parsed;
    parsed.id = read.at("id");
    parsed.test = read.at("test");
    parsed.faults = read.at("faults");
    parsed.expected = read.at("expected");
    parsed.place = read.at("place");
    parsed.shown = read.at("shown");
    parsed.detail = read.at("detail");
    parsed.repeat = read.at("repeat");
    parsed.explanation = read.at("explanation");
    parsed.microseconds = read.at("microseconds");
    const std::string name = read.at("outcome");
    for (const outcome candidate : ALL_OUTCOMES) {
        if (name == name_of(candidate)) {
            parsed.reached = candidate;
            return parsed;
        }
    }
    throw std::runtime_error("unknown outcome: " + name);
}

} // namespace

results_file::results_file(const std::string &path, bool resume)
{
    if (path.empty()) {
        return;
    }
    if (resume) {
        std::ifstream existing(path);
        for (std::string line; std::getline(existing, line);) {
            // A line cut by an interruption counts as not run.
            const nlohmann::json parsed = nlohmann::json::parse(line, nullptr, false);
            if (!parsed.is_discarded()) {
                const result known = from_json(parsed);
                earlier[known.id] = known;
            }
        }
        existing.close();
    }
    stream.open(path, std::ios::trunc);
    if (!stream) {
        throw std::runtime_error(path + ": cannot be written");
    }
    for (const auto &[id, kept] : earlier) {
        append(kept);
    }
}

const result *results_file::known(const std::string &id) const
{
    const auto found = earlier.find(id);
    return found == earlier.end() ? nullptr : &found->second;
}

void results_file::append(const result &added)
{
    if (stream.is_open()) {
        stream << as_json(added).dump() << '\n' << std::flush;
    }
}

void print_table(std::ostream &out, const std::vector<result> &results)
{
    std::map<std::string, tally> suites;
    tally sum;
    for (const result &counted : results) {
        suites[tools::suite_of(counted.test)].add(counted.reached);
        sum.add(counted.reached);
    }
    const auto print_row = [&](const std::string &name, const tally &row) {
        out << std::left << std::setw(24) << name << std::right << std::setw(8) << row.total;
        for (const outcome column : ALL_OUTCOMES) {
            if (sum.of(column) != 0) {
                out << std::setw(18) << row.of(column);
            }
        }
        out << '\n';
    };
    out << std::left << std::setw(24) << "suite" << std::right << std::setw(8) << "runs";
    for (const outcome column : ALL_OUTCOMES) {
        if (sum.of(column) != 0) {
            out << std::setw(18) << name_of(column);
        }
    }
    out << '\n';
    for (const auto &[suite, row] : suites) {
        print_row(suite, row);
    }
    print_row("all", sum);
}

void print_explained(std::ostream &out, const std::vector<result> &results)
{
    std::map<std::string, unsigned> reasons;
    for (const result &explained : results) {
        if (!explained.explanation.empty()) {
            reasons[std::string(name_of(explained.reached)) + ", " + explained.explanation]++;
        }
    }
    for (const auto &[reason, count] : reasons) {
        out << "explained: " << count << " x " << reason << '\n';
    }
}

void print_finding(std::ostream &out, const result &found)
{
    out << name_of(found.reached) << ": " << found.test << " under " << found.faults;
    if (!found.place.empty()) {
        out << " (" << found.place << ")";
    }
    out << '\n';
    if (!found.expected.empty()) {
        out << "    expected: " << found.expected << '\n';
    }
    out << "    shown:    " << (found.shown.empty() ? "no failure" : found.shown) << '\n';
    if (!found.detail.empty()) {
        out << "    detail:   " << found.detail << '\n';
    }
    out << "    repeat:   " << found.repeat << '\n';
}

} // namespace campaign

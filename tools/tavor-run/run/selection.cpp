// SPDX-License-Identifier: MIT
#include "tools/tavor-run/run/selection.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>

#include "tools/common/hash.h"
#include "tools/common/numbers.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/run/suggestion.h"

namespace tavor_run {

namespace {

using row_set = std::set<int>;

constexpr int MAX_FILE_DEPTH = 8;

int case_count()
{
    return static_cast<int>(tools::all_cases().size());
}

row_set all_rows()
{
    row_set rows;
    for (int row = 0; row < case_count(); row++) {
        rows.insert(rows.end(), row);
    }
    return rows;
}

// A number or a range; empty when the term is neither.
row_set rows_numbered(const std::string &term)
{
    const std::size_t dash = term.find('-');
    const auto first = tools::parse_number<unsigned>(term.substr(0, dash));
    const auto last =
        dash == std::string::npos ? first : tools::parse_number<unsigned>(term.substr(dash + 1));
    if (!first || !last) {
        return {};
    }
    if (*first > *last || *last >= static_cast<unsigned>(case_count())) {
        throw usage_error("no such cases: " + term + " (numbers go from 0 to " +
                          std::to_string(case_count() - 1) + ")");
    }
    row_set rows;
    for (unsigned row = *first; row <= *last; row++) {
        rows.insert(static_cast<int>(row));
    }
    return rows;
}

row_set rows_named(const std::string &term)
{
    row_set rows;
    for (int row = 0; row < case_count(); row++) {
        const tools::test_case &candidate = tools::all_cases()[static_cast<std::size_t>(row)];
        if (fnmatch(term.c_str(), std::string(candidate.name).c_str(), 0) == 0 ||
            fnmatch(term.c_str(), std::string(candidate.suite).c_str(), 0) == 0) {
            rows.insert(row);
        }
    }
    return rows;
}

std::vector<std::string> terms_in_file(const std::string &path)
{
    std::ifstream file(path);
    if (!file) {
        throw usage_error("cannot read " + path);
    }
    std::vector<std::string> terms;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        for (std::string word; words >> word;) {
            terms.push_back(word);
        }
    }
    return terms;
}

row_set rows_of(const std::vector<std::string> &terms, int depth);

row_set rows_of_term(const std::string &term, int depth)
{
    if (term.starts_with('@')) {
        if (depth == MAX_FILE_DEPTH) {
            throw usage_error(term + ": files name each other");
        }
        return rows_of(terms_in_file(term.substr(1)), depth + 1);
    }
    row_set rows = rows_numbered(term);
    if (rows.empty()) {
        rows = rows_named(term);
    }
    if (rows.empty()) {
        throw no_such("case or suite", term);
    }
    return rows;
}

row_set rows_of(const std::vector<std::string> &terms, int depth)
{
    row_set added;
    row_set removed;
    bool adds = false;
    for (const std::string &term : terms) {
        if (term.starts_with('!')) {
            removed.merge(rows_of_term(term.substr(1), depth));
        } else {
            added.merge(rows_of_term(term, depth));
            adds = true;
        }
    }
    if (!adds && !(terms.empty() && depth > 0)) {
        added = all_rows();
    }
    row_set rows;
    std::set_difference(added.begin(), added.end(), removed.begin(), removed.end(),
                        std::inserter(rows, rows.end()));
    return rows;
}

// With a final mix, so that names that differ in their last letters come apart.
std::uint64_t shuffle_key(std::uint64_t seed, std::string_view name)
{
    std::array<char, 8> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i++) {
        bytes[i] = static_cast<char>(seed >> (8 * i));
    }
    std::uint64_t hash = tools::hash_of(name, tools::hash_of({bytes.data(), bytes.size()}));
    hash = (hash ^ (hash >> 33)) * 0xff51afd7ed558ccdU;
    return hash ^ (hash >> 33);
}

} // namespace

std::vector<int> select_cases(const std::vector<std::string> &terms)
{
    const row_set rows = rows_of(terms, 0);
    if (rows.empty()) {
        throw usage_error("nothing is selected");
    }
    return {rows.begin(), rows.end()};
}

std::vector<int> rows_of_shard(const std::vector<int> &rows, const shard &part)
{
    std::vector<int> taken;
    for (std::size_t i = part.index - 1; i < rows.size(); i += part.count) {
        taken.push_back(rows[i]);
    }
    if (taken.empty()) {
        throw usage_error("this shard is empty");
    }
    return taken;
}

std::vector<int> shuffled(std::vector<int> rows, std::uint64_t seed)
{
    std::sort(rows.begin(), rows.end(), [seed](int left, int right) {
        const auto key = [seed](int row) {
            const std::string_view name = tools::all_cases()[static_cast<std::size_t>(row)].name;
            return std::pair{shuffle_key(seed, name), name};
        };
        return key(left) < key(right);
    });
    return rows;
}

std::vector<std::vector<int>> ascending_groups(const std::vector<int> &rows)
{
    std::vector<std::vector<int>> groups;
    for (const int row : rows) {
        if (groups.empty() || groups.back().back() >= row) {
            groups.emplace_back();
        }
        groups.back().push_back(row);
    }
    return groups;
}

std::vector<std::string> names_selecting(const std::vector<int> &rows)
{
    if (rows.size() == static_cast<std::size_t>(case_count())) {
        return {};
    }
    std::map<std::string_view, int> not_selected; // cases of a suite
    for (const tools::test_case &candidate : tools::all_cases()) {
        not_selected[candidate.suite]++;
    }
    for (const int row : rows) {
        not_selected[tools::all_cases()[static_cast<std::size_t>(row)].suite]--;
    }
    std::vector<std::string> names;
    std::set<std::string_view> suites;
    for (const int row : rows) {
        const tools::test_case &selected = tools::all_cases()[static_cast<std::size_t>(row)];
        if (not_selected[selected.suite] != 0) {
            names.emplace_back(selected.name);
        } else if (suites.insert(selected.suite).second) {
            names.emplace_back(selected.suite);
        }
    }
    return names;
}

} // namespace tavor_run

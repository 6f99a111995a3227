// SPDX-License-Identifier: MIT
#include "tools/tavor-run/compare/comparison.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <tuple>

#include "tools/common/registry.h"
#include "tools/tavor-run/results/baseline.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t BUILD_ID_SHOWN = 12;

bool all_different(const std::vector<std::string> &names)
{
    const std::set<std::string> distinct(names.begin(), names.end());
    return distinct.size() == names.size() && !distinct.contains("");
}

// The first thing that tells all runs apart: machine, library, program, file.
std::vector<std::string> names_from_reports(const std::vector<stored_run> &runs)
{
    const std::vector<std::function<std::string(const stored_run &)>> traits = {
        [](const stored_run &run) { return run.identity.host; },
        [](const stored_run &run) {
            return run.identity.library.build_id.substr(0, BUILD_ID_SHOWN);
        },
        [](const stored_run &run) { return run.identity.tree; },
        [](const stored_run &run) { return fs::path(run.path).stem().string(); },
    };
    std::vector<std::string> names(runs.size());
    for (const auto &trait : traits) {
        std::transform(runs.begin(), runs.end(), names.begin(), trait);
        if (all_different(names)) {
            return names;
        }
    }
    std::map<std::string, unsigned> seen;
    std::transform(runs.begin(), runs.end(), names.begin(), [&](const stored_run &run) {
        const unsigned before = seen[run.path]++;
        return run.path + (before == 0 ? "" : " (" + std::to_string(before + 1) + ")");
    });
    return names;
}

std::vector<comparison_column> columns_of(const std::vector<named_report> &reports)
{
    std::vector<stored_run> runs;
    runs.reserve(reports.size());
    for (const named_report &each : reports) {
        runs.push_back(read_results(each.path));
    }
    const std::vector<std::string> own_names = names_from_reports(runs);
    std::vector<comparison_column> columns;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < reports.size(); i++) {
        comparison_column column;
        column.name = reports[i].name.empty() ? own_names[i] : reports[i].name;
        for (const outcome &each : runs[i].results) {
            column.counts[static_cast<std::size_t>(each.state)]++;
        }
        column.run = std::move(runs[i]);
        names.push_back(column.name);
        columns.push_back(std::move(column));
    }
    if (!all_different(names)) {
        throw usage_error("two reports have the same name: use name=file");
    }
    return columns;
}

// Of one run when each names another shard of as many.
bool are_shards(const std::vector<comparison_column> &columns)
{
    std::set<std::size_t> seen;
    for (const comparison_column &each : columns) {
        if (!each.run.part || each.run.part->count != columns[0].run.part->count ||
            each.run.part->count < 2) {
            return false;
        }
        seen.insert(each.run.part->index);
    }
    return seen.size() == columns.size();
}

std::vector<std::string> missing_shards(const std::vector<comparison_column> &columns)
{
    const std::size_t count = columns[0].run.part->count;
    std::vector<std::string> missing;
    for (std::size_t index = 1; index <= count; index++) {
        if (std::none_of(columns.begin(), columns.end(), [&](const comparison_column &each) {
                return each.run.part->index == index;
            })) {
            missing.push_back(std::to_string(index) + "/" + std::to_string(count));
        }
    }
    return missing;
}

// Measured against the first run that judged the case. One that left it out says nothing.
bool differs(const comparison_row &row, bool is_sharded)
{
    const outcome *first = nullptr;
    bool is_absent = false;
    for (const auto &cell : row.cells) {
        is_absent |= !cell;
        if (!cell || cell->state == verdict::not_run) {
            continue;
        }
        if (first == nullptr) {
            first = &*cell;
        } else if (!compare(*first, *cell).text.empty()) {
            return true;
        }
    }
    return is_absent && !is_sharded;
}

bool has_bad(const comparison_row &row)
{
    return std::any_of(row.cells.begin(), row.cells.end(), [](const auto &cell) {
        return cell && !is_good(cell->state) && cell->state != verdict::not_run;
    });
}

std::vector<comparison_row> rows_of(const std::vector<comparison_column> &columns, bool is_sharded)
{
    std::vector<comparison_row> rows;
    std::map<std::string, std::size_t> places;
    for (std::size_t i = 0; i < columns.size(); i++) {
        for (const outcome &each : columns[i].run.results) {
            const auto [place, is_new] = places.try_emplace(each.name, rows.size());
            if (is_new) {
                rows.push_back({each.name, {}, false, false});
                rows.back().cells.resize(columns.size());
            }
            rows[place->second].cells[i] = each;
        }
    }
    for (comparison_row &each : rows) {
        each.differs = differs(each, is_sharded);
        each.has_bad = has_bad(each);
    }
    std::stable_sort(
        rows.begin(), rows.end(), [](const comparison_row &left, const comparison_row &right) {
            return std::pair(left.differs, left.has_bad) > std::pair(right.differs, right.has_bad);
        });
    return rows;
}

} // namespace

std::size_t comparison::differing() const
{
    return static_cast<std::size_t>(std::count_if(
        rows.begin(), rows.end(), [](const comparison_row &each) { return each.differs; }));
}

named_report parse_report_name(const std::string &argument)
{
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos || equals == 0 || fs::exists(argument)) {
        return {"", argument};
    }
    return {argument.substr(0, equals), argument.substr(equals + 1)};
}

comparison compare_reports(const std::vector<named_report> &reports)
{
    comparison result;
    result.columns = columns_of(reports);
    result.is_sharded = are_shards(result.columns);
    if (result.is_sharded) {
        result.missing_shards = missing_shards(result.columns);
    }
    result.rows = rows_of(result.columns, result.is_sharded);
    return result;
}

int exit_code(const comparison &of)
{
    const auto counted_in_all = [&](auto wanted) {
        return std::any_of(of.rows.begin(), of.rows.end(), [&](const comparison_row &row) {
            return std::any_of(row.cells.begin(), row.cells.end(),
                               [&](const auto &cell) { return cell && wanted(cell->state); });
        });
    };
    if (std::any_of(of.columns.begin(), of.columns.end(),
                    [](const comparison_column &each) { return each.run.results.empty(); })) {
        return NOTHING_RAN;
    }
    if (of.is_sharded) {
        const bool is_cut =
            std::any_of(of.columns.begin(), of.columns.end(), [](const comparison_column &each) {
                return !each.run.has_end || each.run.exit_status == SOME_LOST;
            });
        if (!of.missing_shards.empty() || is_cut || counted_in_all(is_lost)) {
            return SOME_LOST;
        }
        return counted_in_all([](verdict state) { return state == verdict::fail; }) ? SOME_FAILED
                                                                                    : ALL_PASSED;
    }
    return of.differing() == 0 ? ALL_PASSED : SOME_FAILED;
}

std::string column_facts(const comparison_column &column)
{
    const program_identity &identity = column.run.identity;
    std::string text = column.run.path + ", " + column.run.started;
    text += column.run.has_end ? "" : ", cut short";
    text += column.run.part ? ", shard " + std::to_string(column.run.part->index) + "/" +
                                  std::to_string(column.run.part->count)
                            : "";
    text += identity.host.empty() ? "" : ", on " + identity.host;
    text += identity.path.empty() ? "" : ", tavor " + identity.target + " " + identity.tree;
    if (!identity.library.path.empty()) {
        text += ", library " + identity.library.path + " " +
                identity.library.build_id.substr(0, BUILD_ID_SHOWN);
    }
    text += identity.settings.empty() ? "" : ", with " + identity.settings;
    return text;
}

} // namespace tavor_run

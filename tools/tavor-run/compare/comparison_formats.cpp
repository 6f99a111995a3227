// SPDX-License-Identifier: MIT
//
// A comparison as a table for people, and as JSON lines.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/tavor-run/compare/comparison.h"

namespace tavor_run {

namespace {

using nlohmann::json;

class text_table {
public:
    text_table(const comparison &of, table_detail how_much) : what(of), detail(how_much)
    {
        first_width = std::string_view("results").size();
        for (const comparison_row &row : what.rows) {
            first_width = std::max(first_width, shows(row) ? row.name.size() : 0);
        }
        for (const comparison_column &column : what.columns) {
            widths.push_back(std::max(column.name.size(), name_of(verdict::damaged).size()));
        }
    }

    bool shows(const comparison_row &row) const
    {
        return row.differs || detail == table_detail::all ||
               (row.has_bad && (detail == table_detail::not_good || what.is_sharded));
    }

    template <typename Cell> std::string line(const std::string &first, Cell cell) const
    {
        std::string text = first;
        std::size_t width = first_width;
        for (std::size_t i = 0; i < widths.size(); i++) {
            text.resize(std::max(text.size(), width), ' ');
            text += "  ";
            width = text.size() + widths[i];
            text += cell(i);
        }
        return text.substr(0, text.find_last_not_of(' ') + 1) + "\n";
    }

    // The verdicts, and below them each message that is not the one before.
    std::string row(const comparison_row &of) const
    {
        std::string text =
            line(of.name, [&](std::size_t i) { return std::string(word(of.cells[i])); });
        std::string last;
        for (std::size_t i = 0; i < of.cells.size(); i++) {
            const std::string message = of.cells[i] ? of.cells[i]->message : "";
            if (!message.empty() && message != last) {
                text += "    " + what.columns[i].name + ": " + message + "\n";
                last = message;
            }
        }
        return text;
    }

    std::string totals() const
    {
        std::string text = line("results", [&](std::size_t i) {
            return std::to_string(what.columns[i].run.results.size());
        });
        for (const verdict each : counted_verdicts(what)) {
            text += line("  " + std::string(name_of(each)), [&](std::size_t i) {
                return std::to_string(counted(what.columns[i].counts, each));
            });
        }
        return text;
    }

private:
    const comparison &what;
    table_detail detail;
    std::size_t first_width = 0;
    std::vector<std::size_t> widths;
};

// Messages come from outside and need not be UTF-8.
std::string json_line(const json &object)
{
    return object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

json json_of(const comparison_column &column)
{
    json counts = json::object();
    for (std::size_t i = 0; i < column.counts.size(); i++) {
        counts[std::string(name_of(static_cast<verdict>(i)))] = column.counts[i];
    }
    return {{"name", column.name},
            {"file", column.run.path},
            {"started", column.run.started},
            {"host", column.run.identity.host},
            {"tree", column.run.identity.tree},
            {"build_id", column.run.identity.library.build_id},
            {"complete", column.run.has_end},
            {"counts", counts}};
}

} // namespace

std::string text_of(const comparison &what, table_detail detail)
{
    const text_table table(what, detail);
    std::string text;
    for (const comparison_column &column : what.columns) {
        text += column.name + ": " + column_facts(column) + "\n";
    }
    text += "\n" + table.line("", [&](std::size_t i) { return what.columns[i].name; });
    std::size_t left_out = 0;
    for (const comparison_row &row : what.rows) {
        if (table.shows(row)) {
            text += table.row(row);
        } else {
            left_out++;
        }
    }
    if (left_out > 0) {
        text += std::to_string(left_out) + " more cases do not differ\n";
    }
    return text + "\n" + table.totals() + "\n" + ending_text(what);
}

std::string json_lines_of(const comparison &what)
{
    json columns = json::array();
    for (const comparison_column &column : what.columns) {
        columns.push_back(json_of(column));
    }
    std::string text = json_line({{"type", "compare"}, {"format", 1}, {"reports", columns}});
    for (const comparison_row &row : what.rows) {
        json verdicts = json::array();
        json messages = json::array();
        for (const auto &cell : row.cells) {
            verdicts.push_back(cell ? json(name_of(cell->state)) : json());
            messages.push_back(cell ? json(cell->message) : json());
        }
        text += json_line({{"type", "case"},
                           {"name", row.name},
                           {"differs", row.differs},
                           {"verdicts", verdicts},
                           {"messages", messages}});
    }
    return text + json_line({{"type", "end"},
                             {"differing", what.differing()},
                             {"missing_shards", what.missing_shards},
                             {"exit", exit_code(what)}});
}

} // namespace tavor_run

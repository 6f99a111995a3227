// SPDX-License-Identifier: MIT
//
// A comparison as a table for people, as a page, and as JSON lines.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/tavor-run/compare/comparison.h"
#include "tools/tavor-run/formats/markup.h"

namespace tavor_run {

namespace {

using nlohmann::json;

constexpr std::string_view ABSENT = "-";

// From good to bad.
constexpr std::array<verdict, VERDICT_COUNT> SHOWN_ORDER = {
    verdict::pass, verdict::ignore, verdict::not_run, verdict::fail,    verdict::crash,
    verdict::hang, verdict::flood,  verdict::damaged, verdict::unended, verdict::unseen};

std::string_view word(const std::optional<outcome> &cell)
{
    return cell ? name_of(cell->state) : ABSENT;
}

// The verdicts that occur at all: each has a row of totals.
std::vector<verdict> counted_verdicts(const comparison &what)
{
    std::vector<verdict> found;
    for (const verdict each : SHOWN_ORDER) {
        if (std::any_of(what.columns.begin(), what.columns.end(),
                        [&](const auto &column) { return counted(column.counts, each) > 0; })) {
            found.push_back(each);
        }
    }
    return found;
}

std::string ending_text(const comparison &what)
{
    std::string text = std::to_string(what.differing()) + " of " +
                       std::to_string(what.rows.size()) + " cases differ\n";
    if (!what.is_sharded) {
        return text;
    }
    text = std::to_string(what.rows.size()) + " cases in " + std::to_string(what.columns.size()) +
           " shards of one run\n";
    for (const std::string &each : what.missing_shards) {
        text += "shard " + each + " is missing\n";
    }
    return text;
}

class text_table {
public:
    text_table(const comparison &of, bool is_quiet) : what(of), quiet(is_quiet)
    {
        first_width = std::string_view("results").size();
        for (const comparison_row &row : what.rows) {
            first_width = std::max(first_width, shows(row) ? row.name.size() : 0);
        }
        for (const comparison_column &column : what.columns) {
            widths.push_back(std::max(column.name.size(), name_of(verdict::damaged).size()));
        }
    }

    bool shows(const comparison_row &row) const { return !quiet || row.differs || row.has_bad; }

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
    bool quiet;
    std::size_t first_width = 0;
    std::vector<std::size_t> widths;
};

std::string html_row(const std::string &first, const std::vector<std::string> &cells)
{
    std::string text = "<tr><th>" + first + "</th>";
    for (const std::string &cell : cells) {
        text += "<td>" + cell + "</td>";
    }
    return text + "</tr>\n";
}

std::string html_cell(const std::optional<outcome> &cell)
{
    const std::string state(word(cell));
    return "<span class=\"" + state + "\">" + state + "</span>" +
           (cell && !cell->message.empty() ? "<br>" + escaped(cell->message) : "");
}

std::string html_totals(const comparison &what)
{
    std::string text;
    for (const verdict each : counted_verdicts(what)) {
        std::vector<std::string> numbers;
        for (const comparison_column &column : what.columns) {
            numbers.push_back(std::to_string(counted(column.counts, each)));
        }
        text += html_row(std::string(name_of(each)), numbers);
    }
    return text;
}

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

std::string text_of(const comparison &what, bool quiet)
{
    const text_table table(what, quiet);
    std::string text;
    for (const comparison_column &column : what.columns) {
        text += column.name + ": " + column_facts(column) + "\n";
    }
    text += "\n" + table.line("", [&](std::size_t i) { return what.columns[i].name; });
    for (const comparison_row &row : what.rows) {
        if (table.shows(row)) {
            text += table.row(row);
        }
    }
    return text + "\n" + table.totals() + "\n" + ending_text(what);
}

std::string html_of(const comparison &what)
{
    std::string text = html_head("tavor") + "<table>\n";
    std::vector<std::string> names;
    for (const comparison_column &column : what.columns) {
        names.push_back("<b>" + escaped(column.name) + "</b>");
        text += html_row(escaped(column.name), {escaped(column_facts(column))});
    }
    text += "</table>\n<p>" + escaped(ending_text(what)) + "</p>\n<table>\n" + html_row("", names) +
            html_totals(what);
    for (const comparison_row &row : what.rows) {
        std::vector<std::string> cells;
        for (const auto &cell : row.cells) {
            cells.push_back(html_cell(cell));
        }
        text += html_row(escaped(row.name), cells);
    }
    return text + "</table>\n</body>\n</html>\n";
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

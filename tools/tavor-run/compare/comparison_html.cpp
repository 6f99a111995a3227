// SPDX-License-Identifier: MIT
//
// A comparison as one page that needs nothing beside itself: what differs, what is bad in all runs,
// and the rest in groups.
#include <map>

#include "tools/common/registry.h"
#include "tools/tavor-run/compare/comparison.h"
#include "tools/tavor-run/formats/markup.h"

namespace tavor_run {

namespace {

std::string head(std::string_view scope, const std::string &text)
{
    return "<th scope=\"" + std::string(scope) + "\">" + text + "</th>";
}

std::string column_heads(const comparison &what)
{
    std::string text = "<thead><tr>" + head("col", "Case");
    for (const comparison_column &column : what.columns) {
        text += head("col", escaped(column.name));
    }
    return text + "</tr></thead>\n";
}

// A narrow page shows the cells of a row under each other, each with its column's name.
std::string cell_of(const comparison_column &column, const std::optional<outcome> &cell)
{
    const std::string state(word(cell));
    return "<td class=\"text\"><span class=\"label\">" + escaped(column.name) +
           "</span> <span class=\"" + state + "\">" + state + "</span>" +
           (cell && !cell->message.empty() ? "<br>" + escaped(cell->message) : "") + "</td>";
}

std::string row_of(const comparison &what, const comparison_row &row)
{
    const std::string name = escaped(row.name);
    std::string text = "<tr id=\"" + name + "\">" + head("row", name);
    for (std::size_t i = 0; i < row.cells.size(); i++) {
        text += cell_of(what.columns[i], row.cells[i]);
    }
    return text + "</tr>\n";
}

std::string table_of(const comparison &what, const std::string &rows)
{
    return "<div class=\"wide\"><table class=\"stacks\">\n" + column_heads(what) + "<tbody>\n" +
           rows + "</tbody></table></div>\n";
}

std::string facts_of(const comparison &what)
{
    std::string text = "<table class=\"stacks\">\n";
    for (const comparison_column &column : what.columns) {
        text += "<tr>" + head("row", escaped(column.name)) + "<td>" +
                escaped(column_facts(column)) + "</td></tr>\n";
    }
    return text + "</table>\n";
}

std::string totals_of(const comparison &what)
{
    std::string rows;
    for (const verdict each : counted_verdicts(what)) {
        const std::string name(name_of(each));
        rows += "<tr>" + head("row", "<span class=\"" + name + "\">" + name + "</span>");
        for (const comparison_column &column : what.columns) {
            rows += "<td><span class=\"label\">" + escaped(column.name) + "</span> " +
                    std::to_string(counted(column.counts, each)) + "</td>";
        }
        rows += "</tr>\n";
    }
    return table_of(what, rows);
}

std::string section(const std::string &title, const std::string &content)
{
    return content.empty() ? "" : "<h2>" + title + "</h2>\n" + content;
}

// Groups by suite, closed.
std::string equal_rows(const comparison &what)
{
    struct group {
        std::string rows{};
        unsigned cases = 0;
    };
    std::vector<std::string> order;
    std::map<std::string, group> groups;
    for (const comparison_row &row : what.rows) {
        if (row.differs || row.has_bad) continue;
        const std::string known = tools::suite_of(row.name);
        const std::string suite = known.empty() ? "cases that are no more" : known;
        if (!groups.contains(suite)) order.push_back(suite);
        groups[suite].rows += row_of(what, row);
        groups[suite].cases++;
    }
    std::string text;
    for (const std::string &suite : order) {
        text += "<details><summary>" + suite + ": " + std::to_string(groups[suite].cases) +
                "</summary>\n" + table_of(what, groups[suite].rows) + "</details>\n";
    }
    return text;
}

} // namespace

std::string html_of(const comparison &what)
{
    std::string different;
    std::string bad;
    for (const comparison_row &row : what.rows) {
        if (row.differs) {
            different += row_of(what, row);
        } else if (row.has_bad) {
            bad += row_of(what, row);
        }
    }
    const std::string ending = ending_text(what);
    const auto only = [&](const std::string &rows) {
        return rows.empty() ? "" : table_of(what, rows);
    };
    return html_head("tavor: " + ending.substr(0, ending.find('\n'))) + "<p>" + escaped(ending) +
           "</p>\n" + facts_of(what) + section("Results", totals_of(what)) +
           section("Different", only(different)) + section("Not good in all", only(bad)) +
           section("Equal", equal_rows(what)) + "</body>\n</html>\n";
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// A history as one page. A case is a row of letters, one a run, so that thousands of results stay
// small and can be read without a script, without colours and on paper.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>

#include "tools/common/registry.h"
#include "tools/tavor-run/formats/markup.h"
#include "tools/tavor-run/history/history.h"

namespace tavor_run {

namespace {

constexpr std::size_t SLOWEST = 10;

std::string cell(const std::string &text)
{
    return "<td>" + text + "</td>";
}

// Where columns have no room for titles.
std::string label(const std::string &text)
{
    return "<span class=\"label\">" + text + "</span>";
}

std::string table(const std::vector<std::string> &titles, const std::string &rows)
{
    std::string text = "<div class=\"wide\"><table class=\"stacks\">\n<thead><tr>";
    for (const std::string &title : titles) {
        text += "<th scope=\"col\">" + title + "</th>";
    }
    return text + "</tr></thead>\n<tbody>\n" + rows + "</tbody></table></div>\n";
}

std::string section(const std::string &title, const std::string &content)
{
    return content.empty() ? "" : "<h2>" + title + "</h2>\n" + content;
}

std::string seconds_text(double seconds)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3f", seconds);
    return text.data();
}

std::string mark(trend which)
{
    const std::string name(name_of(which));
    return "<span class=\"" + name + "\">" + name + "</span>";
}

std::string link_to(const case_trend &of)
{
    const std::string name = escaped(of.name);
    return "<a href=\"#" + name + "\">" + name + "</a>";
}

// A letter a run; a bar where the environment changes. Letters of one kind share a mark.
std::string letters(const history &all, const case_trend &of)
{
    std::string text;
    std::string_view open;
    for (std::size_t run = 0; run < of.results.size(); run++) {
        const outcome *const result = of.results[run];
        const bool is_plain = !result || is_good(result->state);
        const std::string_view wanted = is_plain ? "" : name_of(result->state);
        const bool is_new_environment =
            run > 0 && all.runs[run].environment != all.runs[run - 1].environment;
        if (!open.empty() && (wanted != open || is_new_environment)) {
            text += "</b>";
            open = "";
        }
        if (is_new_environment) text += "|";
        if (!wanted.empty() && open.empty()) {
            text += "<b class=\"" + std::string(wanted) + "\">";
            open = wanted;
        }
        const char letter = letter_of(result);
        text += letter == ' ' ? "_" : std::string(1, letter);
    }
    return text + (open.empty() ? "" : "</b>");
}

std::string when(const history &all, std::size_t run)
{
    return escaped(all.runs[run].run.started) + "<br>" +
           escaped(all.environments[all.runs[run].environment].text());
}

std::string attention(const history &all)
{
    std::string rows;
    for (std::size_t i = 0; i < TREND_COUNT - 1; i++) {
        for (const case_trend *each : all.with(static_cast<trend>(i))) {
            const std::string share = each->what == trend::flaky
                                          ? "bad in " + std::to_string(each->bad) + " of " +
                                                std::to_string(each->judged) + " runs<br>"
                                          : "";
            rows += "<tr>" + cell(mark(each->what)) + cell(link_to(*each)) +
                    cell(label("since") + when(all, each->since)) +
                    cell(share + escaped(each->last_message()) + "<div class=\"runs\">" +
                         letters(all, *each) + "</div>") +
                    "</tr>\n";
        }
    }
    return rows.empty() ? "<p>Nothing: every case is good.</p>\n"
                        : table({"", "Case", "Since", "Message and runs"}, rows);
}

// A row for each case and state, however often it came.
std::string hangs_and_crashes(const history &all)
{
    std::string rows;
    for (const case_trend &of : all.cases) {
        for (const verdict state : {verdict::crash, verdict::hang, verdict::flood}) {
            std::size_t runs = 0;
            std::size_t newest = 0;
            for (std::size_t run = 0; run < of.results.size(); run++) {
                if (!of.results[run] || of.results[run]->state != state) continue;
                runs++;
                newest = run;
            }
            if (runs == 0) continue;
            const std::string name(name_of(state));
            rows += "<tr>" + cell("<span class=\"" + name + "\">" + name + "</span>") +
                    cell(link_to(of)) + cell(label("runs") + std::to_string(runs)) +
                    cell(label("newest") + when(all, newest)) +
                    cell(escaped(of.results[newest]->message)) + "</tr>\n";
        }
    }
    return rows.empty() ? "" : table({"", "Case", "Runs", "Newest", "Message"}, rows);
}

// The newest run of each device.
std::string devices(const history &all)
{
    std::map<std::string, std::size_t> newest;
    for (std::size_t run = 0; run < all.runs.size(); run++) {
        newest[all.runs[run].run.identity.host] = run;
    }
    std::string rows;
    for (const auto &[host, run] : newest) {
        rows += "<tr>" + cell(host.empty() ? "unknown" : escaped(host)) +
                cell(escaped(counts_text(all.runs[run].counts))) + cell(when(all, run)) + "</tr>\n";
    }
    return table({"Device", "Newest run", "Of"}, rows);
}

std::string environments(const history &all)
{
    std::string rows;
    for (std::size_t i = 0; i < all.environments.size(); i++) {
        std::size_t runs = 0;
        std::size_t first = all.runs.size();
        std::size_t last = 0;
        for (std::size_t run = 0; run < all.runs.size(); run++) {
            if (all.runs[run].environment != i) continue;
            runs++;
            first = std::min(first, run);
            last = run;
        }
        rows += "<tr>" + cell(escaped(all.environments[i].text())) + cell(std::to_string(runs)) +
                cell(escaped(all.runs[first].run.started) + " to " +
                     escaped(all.runs[last].run.started)) +
                cell(escaped(counts_text(all.runs[last].counts))) + "</tr>\n";
    }
    return table({"Library, program and machine", "Runs", "Time", "Newest run"}, rows);
}

// Values over the runs, from 0 to the greatest; gaps where a value is missing.
std::string plot(const std::vector<double> &values, const std::string &title)
{
    constexpr double WIDTH = 600;
    constexpr double HEIGHT = 40;
    const double most = *std::max_element(values.begin(), values.end());
    if (most <= 0) return "";
    std::string path;
    bool is_drawing = false;
    for (std::size_t i = 0; i < values.size(); i++) {
        if (values[i] <= 0) {
            is_drawing = false;
            continue;
        }
        const double steps = std::max<double>(1, static_cast<double>(values.size() - 1));
        const std::string where =
            std::to_string(std::lround(static_cast<double>(i) * WIDTH / steps)) + " " +
            std::to_string(std::lround(HEIGHT - values[i] / most * (HEIGHT - 2)));
        path += is_drawing ? "L" + where : "M" + where + "h0"; // a dot, where it stays alone
        is_drawing = true;
    }
    return "<svg viewBox=\"-2 0 604 42\" width=\"604\" height=\"42\" role=\"img\" aria-label=\"" +
           escaped(title) + "\"><path d=\"" + path +
           "\" fill=\"none\" stroke=\"currentColor\" stroke-linecap=\"round\"/></svg>";
}

std::vector<double> seconds_of(const case_trend &of)
{
    std::vector<double> seconds;
    for (const outcome *each : of.results) {
        seconds.push_back(each ? each->seconds() : 0);
    }
    return seconds;
}

std::string durations(const history &all)
{
    std::vector<double> totals;
    for (const history_run &each : all.runs) {
        totals.push_back(each.seconds);
    }
    const double most_total = *std::max_element(totals.begin(), totals.end());
    if (most_total <= 0) return "";
    std::string rows = "<tr>" + cell("all cases") + cell(seconds_text(totals.back())) +
                       cell(seconds_text(most_total)) + cell(plot(totals, "all cases")) + "</tr>\n";

    std::vector<std::pair<double, const case_trend *>> slowest;
    for (const case_trend &each : all.cases) {
        const std::vector<double> seconds = seconds_of(each);
        slowest.emplace_back(*std::max_element(seconds.begin(), seconds.end()), &each);
    }
    std::stable_sort(slowest.begin(), slowest.end(),
                     [](const auto &one, const auto &other) { return one.first > other.first; });
    slowest.resize(std::min(slowest.size(), SLOWEST));
    for (const auto &[most, each] : slowest) {
        const std::vector<double> seconds = seconds_of(*each);
        rows += "<tr>" + cell(link_to(*each)) + cell(seconds_text(seconds.back())) +
                cell(seconds_text(most)) + cell(plot(seconds, each->name)) + "</tr>\n";
    }
    return table({"Case", "Newest, s", "Most, s", "Over the runs"}, rows);
}

std::string suite_of(const case_trend &of)
{
    const std::string suite = tools::suite_of(of.name);
    return suite.empty() ? "cases that are no more" : suite;
}

// A group a suite, closed when all of its cases are good.
std::string suites(const history &all)
{
    struct group {
        std::string rows{};
        std::size_t cases = 0;
        std::size_t good = 0;
    };
    std::vector<std::string> order;
    std::map<std::string, group> groups;
    for (const case_trend &each : all.cases) {
        const std::string suite = suite_of(each);
        if (!groups.contains(suite)) order.push_back(suite);
        group &of = groups[suite];
        of.cases++;
        of.good += each.what == trend::good ? 1 : 0;
        of.rows += "<tr id=\"" + escaped(each.name) + "\">" + cell(escaped(each.name)) +
                   cell(each.what == trend::good ? "" : mark(each.what)) + "<td class=\"runs\">" +
                   letters(all, each) + "</td></tr>\n";
    }
    std::string text;
    for (const std::string &suite : order) {
        const group &of = groups[suite];
        text += of.good == of.cases ? "<details>" : "<details open>";
        text += "<summary>" + escaped(suite) + ": " + std::to_string(of.good) + " of " +
                std::to_string(of.cases) + " good</summary>\n" +
                table({"Case", "", "Runs"}, of.rows) + "</details>\n";
    }
    return text;
}

std::string run_list(const history &all)
{
    std::string rows;
    for (std::size_t run = all.runs.size(); run-- > 0;) {
        const history_run &each = all.runs[run];
        rows += "<tr>" + cell(std::to_string(run + 1)) + cell(when(all, run)) +
                cell(escaped(counts_text(each.counts)) + (each.run.has_end ? "" : ", cut short")) +
                cell(escaped(each.run.path)) + "</tr>\n";
    }
    return "<details><summary>" + std::to_string(all.runs.size()) + " runs</summary>\n" +
           table({"Number", "Run", "Results", "File"}, rows) + "</details>\n";
}

std::string counts_line(const history &all)
{
    const auto counts = all.counts();
    std::string text = "<p>";
    for (std::size_t i = 0; i < TREND_COUNT; i++) {
        text +=
            (i == 0 ? "" : ", ") + std::to_string(counts[i]) + " " + mark(static_cast<trend>(i));
    }
    std::vector<bar_part> parts;
    for (std::size_t i = 0; i < TREND_COUNT; i++) {
        const auto which = static_cast<trend>(i);
        parts.push_back({which == trend::good ? "pass" : name_of(which), counts[i]});
    }
    return text + "</p>\n" + bar_of(parts) +
           "<p>A letter is a run, the oldest first; | is a change of library, program or machine. " +
           escaped(LEGEND) + ", _ not in that report.</p>\n";
}

} // namespace

std::string html_of(const history &what)
{
    std::string text =
        html_head("tavor: " + std::to_string(what.runs.size()) + " runs, " +
                  what.runs.front().run.started + " to " + what.runs.back().run.started);
    text += counts_line(what) + section("Cases to look at", attention(what)) +
            section("Hangs, crashes and floods", hangs_and_crashes(what)) +
            section("Devices", devices(what)) +
            section("Libraries and programs", environments(what)) +
            section("Durations", durations(what)) + section("All cases", suites(what)) +
            section("Runs", run_list(what));
    for (const std::string &each : what.skipped) {
        text += "<p>no results in " + escaped(each) + "</p>\n";
    }
    return text + "</body>\n</html>\n";
}

} // namespace tavor_run

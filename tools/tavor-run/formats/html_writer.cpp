// SPDX-License-Identifier: MIT
//
// One page that needs nothing beside itself: first the cases to look at, then the others by suite.
#include <map>

#include "tools/tavor-run/formats/document_writer.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/markup.h"
#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

namespace {

constexpr std::size_t BUILD_ID_SHOWN = 12;

std::string fact(const char *name, const std::string &value)
{
    return value.empty() ? ""
                         : std::string("<tr><th scope=\"row\">") + name + "</th><td>" +
                               escaped(value) + "</td></tr>\n";
}

std::string facts(const run_record &record)
{
    const program_identity &identity = record.identity;
    const std::chrono::microseconds total = total_time(record.results);
    return "<table class=\"stacks\">\n" + fact("started", record.started) +
           fact("command", record.command_line) + fact("tavor", identity.path) +
           fact("target", identity.target) + fact("tree", identity.tree) +
           fact("image", identity.image) + fact("library", identity.library.path) +
           fact("soname", identity.library.soname) + fact("build id", identity.library.build_id) +
           fact("settings", identity.settings) +
           fact("kind", identity.library.is_reference ? "the reference library" : "") +
           fact("seed", record.seed ? std::to_string(*record.seed) : "") +
           fact("time in cases", total.count() > 0 ? seconds_text(total) + " s" : "") +
           "</table>\n";
}

std::string details_of(const case_history &each)
{
    const case_result &what = each.worst();
    std::string text = escaped(what.message);
    const std::string baseline = words_against_baseline(what);
    text += baseline.empty() ? "" : " [" + escaped(baseline) + "]";
    if (each.runs > 1) {
        text +=
            "<br>bad in " + std::to_string(each.bad) + " of " + std::to_string(each.runs) + " runs";
    }
    if (!is_good(what.state) && !what.output.empty()) {
        text += "<details><summary>printed by the case</summary><pre>" + escaped(what.output) +
                "</pre></details>";
    }
    for (const text_section &section : sections_of(what)) {
        text += "<details><summary>" + escaped(section.title) + "</summary><pre>";
        for (const std::string &line : section.lines) {
            text += escaped(line) + "\n";
        }
        text += "</pre></details>";
    }
    if (!what.explanation.empty()) {
        text += "<details><summary>the call that is to blame</summary><pre>" +
                escaped(what.explanation) + "</pre></details>";
    }
    if (!what.repeat_command.empty()) {
        text += "<pre>" + escaped(what.repeat_command) + "</pre>";
    }
    return text;
}

std::string row_of(const case_history &each)
{
    const case_result &what = each.worst();
    const std::string state(name_of(what.state));
    const std::string name = escaped(what.name);
    return "<tr class=\"case\" id=\"" + name + "\" data-verdict=\"" + state + "\"><td>" +
           std::to_string(what.number) + "</td><td><a href=\"#" + name + "\">" + name +
           "</a><br><span class=\"place\">" + escaped(text_of(place_of(what))) +
           "</span></td><td class=\"" + state + "\">" + state + "</td><td class=\"time\">" +
           (what.duration.count() > 0 ? seconds_text(what.duration) : "") + "</td><td>" +
           details_of(each) + "</td></tr>\n";
}

std::string table_of(const std::string &rows)
{
    return "<div class=\"wide\"><table class=\"stacks\">\n<thead><tr><th scope=\"col\">Number</th>"
           "<th scope=\"col\">Case</th><th scope=\"col\">Verdict</th>"
           "<th scope=\"col\">Seconds</th><th scope=\"col\">Details</th></tr></thead>\n<tbody>\n" +
           rows + "</tbody></table></div>\n";
}

// The counts as widths.
std::string status_bar(const run_record &record)
{
    const tally counts = count(record.results);
    std::vector<bar_part> parts;
    for (std::size_t i = 0; i < counts.size(); i++) {
        parts.push_back({name_of(static_cast<verdict>(i)), counts[i]});
    }
    const std::string baseline =
        record.has_baseline ? "<p>" + baseline_text(record.results) + "</p>\n" : "";
    return "<p><strong>" + escaped(counts_text(counts)) + "</strong></p>\n" + bar_of(parts) +
           baseline;
}

bool is_quiet(const case_history &each)
{
    return is_good(each.worst().state) || each.worst().state == verdict::not_run;
}

// The cases to look at. A baseline parts them.
std::string attention(const std::vector<case_history> &cases, bool has_baseline)
{
    std::array<std::string, STANDING_COUNT> rows;
    for (const case_history &each : cases) {
        const case_result &what = each.worst();
        if (is_quiet(each) && what.difference.empty()) continue;
        // What changed is looked at as what is new.
        const standing group = what.against_baseline == standing::fixed   ? standing::fixed
                               : what.against_baseline == standing::known ? standing::known
                                                                          : standing::fresh;
        rows[static_cast<std::size_t>(group)] += row_of(each);
    }
    std::string text;
    for (const auto &[group, title] :
         {std::pair{standing::fresh, has_baseline ? "New" : "Not good"},
          {standing::fixed, "Fixed"},
          {standing::known, "Known"}}) {
        const std::string &of_group = rows[static_cast<std::size_t>(group)];
        text +=
            of_group.empty() ? "" : std::string("<h2>") + title + "</h2>\n" + table_of(of_group);
    }
    return text;
}

// The other cases: a group a suite.
std::string suites(const std::vector<case_history> &cases)
{
    struct group {
        std::string rows{};
        unsigned cases = 0;
    };
    std::vector<std::string> order;
    std::map<std::string, group> groups;
    for (const case_history &each : cases) {
        if (!is_quiet(each) || !each.worst().difference.empty()) continue;
        const std::string suite(each.worst().suite());
        if (!groups.contains(suite)) order.push_back(suite);
        groups[suite].rows += row_of(each);
        groups[suite].cases++;
    }
    std::string text = order.empty() ? "" : "<h2>Good</h2>\n";
    for (const std::string &suite : order) {
        text += "<details><summary>" + escaped(suite) + ": " + std::to_string(groups[suite].cases) +
                "</summary>\n" + table_of(groups[suite].rows) + "</details>\n";
    }
    return text;
}

std::string slowest_cases(const run_record &record)
{
    std::string rows;
    for (const case_result *each : slowest(record.results)) {
        const std::string name = escaped(each->name);
        rows += "<tr><td class=\"time\">" + seconds_text(each->duration) + "</td><td><a href=\"#" +
                name + "\">" + name + "</a></td></tr>\n";
    }
    return rows.empty() ? ""
                        : "<details><summary>The slowest cases</summary>\n<table>\n<thead><tr>"
                          "<th scope=\"col\">Seconds</th><th scope=\"col\">Case</th></tr></thead>\n"
                          "<tbody>\n" +
                              rows + "</tbody></table></details>\n";
}

// Filters by name and verdict. Without scripts the form stays hidden, and the page is whole.
constexpr std::string_view FILTER = R"(<form id="filter" hidden>
<label>Name <input type="search" id="name"></label>
<label>Verdict <select id="verdict"><option value="">all</option></select></label>
</form>
)";
constexpr std::string_view FILTER_SCRIPT = R"(<script>
"use strict";
const rows = [...document.querySelectorAll("tr.case")];
const name = document.getElementById("name"), verdict = document.getElementById("verdict");
for (const each of new Set(rows.map(row => row.dataset.verdict))) verdict.add(new Option(each));
function filter() {
    for (const row of rows) {
        row.hidden = !row.id.includes(name.value) ||
            (verdict.value !== "" && row.dataset.verdict !== verdict.value);
}
    for (const group of document.querySelectorAll("details")) {
        if (name.value || verdict.value) group.open = true;
}
}
name.addEventListener("input", filter);
verdict.addEventListener("change", filter);
document.getElementById("filter").hidden = false;
</script>
)";

std::string title_of(const run_record &record)
{
    const library_identity &library = record.identity.library;
    std::string title = "tavor: " + counts_text(count(record.results));
    if (!library.build_id.empty()) {
        title += ", library " + library.build_id.substr(0, BUILD_ID_SHOWN);
    }
    return title + (record.identity.host.empty() ? "" : ", on " + record.identity.host);
}

std::string document(const run_record &record)
{
    std::string text = html_head(title_of(record)) + status_bar(record) + facts(record);
    for (const std::string &note : record.notes) {
        text += "<p>" + escaped(note) + "</p>\n";
    }
    const std::vector<case_history> cases = by_case(record.results);
    return text + std::string(FILTER) + attention(cases, record.has_baseline) + suites(cases) +
           slowest_cases(record) + std::string(FILTER_SCRIPT) + "</body>\n</html>\n";
}

} // namespace

std::unique_ptr<writer> make_html_writer(const std::string &path)
{
    return make_document_writer(path, document);
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// JUnit XML, in what the usual schemas have in common: some know no attributes of the root, and
// want each suite to have all its attributes and elements. After each result the file is a whole
// document.
#include <map>

#include "tools/tavor-run/formats/document_writer.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/markup.h"
#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

namespace {

std::string attribute(const char *name, std::string_view value)
{
    return std::string(" ") + name + "=\"" + escaped(value) + "\"";
}

// Measured times only.
std::string time_attribute(std::chrono::microseconds duration)
{
    return duration.count() == 0 ? "" : attribute("time", seconds_text(duration, 6));
}

// What becomes of a case, as an element's name; empty for a pass. Known failures are skipped, as
// JUnit has no word for them.
constexpr std::string_view FAILURE = "failure";
constexpr std::string_view ERROR = "error";
constexpr std::string_view SKIPPED = "skipped";

std::string_view element_of(const run_record &record, const case_result &what)
{
    if (is_lost(what.state)) return ERROR;
    if (what.state == verdict::fail) return is_excused(what) ? SKIPPED : FAILURE;
    if (what.against_baseline == standing::fixed && record.fixed_is_failure) return FAILURE;
    return what.state == verdict::pass ? "" : SKIPPED;
}

struct suite_totals {
    unsigned tests = 0;
    unsigned failures = 0;
    unsigned errors = 0;
    unsigned skipped = 0;
    std::chrono::microseconds duration{0};

    void add(std::string_view element, const case_result &what)
    {
        tests++;
        failures += element == FAILURE ? 1U : 0U;
        errors += element == ERROR ? 1U : 0U;
        skipped += element == SKIPPED ? 1U : 0U;
        duration += what.duration;
    }

    std::string attributes() const
    {
        return attribute("tests", std::to_string(tests)) +
               attribute("failures", std::to_string(failures)) +
               attribute("errors", std::to_string(errors)) +
               attribute("skipped", std::to_string(skipped)) + time_attribute(duration);
    }
};

std::string sections_text(const case_result &what)
{
    std::string text;
    for (const text_section &section : sections_of(what)) {
        text += section.title + ":\n";
        for (const std::string &line : section.lines) {
            text += line + "\n";
        }
    }
    return text;
}

std::string body_text(const case_history &each)
{
    const case_result &what = each.worst();
    std::string text = what.message + "\nat " + text_of(place_of(what)) + "\n";
    if (!what.difference.empty()) {
        text += "baseline: " + what.difference + "\n";
    }
    if (each.runs > 1) {
        text += "in " + std::to_string(each.bad) + " of " + std::to_string(each.runs) + " runs\n";
    }
    text += sections_text(what);
    if (!what.repeat_command.empty()) {
        text += "again: " + what.repeat_command + "\n";
    }
    return text;
}

std::string skipped(const case_result &what)
{
    const std::string reason =
        is_excused(what) ? "known failure: " + what.message : std::string(name_of(what.state));
    return "      <skipped" + attribute("message", reason) + "/>\n";
}

std::string failed(std::string_view element, const case_history &each)
{
    const case_result &what = each.worst();
    const bool is_fixed = what.against_baseline == standing::fixed;
    const std::string message = is_fixed ? "fixed: the baseline has it as a failure" : what.message;
    return "      <" + std::string(element) + attribute("message", message) +
           attribute("type", is_fixed ? "fixed" : name_of(what.state)) + ">" +
           escaped(body_text(each)) + "</" + std::string(element) + ">\n";
}

// What the case printed, and what its element does not say.
std::string printed(std::string_view element, const case_result &what)
{
    std::string text = is_good(what.state) ? "" : what.output;
    if (element != FAILURE && element != ERROR) {
        const std::string baseline =
            what.difference.empty() ? "" : "baseline: " + what.difference + "\n";
        text = baseline + text + sections_text(what);
    }
    return text.empty() ? "" : "      <system-out>" + escaped(text) + "</system-out>\n";
}

// Readers take it for the case's own: a failure's check is in its text.
std::string place(const case_result &what)
{
    const explain::place defined = explain::place_of_case(what.name);
    return defined.file.empty()
               ? ""
               : attribute("file", defined.file) + attribute("line", std::to_string(defined.line));
}

std::string test_case(std::string_view element, const case_history &each)
{
    const case_result &what = each.worst();
    const std::string start = "    <testcase" + attribute("classname", what.suite()) +
                              attribute("name", what.name) + place(what) +
                              time_attribute(what.duration);
    const std::string inside = (element.empty()      ? ""
                                : element == SKIPPED ? skipped(what)
                                                     : failed(element, each)) +
                               printed(element, what);
    return inside.empty() ? start + "/>\n" : start + ">\n" + inside + "    </testcase>\n";
}

std::string properties(const run_record &record)
{
    const program_identity &identity = record.identity;
    const std::pair<const char *, std::string> known[] = {
        {"command", record.command_line},
        {"tavor", identity.path},
        {"tavor.target", identity.target},
        {"tavor.tree", identity.tree},
        {"tavor.image", identity.image},
        {"library", identity.library.path},
        {"library.soname", identity.library.soname},
        {"library.build_id", identity.library.build_id},
        {"settings", identity.settings},
        {"seed", record.seed ? std::to_string(*record.seed) : ""},
    };
    std::string text = "    <properties>\n";
    for (const auto &[name, value] : known) {
        if (!value.empty()) {
            text +=
                "      <property" + attribute("name", name) + attribute("value", value) + "/>\n";
        }
    }
    return text + "    </properties>\n";
}

struct suite_content {
    std::string_view name{};
    suite_totals totals{};
    std::string cases{};
};

std::vector<suite_content> by_suite(const run_record &record)
{
    std::vector<suite_content> suites;
    std::map<std::string_view, std::size_t> places;
    for (const case_history &each : by_case(record.results)) {
        const std::string_view name = each.worst().suite();
        const auto [place, is_new] = places.try_emplace(name, suites.size());
        if (is_new) {
            suites.push_back({name, {}, ""});
        }
        const std::string_view element = element_of(record, each.worst());
        suites[place->second].totals.add(element, each.worst());
        suites[place->second].cases += test_case(element, each);
    }
    return suites;
}

// Without the zone, which is UTC: some schemas forbid it.
std::string timestamp(const run_record &record)
{
    return record.started.substr(0, record.started.find('Z'));
}

std::string document(const run_record &record)
{
    const std::string &host = record.identity.host;
    std::string notes;
    for (const std::string &note : record.notes) {
        notes += escaped(note) + "\n";
    }
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
    unsigned id = 0;
    for (const suite_content &suite : by_suite(record)) {
        text += "  <testsuite" + attribute("name", suite.name) + attribute("package", "tavor") +
                attribute("id", std::to_string(id++)) + suite.totals.attributes() +
                attribute("timestamp", timestamp(record)) +
                attribute("hostname", host.empty() ? "localhost" : host) + ">\n" +
                properties(record) + suite.cases + "    <system-out>" + notes +
                "</system-out>\n    <system-err/>\n  </testsuite>\n";
    }
    return text + "</testsuites>\n";
}

} // namespace

std::unique_ptr<writer> make_junit_writer(const std::string &path)
{
    return make_document_writer(path, document);
}

} // namespace tavor_run

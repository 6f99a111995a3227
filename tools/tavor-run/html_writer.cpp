// SPDX-License-Identifier: MIT
//
// One page that needs nothing beside itself.
#include <cstdio>

#include "tools/tavor-run/document_writer.h"
#include "tools/tavor-run/markup.h"
#include "tools/tavor-run/writer.h"

namespace tavor_run {

namespace {

std::string fact(const char *name, const std::string &value)
{
    return value.empty()
               ? ""
               : std::string("<tr><th>") + name + "</th><td>" + escaped(value) + "</td></tr>\n";
}

std::string facts(const run_record &record)
{
    const program_identity &identity = record.identity;
    return "<table>\n" + fact("started", record.started) + fact("command", record.command_line) +
           fact("tavor", identity.path) + fact("target", identity.target) +
           fact("tree", identity.tree) + fact("image", identity.image) +
           fact("library", identity.library.path) + fact("soname", identity.library.soname) +
           fact("build id", identity.library.build_id) +
           fact("kind", identity.library.is_reference ? "the reference library" : "") +
           fact("seed", record.seed ? std::to_string(*record.seed) : "") +
           fact("results", counts_text(count(record.results))) + "</table>\n";
}

std::string details_of(const case_history &each)
{
    const case_result &what = each.worst;
    std::string text = escaped(what.message);
    if (!what.difference.empty()) {
        text += " [" + escaped(what.difference) + "]";
    }
    if (each.runs > 1) {
        text +=
            "<br>bad in " + std::to_string(each.bad) + " of " + std::to_string(each.runs) + " runs";
    }
    if (!what.calls.empty()) {
        text += "<details><summary>last library calls (" + escaped(what.calls_from) +
                ")</summary><pre>";
        for (const std::string &call : what.calls) {
            text += escaped(call) + "\n";
        }
        text += "</pre></details>";
    }
    if (!what.repeat_command.empty()) {
        text += "<pre>" + escaped(what.repeat_command) + "</pre>";
    }
    return text;
}

std::string row_of(const case_history &each)
{
    const case_result &what = each.worst;
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.3f",
                  std::chrono::duration<double>(what.duration).count());
    const std::string state(name_of(what.state));
    return "<tr><td>" + std::to_string(what.number) + "</td><td>" + escaped(what.name()) +
           "</td><td class=\"" + state + "\">" + state + "</td><td class=\"time\">" + time.data() +
           "</td><td>" + details_of(each) + "</td></tr>\n";
}

std::string document(const run_record &record)
{
    std::string text = html_head("tavor");
    text += facts(record);
    for (const std::string &note : record.notes) {
        text += "<p>" + escaped(note) + "</p>\n";
    }
    std::string bad;
    std::string good;
    for (const case_history &each : by_case(record.results)) {
        (is_good(each.worst.state) || each.worst.state == verdict::not_run ? good : bad) +=
            row_of(each);
    }
    text += "<table>\n<tr><th>number</th><th>case</th><th>verdict</th><th>seconds</th>"
            "<th></th></tr>\n";
    return text + bad + good + "</table>\n</body>\n</html>\n";
}

} // namespace

std::unique_ptr<writer> make_html_writer(const std::string &path)
{
    return make_document_writer(path, document);
}

} // namespace tavor_run

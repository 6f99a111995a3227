// SPDX-License-Identifier: MIT
#include "tools/tavor-run/commands.h"

#include <algorithm>
#include <sstream>

#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/tavor-run/compare/comparison.h"
#include "tools/tavor-run/formats/format_table.h"
#include "tools/tavor-run/formats/outputs.h"
#include "tools/tavor-run/results/baseline.h"

namespace tavor_run {

namespace {

void describe(std::ostream &text, const char *title, const stored_run &run)
{
    const library_identity &library = run.identity.library;
    text << title << run.path << ", " << run.started << (run.has_end ? "" : ", cut short") << "\n";
    if (!run.identity.path.empty()) {
        text << "        tavor " << run.identity.path << ", " << run.identity.target << ", tree "
             << run.identity.tree << "\n        library " << library.path << ", build id "
             << (library.build_id.empty() ? "unknown" : library.build_id) << "\n";
        text << (run.identity.settings.empty() ? ""
                                               : "        with " + run.identity.settings + "\n");
    }
}

std::string side_text(const std::optional<outcome> &side)
{
    if (!side) {
        return "-";
    }
    return std::string(name_of(side->state)) + (side->message.empty() ? "" : " : " + side->message);
}

// Two runs in words.
std::string differences_text(const stored_run &before, const stored_run &after)
{
    std::ostringstream text;
    describe(text, "before  ", before);
    describe(text, "after   ", after);
    const std::vector<difference> differences = compare(before, after);
    for (const difference &each : differences) {
        text << each.what << ": " << each.name << "\n  before  " << side_text(each.before)
             << "\n  after   " << side_text(each.after) << "\n";
    }
    text << differences.size() << " differences\n";
    return text.str();
}

struct text_form {
    bool as_table;
    table_detail detail;
};

std::string text_of_two_or_more(const comparison &what, const text_form &form)
{
    return tools::printable(form.as_table
                                ? text_of(what, form.detail)
                                : differences_text(what.columns[0].run, what.columns[1].run),
                            "\n");
}

using maker = std::string (*)(const comparison &, const text_form &);

constexpr auto FORMATS = std::to_array<output_format<maker>>({
    {"text", text_of_two_or_more},
    {"html", [](const auto &what, const auto &) { return html_of(what); }},
    {"jsonl", [](const auto &what, const auto &) { return json_lines_of(what); }},
});

} // namespace

std::string compare_formats()
{
    return names_in(FORMATS);
}

int compare_command(const compare_arguments &given)
{
    std::vector<named_report> reports;
    bool as_table = given.reports.size() > 2 || given.quiet || given.all;
    const table_detail detail = given.all     ? table_detail::all
                                : given.quiet ? table_detail::differing
                                              : table_detail::not_good;
    for (const std::string &each : given.reports) {
        reports.push_back(parse_report_name(each));
        as_table |= !reports.back().name.empty();
    }
    const comparison what = compare_reports(reports);
    as_table |= what.is_sharded;
    std::vector<std::string> outputs = given.outputs;
    if (std::none_of(outputs.begin(), outputs.end(), goes_to_standard_output)) {
        outputs.emplace_back("text");
    }
    for (const std::string &each : outputs) {
        const report_target target = parse_target(each);
        tools::output_file(target.path)
            .replace(format_named(FORMATS, target.format).make(what, {as_table, detail}));
    }
    return exit_code(what);
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/formats/outputs.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tools/common/unique_fd.h"
#include "tools/tavor-run/commands.h"
#include "tools/tavor-run/formats/format_table.h"
#include "tools/tavor-run/formats/github.h"
#include "tools/tavor-run/run/selection.h"

namespace tavor_run {

namespace {

namespace fs = std::filesystem;

text_style text_style_of(const output_arguments &given, const std::string &path)
{
    const bool terminal = path == "-" && isatty(STDOUT_FILENO) != 0;
    text_style style;
    style.quiet = given.quiet;
    style.live = terminal;
    style.colours = given.colour == "always" ||
                    (given.colour == "auto" && terminal && std::getenv("NO_COLOR") == nullptr);
    return style;
}

using maker = std::unique_ptr<writer> (*)(const std::string &path, const text_style &style);

constexpr auto FORMATS = std::to_array<output_format<maker>>({
    {"text", make_text_writer},
    {"junit", [](const auto &path, const auto &) { return make_junit_writer(path); }},
    {"tap", [](const auto &path, const auto &) { return make_tap_writer(path, 14); }},
    {"tap13", [](const auto &path, const auto &) { return make_tap_writer(path, 13); }},
    {"jsonl", [](const auto &path, const auto &) { return make_json_writer(path); }},
    {"html", [](const auto &path, const auto &) { return make_html_writer(path); }},
    {"lava", [](const auto &path, const auto &) { return make_lava_writer(path); }},
    {"github", [](const auto &path, const auto &) { return make_github_writer(path); }},
});

std::unique_ptr<writer> make_writer(const std::string &output, const output_arguments &given)
{
    const auto &[format, path] = parse_target(output);
    return format_named(FORMATS, format).make(path, text_style_of(given, path));
}

// A file of this run's own takes the place at once: of two runs at the same time each writes to its
// own, and the name leads to the one that began last.
std::unique_ptr<writer> make_last_writer(const std::string &path)
{
    std::error_code error;
    const std::string place = fs::weakly_canonical(path, error);
    const bool is_special = fs::exists(place, error) && !fs::is_regular_file(place, error);
    const std::string draft = place + "." + std::to_string(getpid());
    const tools::unique_fd made(
        is_special ? -1 : open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (made.get() < 0) return make_json_writer(path);
    std::unique_ptr<writer> last = make_json_writer(draft);
    if (std::rename(draft.c_str(), place.c_str()) == 0) return last;
    unlink(draft.c_str());
    return make_json_writer(path);
}

// Alone on standard output. Annotations are meant to be between other lines.
bool takes_standard_output(const std::string &output)
{
    return goes_to_standard_output(output) && parse_target(output).format != "github";
}

} // namespace

std::string run_formats()
{
    return names_in(FORMATS);
}

report_target parse_target(const std::string &output)
{
    const std::size_t colon = output.find(':');
    return {output.substr(0, colon), colon == std::string::npos ? "-" : output.substr(colon + 1)};
}

bool goes_to_standard_output(const std::string &output)
{
    return parse_target(output).path == "-";
}

void start_record(run_record &record, const output_arguments &given)
{
    record.started = time_now();
    record.command_line = given.command_line;
    record.has_baseline = !given.baseline.empty();
    record.fixed_is_failure = given.fixed_is_failure;
}

void add_writers(reporter &report, const output_arguments &given)
{
    const auto on_terminal =
        std::count_if(given.outputs.begin(), given.outputs.end(), takes_standard_output);
    if (on_terminal > 1) {
        throw usage_error("only one report can go to standard output");
    }
    if (on_terminal == 0) {
        report.add(make_writer("text:-", given));
    }
    bool is_for_github = false;
    for (const std::string &output : given.outputs) {
        report.add(make_writer(output, given));
        is_for_github |= parse_target(output).format == "github";
    }
    if (is_for_github && !step_summary_path().empty()) {
        report.add(make_github_summary(step_summary_path()));
    }
}

void add_last_results(reporter &report, const selection_arguments &given)
{
    const std::string path = results_path(given);
    std::error_code error;
    if (!path.empty() && fs::path(path).has_parent_path()) {
        fs::create_directories(fs::path(path).parent_path(), error);
    }
    try {
        if (!path.empty()) {
            report.add(make_last_writer(path), !given.last.empty());
        }
    } catch (const usage_error &) {
        if (!given.last.empty()) {
            throw;
        }
    }
}

std::optional<baseline> baseline_of(const output_arguments &given)
{
    if (given.baseline.empty()) {
        return std::nullopt;
    }
    return baseline(read_results(given.baseline));
}

void tell_vanished(reporter &report, const std::optional<baseline> &known)
{
    if (known) {
        for (const std::string &name : known->vanished()) {
            report.note("in the baseline, but no case any more: " + name);
            report.record().lost_cases = true;
        }
    }
}

} // namespace tavor_run

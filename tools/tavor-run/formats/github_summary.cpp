// SPDX-License-Identifier: MIT
//
// The summary of a GitHub step. GitHub drops a summary of more than 1 MiB, so this one ends before.
// All of it is HTML, which Markdown takes as it is up to an empty line: there is none.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tools/common/output_file.h"
#include "tools/common/usage_error.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/github.h"
#include "tools/tavor-run/formats/markup.h"
#include "tools/tavor-run/formats/printed.h"

namespace tavor_run {

namespace {

constexpr std::size_t MOST_BYTES = std::size_t{1} << 20;
constexpr std::size_t FOR_THE_END = 4096;

// In one line.
std::string in_line(std::string_view text)
{
    std::string result;
    for (const char character : escaped(text)) {
        result += character == '\n' ? "&#10;" : std::string(1, character);
    }
    return result;
}

std::string section(const std::string &title, const std::vector<std::string> &lines)
{
    std::string text = in_line(title) + ":&#10;";
    for (const std::string &line : lines) {
        text += "  " + in_line(line) + "&#10;";
    }
    return text;
}

std::string block_of(const case_history &each)
{
    const case_result &what = each.worst();
    const std::string baseline = words_against_baseline(what);
    std::string text = "<details><summary><code>" + in_line(what.name) + "</code> <strong>" +
                       std::string(name_of(what.state)) + "</strong>";
    text += baseline.empty() ? "" : " [" + in_line(baseline) + "]";
    text += " <code>" + in_line(what.message) + "</code></summary><pre>at " +
            in_line(text_of(place_of(what))) + "&#10;";
    if (each.runs > 1) {
        text +=
            "in " + std::to_string(each.bad) + " of " + std::to_string(each.runs) + " runs&#10;";
    }
    if (!what.output.empty()) text += section("printed by the case", printed_lines(what.output));
    for (const text_section &part : sections_of(what)) {
        text += section(part.title, part.lines);
    }
    text += in_line(what.explanation);
    text += what.repeat_command.empty() ? "" : "again: " + in_line(what.repeat_command);
    return text + "</pre></details>\n";
}

std::string start_of(const run_record &record)
{
    const program_identity &identity = record.identity;
    std::string text =
        "<h3>tavor: " + in_line(counts_text(count(record.results))) + "</h3>\n<p>library <code>" +
        in_line(identity.library.path + " " + identity.library.build_id) + "</code>, tavor <code>" +
        in_line(identity.target + " " + identity.tree) + "</code>";
    text += identity.host.empty() ? "" : ", on <code>" + in_line(identity.host) + "</code>";
    text +=
        identity.settings.empty() ? "" : ", with <code>" + in_line(identity.settings) + "</code>";
    text += record.has_baseline ? "<br>" + in_line(baseline_text(record.results)) : "";
    return text + "</p>\n";
}

std::string end_of(const run_record &record)
{
    std::string text;
    for (const case_result *each : slowest(record.results)) {
        text += (text.empty() ? "<p>the slowest: " : ", ") + in_line(each->name) + " " +
                seconds_text(each->duration) + " s";
    }
    return text.empty() ? "" : text + "</p>\n";
}

std::string document(const run_record &record, std::size_t room)
{
    const std::vector<case_history> cases = by_case(record.results);
    const told_cases told = told_cases_of(cases);
    std::string text = start_of(record);
    std::vector<std::string> blocks;
    for (const std::string &note : record.notes) {
        blocks.push_back("<p>" + in_line(note) + "</p>\n");
    }
    for (const case_history *each : told.bad) {
        blocks.push_back(block_of(*each));
    }
    for (const case_history *each : told.fixed) {
        blocks.push_back("<p>fixed: <code>" + in_line(each->worst().name) + "</code></p>\n");
    }
    std::size_t left_out = 0;
    for (const std::string &block : blocks) {
        const bool fits = text.size() + block.size() + FOR_THE_END <= room;
        text += fits ? block : "";
        left_out += fits ? 0 : 1;
    }
    if (left_out > 0) text += "<p>" + std::to_string(left_out) + " more do not fit here</p>\n";
    return text + end_of(record);
}

class github_summary : public writer {
public:
    explicit github_summary(std::string where)
        : path(std::move(where)),
          file(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666))
    {
        if (file.get() < 0) throw tools::usage_error(cannot_write());
    }

    void result(const run_record &, const case_result &) override {}

    void end(const run_record &record) override
    {
        // An earlier command of the step may have written to it.
        struct stat about = {};
        const std::size_t used =
            fstat(file.get(), &about) == 0 ? static_cast<std::size_t>(about.st_size) : 0;
        const std::string text = document(record, MOST_BYTES - std::min(used, MOST_BYTES));
        if (text.size() + used > MOST_BYTES) {
            errno = EFBIG;
        } else if (tools::write_all(file.get(), text)) {
            return;
        }
        throw std::runtime_error(cannot_write());
    }

private:
    std::string cannot_write() const
    {
        return "cannot write the summary " + path + ": " + std::strerror(errno);
    }

    std::string path;
    tools::unique_fd file;
};

} // namespace

std::string step_summary_path()
{
    const char *const path = std::getenv("GITHUB_STEP_SUMMARY");
    return path == nullptr ? "" : path;
}

std::unique_ptr<writer> make_github_summary(const std::string &path)
{
    return std::make_unique<github_summary>(path);
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// The table for people, live on a terminal.
#include <algorithm>
#include <map>
#include <sstream>

#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/printed.h"
#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

namespace {

using tools::printable;

constexpr int NAME_WIDTH = 50;
constexpr int STATE_WIDTH = 8;

// Blanks for what was not measured.
std::string duration_text(std::chrono::microseconds duration)
{
    constexpr std::size_t WIDTH = 8;
    if (duration.count() == 0) {
        return std::string(WIDTH + 2, ' ');
    }
    const std::string text = seconds_text(duration);
    return std::string(WIDTH - std::min(WIDTH, text.size()), ' ') + text + " s";
}

std::string padded(std::string_view text, int width)
{
    std::string result(text);
    result.resize(std::max(result.size(), static_cast<std::size_t>(width)), ' ');
    return result;
}

class text_writer : public writer {
public:
    text_writer(const std::string &path, const text_style &how) : output(path), style(how) {}

    void begin(const run_record &record) override
    {
        const program_identity &identity = record.identity;
        const library_identity &library = identity.library;
        std::string text;
        if (!identity.path.empty()) {
            text += "tavor    " + identity.path;
            text += identity.target.empty() ? "" : ", " + identity.target;
            text += identity.tree.empty() ? "" : ", tree " + identity.tree;
            text += identity.image.empty() ? "" : ", image " + identity.image;
            text += "\nlibrary  " + (library.path.empty() ? "unknown" : library.path);
            text += library.soname.empty() ? "" : ", " + library.soname;
            text += library.path.empty()       ? ""
                    : library.build_id.empty() ? ", build id unknown"
                                               : ", build id " + library.build_id;
            text += library.is_reference ? ", the reference library\n" : "\n";
            text += identity.settings.empty() ? "" : "settings " + identity.settings + "\n";
            text = printable(text, "\n");
        }
        if (record.seed) {
            text += "seed     " + std::to_string(*record.seed) + "\n";
        }
        output.append(text);
    }

    void started(const run_record &record, int row) override
    {
        if (style.live) {
            const std::string place =
                std::to_string(record.results.size() + 1) + "/" + std::to_string(record.planned);
            const std::string name(tools::all_cases()[static_cast<std::size_t>(row)].name);
            output.append("\r\x1b[K[" + place + "] " + name);
        }
    }

    void result(const run_record &, const case_result &what) override
    {
        const bool is_bad = what.state == verdict::fail || is_lost(what.state);
        if (style.quiet && !is_bad && what.difference.empty()) {
            return;
        }
        if (what.state == verdict::unseen) {
            unseen.push_back(what.number);
            return;
        }
        std::string text = style.live ? "\r\x1b[K" : "";
        text += padded(what.name, NAME_WIDTH) + " ";
        text += coloured(what.state, padded(name_of(what.state), STATE_WIDTH));
        text += duration_text(what.duration);
        text += what.message.empty() ? "" : "  " + printable(what.message);
        const std::string baseline = words_against_baseline(what);
        text += baseline.empty() ? "" : "  [" + baseline + "]";
        output.append(text.substr(0, text.find_last_not_of(' ') + 1) + "\n");
    }

    void note(const run_record &, const std::string &text) override
    {
        output.append((style.live ? "\r\x1b[K" : "") + ("note: " + printable(text)) + "\n");
    }

    void end(const run_record &record) override
    {
        std::string text = style.live ? "\r\x1b[K" : "";
        for (const case_history &each : by_case(record.results)) {
            const case_result &what = each.worst();
            if (!is_good(what.state) && what.state != verdict::not_run && !is_excused(what) &&
                has_more_to_say(each)) {
                text += section(each);
            }
        }
        text += left_objects(record) + unseen_cases() + durations(record);
        const tally counts = count(record.results);
        text += std::to_string(record.results.size()) + " results: " + counts_text(counts) + "\n";
        if (record.has_baseline) {
            text += "baseline: " + baseline_text(record.results) + "\n";
        }
        output.append(text);
    }

private:
    // Of the cases that have no section.
    static std::string left_objects(const run_record &record)
    {
        std::string text;
        for (const case_result &each : record.results) {
            if (each.left.empty() || !(is_good(each.state) || is_excused(each))) continue;
            text += each.name + " does not release:\n";
            for (const std::string &object : each.left) {
                text += "    " + printable(object) + "\n";
            }
        }
        return text;
    }

    // The slowest of a long run only.
    std::string durations(const run_record &record) const
    {
        constexpr std::size_t LONG_RUN = 20;
        const std::vector<const case_result *> slow = slowest(record.results);
        const std::chrono::microseconds total = total_time(record.results);
        if (total.count() == 0) return "";
        std::string text;
        if (record.results.size() > LONG_RUN && !style.quiet && !slow.empty()) {
            text += "the slowest:\n";
            for (const case_result *each : slow) {
                text += duration_text(each->duration) + "  " + each->name + "\n";
            }
        }
        return text + seconds_text(total) + " s in cases\n";
    }

    // A line for each suite, or for each case where there are few.
    std::string unseen_cases() const
    {
        constexpr std::size_t FEW = 3;
        std::map<std::string_view, std::vector<std::string_view>> names;
        std::vector<std::string_view> suites;
        for (const int row : unseen) {
            const tools::test_case &each = tools::all_cases()[static_cast<std::size_t>(row)];
            if (!names.contains(each.suite)) suites.push_back(each.suite);
            names[each.suite].push_back(each.name);
        }
        std::string text;
        for (const std::string_view suite : suites) {
            const auto &cases = names.at(suite);
            if (cases.size() <= FEW) {
                for (const std::string_view name : cases) {
                    text += unseen_line(name, "");
                }
                continue;
            }
            const auto size = static_cast<std::size_t>(
                std::count_if(tools::all_cases().begin(), tools::all_cases().end(),
                              [&](const tools::test_case &each) { return each.suite == suite; }));
            text += unseen_line(suite, cases.size() == size
                                           ? "all " + std::to_string(size) + " cases"
                                           : std::to_string(cases.size()) + " of " +
                                                 std::to_string(size) + " cases, the first is " +
                                                 std::string(cases.front()));
        }
        return text;
    }

    std::string unseen_line(std::string_view name, const std::string &more) const
    {
        return padded(name, NAME_WIDTH) + " " +
               coloured(verdict::unseen, std::string(name_of(verdict::unseen))) +
               (more.empty() ? "" : "  " + more) + "\n";
    }

    static bool has_more_to_say(const case_history &each)
    {
        return !each.worst().output.empty() || !each.worst().repeat_command.empty() ||
               !sections_of(each.worst()).empty() || each.runs > 1;
    }

    std::string section(const case_history &each) const
    {
        const case_result &what = each.worst();
        std::ostringstream text;
        text << "\n" << coloured(what.state, std::string(name_of(what.state))) << " " << what.name;
        if (each.runs > 1) {
            text << ", in " << each.bad << " of " << each.runs << " runs";
        }
        text << "\n  " << printable(what.message) << "\n";
        text << "  at " << text_of(place_of(what)) << "\n";
        if (!what.output.empty()) {
            text << "  printed by the case:\n";
        }
        for (const std::string &line : printed_lines(what.output)) {
            text << "    " << line << "\n";
        }
        for (const text_section &part : sections_of(what)) {
            text << "  " << printable(part.title) << ":\n";
            for (const std::string &line : part.lines) {
                text << "    " << printable(line) << "\n";
            }
        }
        std::istringstream explanation(what.explanation);
        for (std::string line; std::getline(explanation, line);) {
            text << "  " << printable(line) << "\n";
        }
        if (!what.repeat_command.empty()) {
            text << "  again: " << printable(what.repeat_command) << "\n";
        }
        return text.str() + "\n";
    }

    std::string coloured(verdict which, const std::string &text) const
    {
        if (!style.colours) {
            return text;
        }
        const char *colour = which == verdict::pass      ? "\x1b[32m"
                             : which == verdict::ignore  ? "\x1b[33m"
                             : which == verdict::not_run ? "\x1b[2m"
                             : which == verdict::fail    ? "\x1b[31m"
                                                         : "\x1b[1;35m";
        return colour + text + "\x1b[0m";
    }

    tools::output_file output;
    text_style style;
    std::vector<int> unseen; // rows
};

} // namespace

std::unique_ptr<writer> make_text_writer(const std::string &path, const text_style &style)
{
    return std::make_unique<text_writer>(path, style);
}

} // namespace tavor_run

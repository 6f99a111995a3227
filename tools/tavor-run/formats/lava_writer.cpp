// SPDX-License-Identifier: MIT
//
// Signals by which LAVA learns of results from what a job prints: a test set is a suite. Between
// the signals stand comments; nothing in them may look like a signal.
#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/printed.h"
#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

namespace {

constexpr std::string_view MARK = "<LAVA_";

std::string comment(std::string text)
{
    text = tools::printable(text);
    for (std::size_t at = text.find(MARK); at != std::string::npos; at = text.find(MARK, at)) {
        text[at] = '(';
    }
    return "# " + text + "\n";
}

// A name in a report's address: letters, digits, points, hyphens and underscores.
std::string identifier(std::string text)
{
    constexpr std::string_view ALLOWED = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                         "0123456789._-";
    for (std::size_t at = text.find_first_not_of(ALLOWED); at != std::string::npos;
         at = text.find_first_not_of(ALLOWED, at)) {
        text[at] = '_';
    }
    return text;
}

// A case that nothing is known of has not been skipped.
std::string_view result_word(verdict state)
{
    switch (state) {
    case verdict::pass:
        return "pass";
    case verdict::ignore:
        return "skip";
    case verdict::fail:
    case verdict::crash:
    case verdict::hang:
    case verdict::flood:
    case verdict::unended:
        return "fail";
    case verdict::not_run:
    case verdict::unseen:
    case verdict::damaged:
        break;
    }
    return "unknown";
}

class lava_writer : public writer {
public:
    explicit lava_writer(const std::string &path) : output(path) {}

    void begin(const run_record &record) override
    {
        const library_identity &library = record.identity.library;
        std::string text;
        if (!library.path.empty()) {
            text += comment("library " + library.path + " " + library.build_id);
        }
        if (!record.identity.settings.empty()) {
            text += comment("settings " + record.identity.settings);
        }
        if (record.seed) {
            text += comment("seed " + std::to_string(*record.seed));
        }
        output.append(text);
    }

    void result(const run_record &, const case_result &what) override
    {
        std::string text;
        if (what.suite() != open_set) {
            text += close_set();
            open_set = what.suite();
            text += "<LAVA_SIGNAL_TESTSET START " + identifier(std::string(open_set)) + ">\n";
        }
        if (!what.message.empty()) {
            text +=
                comment(what.name + ": " + std::string(name_of(what.state)) + ": " + what.message);
        }
        if (const std::string baseline = words_against_baseline(what); !baseline.empty()) {
            text += comment("baseline: " + baseline);
        }
        if (!is_good(what.state) && !what.output.empty()) {
            text += comment("printed by the case:");
            for (const std::string &line : printed_lines(what.output)) {
                text += comment("  " + line);
            }
        }
        if (!what.repeat_command.empty()) {
            text += comment("again: " + what.repeat_command);
        }
        // Each result of a test set has a name of its own, repetitions too.
        const std::string name =
            identifier(what.name) + (what.run > 1 ? "." + std::to_string(what.run) : "");
        text += "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=" + name + " RESULT=";
        output.append(text + std::string(is_excused(what) ? "skip" : result_word(what.state)) +
                      ">\n");
    }

    void details(const run_record &, const case_result &what) override
    {
        std::string text =
            comment(what.name + ": " +
                    (what.message.empty() ? std::string(name_of(what.state)) : what.message));
        for (const text_section &each : sections_of(what)) {
            text += comment(each.title + ":");
            for (const std::string &line : each.lines) {
                text += comment("  " + line);
            }
        }
        output.append(text);
    }

    void note(const run_record &, const std::string &text) override
    {
        output.append(comment(text));
    }

    void end(const run_record &record) override
    {
        output.append(close_set() + comment(std::to_string(record.results.size()) +
                                            " results: " + counts_text(count(record.results))));
    }

private:
    std::string close_set()
    {
        const bool is_open = !open_set.empty();
        open_set = {};
        return is_open ? "<LAVA_SIGNAL_TESTSET STOP>\n" : "";
    }

    tools::output_file output;
    std::string_view open_set{}; // a suite of the registry
};

} // namespace

std::unique_ptr<writer> make_lava_writer(const std::string &path)
{
    return std::make_unique<lava_writer>(path);
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// Annotations for GitHub: commands in what a step prints. Of a step ten errors are shown and the
// rest is dropped without a word, so the most telling ones come first and the others are counted.
#include <algorithm>

#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/github.h"

namespace tavor_run {

namespace {

constexpr std::size_t MOST_ERRORS = 10;
constexpr std::size_t MOST_NAMES = 20;

std::string escaped_data(std::string_view text, bool is_property = false)
{
    std::string result;
    for (const char character : tools::printable(text, "\n\r")) {
        const bool must = character == '%' || character == '\n' || character == '\r' ||
                          (is_property && (character == ':' || character == ','));
        if (!must) {
            result += character;
            continue;
        }
        constexpr std::string_view DIGITS = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(character);
        result += {'%', DIGITS[byte >> 4], DIGITS[byte & 15]};
    }
    return result;
}

// The more telling the smaller: what is known comes last.
int rank_of(const case_result &what)
{
    constexpr std::array<verdict, 7> ORDER = {verdict::crash,   verdict::hang, verdict::flood,
                                              verdict::unended, verdict::fail, verdict::damaged,
                                              verdict::unseen};
    const auto place = std::find(ORDER.begin(), ORDER.end(), what.state) - ORDER.begin();
    const bool is_known = what.against_baseline == standing::known;
    return static_cast<int>(place) + (is_known ? static_cast<int>(ORDER.size()) : 0);
}

std::string annotation(const case_history &each)
{
    const case_result &what = each.worst();
    const explain::place where = place_of(what);
    const std::string baseline = words_against_baseline(what);
    std::string text = what.message;
    if (each.runs > 1) {
        text += "\nin " + std::to_string(each.bad) + " of " + std::to_string(each.runs) + " runs";
    }
    text += what.repeat_command.empty() ? "" : "\nagain: " + what.repeat_command;
    return "::error file=" + escaped_data(where.file, true) +
           ",line=" + std::to_string(where.line) + ",title=" +
           escaped_data(what.name + ": " + std::string(name_of(what.state)) +
                            (baseline.empty() ? "" : " [" + baseline + "]"),
                        true) +
           "::" + escaped_data(text) + "\n";
}

// "3 cases: a, b, c"
std::string list_of(const std::vector<const case_history *> &cases)
{
    std::string text = std::to_string(cases.size()) + (cases.size() == 1 ? " case:" : " cases:");
    for (std::size_t i = 0; i < std::min(cases.size(), MOST_NAMES); i++) {
        text += (i == 0 ? " " : ", ") + cases[i]->worst().name;
    }
    return text + (cases.size() > MOST_NAMES ? " ..." : "");
}

class github_writer : public writer {
public:
    explicit github_writer(const std::string &path) : output(path) {}

    void result(const run_record &, const case_result &) override {}

    void end(const run_record &record) override
    {
        const std::vector<case_history> cases = by_case(record.results);
        auto [bad, fixed] = told_cases_of(cases);
        const auto shown = std::min(bad.size(), MOST_ERRORS);
        std::string text;
        for (std::size_t i = 0; i < shown; i++) {
            text += annotation(*bad[i]);
        }
        bad.erase(bad.begin(), bad.begin() + static_cast<std::ptrdiff_t>(shown));
        if (!bad.empty()) {
            text += "::warning title=more that is not good::" + escaped_data(list_of(bad)) + "\n";
        }
        for (std::size_t i = 0; i < std::min(record.notes.size(), MOST_ERRORS - 1); i++) {
            text += "::warning title=note::" + escaped_data(record.notes[i]) + "\n";
        }
        if (!fixed.empty()) {
            text += "::notice title=fixed::" + escaped_data(list_of(fixed)) + "\n";
        }
        const std::string baseline =
            record.has_baseline ? ", " + baseline_text(record.results) : "";
        text +=
            "::notice title=tavor::" + escaped_data(counts_text(count(record.results)) + baseline) +
            "\n";
        output.append(text);
    }

private:
    tools::output_file output;
};

} // namespace

told_cases told_cases_of(const std::vector<case_history> &cases)
{
    told_cases told;
    for (const case_history &each : cases) {
        const case_result &what = each.worst();
        if (what.against_baseline == standing::fixed) told.fixed.push_back(&each);
        if (!is_good(what.state) && what.state != verdict::not_run && !is_excused(what)) {
            told.bad.push_back(&each);
        }
    }
    std::stable_sort(told.bad.begin(), told.bad.end(), [](const auto *one, const auto *other) {
        return rank_of(one->worst()) < rank_of(other->worst());
    });
    return told;
}

std::unique_ptr<writer> make_github_writer(const std::string &path)
{
    return std::make_unique<github_writer>(path);
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// TAP: the plan first, a line a result, a YAML block where there is more to say. What is written
// is the same in versions 13 and 14, but readers of 13 refuse another number.
#include "tools/common/output_file.h"
#include "tools/common/printable.h"
#include "tools/tavor-run/formats/facts.h"
#include "tools/tavor-run/formats/printed.h"
#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

namespace {

using tools::printable;

// A scalar in double quotes, in which nothing has a meaning of its own.
std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char character : printable(text)) {
        if (character == '"' || character == '\\') {
            result += '\\';
        }
        result += character;
    }
    return result + "\"";
}

class tap_writer : public writer {
public:
    tap_writer(const std::string &path, int tap_version) : output(path), version(tap_version) {}

    void begin(const run_record &record) override
    {
        const library_identity &library = record.identity.library;
        std::string text = "TAP version " + std::to_string(version) + "\n";
        if (record.planned > 0) {
            text += "1.." + std::to_string(record.planned) + "\n";
        }
        if (!library.path.empty()) {
            text += "# library " + printable(library.path + " " + library.build_id) + "\n";
        }
        if (!record.identity.settings.empty()) {
            text += "# settings " + printable(record.identity.settings) + "\n";
        }
        if (record.seed) {
            text += "# seed " + std::to_string(*record.seed) + "\n";
        }
        output.append(text);
    }

    void result(const run_record &record, const case_result &what) override
    {
        const bool skipped = what.state == verdict::ignore || what.state == verdict::not_run;
        const bool good = skipped || what.state == verdict::pass;
        const bool is_fixed = what.against_baseline == standing::fixed;
        const bool ok = good && !(is_fixed && record.fixed_is_failure);
        std::string text = (ok ? "ok " : "not ok ") + std::to_string(++points) + " - ";
        text += std::to_string(what.number) + " " + what.name;
        if (skipped) {
            text += " # SKIP " + std::string(name_of(what.state));
        } else if (is_excused(what)) {
            text += " # TODO known failure";
        } else if (is_fixed) {
            text += ok ? " # TODO fixed" : " is fixed, and the baseline has it as a failure";
        }
        text += "\n";
        if (!good) {
            text += "  ---\n  verdict: " + std::string(name_of(what.state)) +
                    "\n  message: " + quoted(what.message) + "\n";
            text +=
                what.repeat_command.empty() ? "" : "  again: " + quoted(what.repeat_command) + "\n";
            text += "  ...\n" + printed_by(what);
        }
        output.append(text);
    }

    void details(const run_record &, const case_result &what) override
    {
        std::string text =
            "# " + what.name + ": " +
            (what.message.empty() ? std::string(name_of(what.state)) : printable(what.message)) +
            "\n";
        for (const text_section &each : sections_of(what)) {
            text += "# " + printable(each.title) + ":\n";
            for (const std::string &line : each.lines) {
                text += "#   " + printable(line) + "\n";
            }
        }
        output.append(text);
    }

    void note(const run_record &, const std::string &text) override
    {
        output.append("# " + printable(text) + "\n");
    }

    void end(const run_record &record) override
    {
        if (record.planned == 0) {
            output.append("1.." + std::to_string(points) + "\n");
        } else if (points < record.planned && exit_code(record) != ALL_PASSED) {
            output.append("Bail out! " + std::to_string(record.planned - points) +
                          " results are missing\n");
        }
    }

private:
    static std::string printed_by(const case_result &what)
    {
        std::string text = what.output.empty() ? "" : "# printed by the case:\n";
        for (const std::string &line : printed_lines(what.output)) {
            text += "#   " + line + "\n";
        }
        return text;
    }

    tools::output_file output;
    int version;
    std::size_t points = 0;
};

} // namespace

std::unique_ptr<writer> make_tap_writer(const std::string &path, int version)
{
    return std::make_unique<tap_writer>(path, version);
}

} // namespace tavor_run

// SPDX-License-Identifier: MIT
//
// Logs as consoles, loggers and labs keep them: each form is judged as the log itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>

#include "tools/common/registry.h"
#include "tools/tavor-run/console/capture.h"
#include "tools/tavor-run/console/console_log.h"

namespace {

using namespace tavor_run;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string recorded(const std::string &name)
{
    std::ifstream file(TAVOR_SOURCE_DIR "/tests/cli/data/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> lines(const std::string &text)
{
    std::istringstream stream(text);
    std::vector<std::string> all;
    for (std::string line; std::getline(stream, line);) {
        all.push_back(line);
    }
    return all;
}

// Each line as the function makes it; lines count from 0.
std::string each_line(const std::string &text,
                      const std::function<std::string(const std::string &, int)> &made)
{
    std::string result;
    int number = 0;
    for (const std::string &line : lines(text)) {
        result += made(line, number++) + "\n";
    }
    return result;
}

std::string behind(const std::string &text, const std::string &prefix)
{
    return each_line(text, [&](const std::string &line, int) { return prefix + line; });
}

// Verdicts and messages, in order.
std::string judged(const std::string &log, const std::vector<std::regex> &strip = {})
{
    run_record record;
    const plain_log plain = make_plain(log, strip);
    judge_log(plain.text, {}, record);
    std::string text;
    for (const case_result &each : record.results) {
        text += each.name + " " + std::string(name_of(each.state)) + " " + each.message + "\n";
    }
    return text + (record.incomplete ? "incomplete" : "");
}

void expect_same(const std::string &what,
                 const std::function<std::string(const std::string &)> &form,
                 const std::vector<std::regex> &strip = {})
{
    for (const std::string file : {"full_run.log", "failing_run.log"}) {
        const std::string log = recorded(file);
        const std::string expected = judged(log);
        ASSERT_THAT(expected, HasSubstr(file == "full_run.log" ? " ignore " : " fail "));
        EXPECT_EQ(judged(form(log), strip), expected) << what << " of " << file;
    }
}

std::string two_digits(int number)
{
    return {static_cast<char>('0' + number / 10 % 10), static_cast<char>('0' + number % 10)};
}

TEST(captures, of_loggers_with_a_prefix)
{
    for (const std::string prefix : {"<6>", "<14>tavor: ", "board-1\t", "| ", "tavor[1]: ",
                                     "ttyS0> ", "[board] ", "  ", "10.0.0.7: ", "2>"}) {
        expect_same(prefix, [&](const std::string &log) { return behind(log, prefix); });
    }
}

TEST(captures, of_the_journal)
{
    const auto journal = [](const std::string &log) {
        return "-- Journal begins at Sat 2026-11-21 09:00:00 UTC. --\n" +
               each_line(log, [](const std::string &line, int number) {
                   const std::string stamp = "Nov 22 04:3" + std::to_string(number % 10) + ":" +
                                             two_digits(number % 60) + " board ";
                   std::string text = stamp + "tavor[4711]: " + line;
                   if (number % 50 == 9) text += "\n" + stamp + "kernel: usb 1-1: new device";
                   return text;
               });
    };
    expect_same("the journal", journal);
    expect_same("the journal with its own times", [](const std::string &log) {
        return each_line(log, [](const std::string &line, int number) {
            return "2026-11-22T04:31:" + two_digits(number % 60) + "+0000 board tavor[12]: " + line;
        });
    });
    expect_same("the journal since boot", [](const std::string &log) {
        return each_line(log, [](const std::string &line, int number) {
            return "[  12.3456" + two_digits(number % 100) + "] board tavor[12]: " + line;
        });
    });
    // A second run is another process of the same name.
    const std::string twice = behind(recorded("full_run.log"), "tavor[1]: ") +
                              behind(recorded("full_run.log"), "tavor[22]: ");
    EXPECT_EQ(judged(twice), judged(recorded("full_run.log")));
}

TEST(captures, of_stamps_after_a_prefix)
{
    expect_same("a tag and a clock", [](const std::string &log) {
        return each_line(log, [](const std::string &line, int number) {
            return "board-1\t04:31:" + two_digits(number % 60) + " " + line;
        });
    });
    expect_same("a level and the kernel's seconds", [](const std::string &log) {
        return each_line(log, [](const std::string &line, int number) {
            return "<6>[   12.3456" + two_digits(number % 100) + "] " + line;
        });
    });
}

TEST(captures, of_conserver)
{
    for (const std::string blank : {"", " "}) {
        expect_same("a stamp a line", [&](const std::string &log) {
            return each_line(log, [&](const std::string &line, int number) {
                std::string text =
                    "[Mon Jan 25 14:46:" + two_digits(number % 60) + " PST 2026]" + blank + line;
                if (number % 40 == 7) text += "\n[-- MARK -- Mon Jan 25 14:46:56 2026]";
                return text;
            });
        });
    }
    expect_same("marks", [](const std::string &log) {
        return "[-- Console up -- Mon Jan 25 14:40:00 2026]\r\n" +
               each_line(log, [](const std::string &line, int number) {
                   return line + "\r" +
                          (number % 40 == 7 ? "\n[-- MARK -- Mon Jan 25 14:46:56 2026]\r" : "");
               });
    });
}

TEST(captures, of_a_lava_job)
{
    const auto job = [](const std::string &log) {
        const auto line_of = [](const std::string &level, const std::string &message) {
            return "- {\"dt\": \"2026-11-22T04:31:00.123456\", \"lvl\": \"" + level +
                   "\", \"msg\": " + message + "}";
        };
        return line_of("info", "\"lava-dispatcher, PASS\"") + "\n" +
               line_of("results", "{\"case\": \"x\", \"definition\": \"lava\"}") + "\n" +
               each_line(log, [&](const std::string &line, int number) {
                   std::string escaped;
                   for (const char each : line) {
                       escaped += each == '"' || each == '\\' ? std::string("\\") : "";
                       escaped += each;
                   }
                   std::string text = line_of("target", "\"" + escaped + "\"");
                   if (number % 30 == 3) text += "\n" + line_of("debug", "\"waiting for PASS\"");
                   return text;
               });
    };
    expect_same("a job", job);
    std::string message;
    EXPECT_TRUE(take_lava_line(
        R"(- {"dt": "t", "lvl": "target", "msg": "a\e[1mb\x41\u00e9\"\\\tc"})", message));
    EXPECT_EQ(message, "a\x1b[1mbA\xc3\xa9\"\\\tc");
    EXPECT_TRUE(take_lava_line(R"({"dt": "t", "lvl": "target", "msg": "cut)", message));
    EXPECT_EQ(message, "");
    EXPECT_FALSE(take_lava_line("kel_role_basic PASS", message));
}

TEST(captures, with_escape_sequences)
{
    expect_same("colours", [](const std::string &log) {
        return each_line(log, [](const std::string &line, int number) {
            return (number % 2 == 0 ? "\x1b[0;32m" : "\x1b[K\x1b(B") + line + "\x1b[0m\x1b[K";
        });
    });
    EXPECT_EQ(without_escapes("a\x1b[1;31mb\x1b[0mc\x1b]0;title\x07"
                              "d\x1b]2;x\x1b\\e\x1b"
                              "7f\x1b[?25lg"),
              "abcdefg");
    EXPECT_EQ(without_escapes("a\x1b[3"), "a\x1b[3") << "not whole";
    EXPECT_EQ(without_escapes("a\x1b"), "a\x1b");
    EXPECT_EQ(without_escapes("plain"), "plain");
}

TEST(captures, with_a_pattern)
{
    const auto odd = [](const std::string &log) {
        return each_line(log, [](const std::string &line, int number) {
            return std::to_string(number) + " #" + std::to_string(number * 7) + "# " + line;
        });
    };
    expect_same("a counter", odd, {std::regex("[0-9]+ #[0-9]+# ")});
    // Where there is no header, as in ZEB format, too.
    const std::string zeb = recorded("zeb_run.log");
    EXPECT_EQ(judged(odd(zeb), {std::regex("[0-9]+ #[0-9]+# ")}), judged(zeb));
}

TEST(captures, of_several_consoles)
{
    const auto full = lines(recorded("full_run.log"));
    const auto failing = lines(recorded("failing_run.log"));
    std::string both;
    for (std::size_t i = 0; i < std::max(full.size(), failing.size()); i++) {
        both += i < full.size() ? "board-1\t" + full[i] + "\n" : "";
        both += i < failing.size() ? "board-2\t" + failing[i] + "\n" : "";
    }
    EXPECT_EQ(judged(both), judged(recorded("full_run.log")));
    EXPECT_THAT(make_plain(both).notes, ElementsAre(HasSubstr("\"board-2\\x09\" are left out")));
    EXPECT_EQ(judged(both, {std::regex("board-2\t")}), judged(recorded("failing_run.log")));
}

// A prefix makes no verdict count that did not count without it.
TEST(captures, with_damage_stay_damaged)
{
    const std::string log = recorded("failing_run.log");
    // The header is whole: it tells the prefix.
    for (std::size_t at = log.find('\n') + 1; at < log.size(); at += 97) {
        std::string damaged = log;
        damaged.replace(at, std::min<std::size_t>(7, log.size() - at), "\x01noise\n");
        EXPECT_EQ(judged(behind(damaged, "board-1\t")), judged(damaged)) << at;
    }
}

TEST(captures, without_anything_of_tavor)
{
    for (const std::string text : {"", "\n\n", "login: root\n# ls\n", "PASS\n"}) {
        run_record record;
        judge_log(make_plain(text).text, {}, record);
        EXPECT_THAT(record.results, IsEmpty()) << text;
        EXPECT_THAT(record.notes, ElementsAre(HasSubstr("nothing of tavor in this log")));
        EXPECT_EQ(exit_code(record), NOTHING_RAN);
    }
    run_record record;
    judge_log("Name                                     Verdict  Info\n", {}, record);
    EXPECT_THAT(record.results, SizeIs(tools::all_cases().size()));
}

TEST(captures, of_which_the_beginning_is_lost)
{
    const std::string log = recorded("full_run.log");
    run_record record;
    judge_log(log.substr(log.find("kel_packet_append ")), {}, record);
    ASSERT_THAT(record.notes, SizeIs(1));
    const std::string all = std::to_string(tools::all_cases().size());
    EXPECT_THAT(record.notes[0], testing::StartsWith("the summary counts " + all + " run, " + all +
                                                     " passed, 0 failed; "));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// What tavor-run makes of console logs: recorded ones, cut ones and noisy ones.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <string>

#include "tests/cli/log_noise.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/console/console_log.h"

namespace {

using namespace tavor_run;
using log_noise::recorded;
using log_noise::truth;
using testing::HasSubstr;
using testing::SizeIs;

std::string column(const std::string &name)
{
    std::string text = name.substr(0, 40);
    text.resize(41, ' ');
    return text;
}

std::string name_of_row(int row)
{
    return std::string(tools::all_cases()[static_cast<std::size_t>(row)].name);
}

std::string line(int row, const std::string &verdict)
{
    return column(name_of_row(row)) + verdict + "\n";
}

std::string failed(std::string message)
{
    message.resize(83, ' ');
    return "FAIL : " + message;
}

run_record judged(const std::string &log, const std::vector<int> &rows = {}, bool any_order = false)
{
    run_record record;
    log_options options;
    options.expected = rows;
    options.any_order = any_order;
    judge_log(log, options, record);
    return record;
}

// The verdict of a row, not_run when there is no result.
verdict state_in(const run_record &record, int row)
{
    for (const case_result &each : record.results) {
        if (each.number == row) {
            return each.state;
        }
    }
    return verdict::not_run;
}

std::string summary(unsigned run, unsigned passed, unsigned failed_count)
{
    const auto number = [](unsigned count) {
        const std::string text = std::to_string(count);
        return std::string(3 - text.size(), ' ') + text + "\n";
    };
    return std::string(74, '=') + "\nSummary: Number of tests run:    " + number(run) +
           "         Number of tests passed: " + number(passed) +
           "         Number of tests failed: " + number(failed_count);
}

const std::vector<int> TWO = {10, 11};
const std::vector<int> THREE = {10, 11, 12};

TEST(console_log, name_columns_are_told_apart)
{
    std::map<std::string, int> columns;
    for (const tools::test_case &each : tools::all_cases()) {
        columns[column(std::string(each.name))]++;
    }
    EXPECT_THAT(columns, SizeIs(tools::all_cases().size()));
}

TEST(console_log, recorded_runs_are_read_in_full)
{
    for (const std::string file : {"full_run.log", "failing_run.log", "zeb_run.log"}) {
        const std::string log = recorded(file);
        const run_record record = judged(log);
        ASSERT_THAT(record.results, SizeIs(tools::all_cases().size())) << file;
        const auto truths = log_noise::truths_in(log);
        for (const case_result &each : record.results) {
            const std::string &said = truths[static_cast<std::size_t>(each.number)].verdict;
            EXPECT_EQ(said, each.state == verdict::pass     ? "PASS"
                            : each.state == verdict::ignore ? "IGNORE"
                            : each.state == verdict::fail   ? "FAIL"
                                                            : "none")
                << file << " " << each.name;
        }
        EXPECT_EQ(exit_code(record),
                  file == std::string("full_run.log") ? ALL_PASSED : SOME_FAILED);
        EXPECT_FALSE(record.incomplete);
    }
}

TEST(console_log, a_failure_has_its_message)
{
    const run_record record =
        judged(line(10, failed("msg='wrong' line=12")) + line(11, "PASS"), TWO);
    EXPECT_EQ(record.results[0].state, verdict::fail);
    EXPECT_EQ(record.results[0].message, "msg='wrong' line=12");
}

TEST(console_log, blanks_at_the_end_may_be_lost)
{
    EXPECT_EQ(state_in(judged(line(10, "FAIL : wrong") + line(11, "PASS"), TWO), 10),
              verdict::fail);
    EXPECT_EQ(state_in(judged(line(10, "FAIL : wrong ") + line(11, "PASS"), TWO), 10),
              verdict::damaged);
}

TEST(console_log, kernel_text_may_stand_between_name_and_verdict)
{
    const std::string name = column(name_of_row(10));
    const std::string kernel = "[   12.345678] usb 1-1: reset\n";
    EXPECT_EQ(state_in(judged(name + kernel + "PASS\n" + line(11, "PASS"), TWO), 10),
              verdict::pass);
    EXPECT_EQ(state_in(judged(name + "\n<4>" + kernel + "PASS\n" + line(11, "PASS"), TWO), 10),
              verdict::pass);
    EXPECT_EQ(state_in(judged(name + kernel + failed("x") + "\n" + line(11, "PASS"), TWO), 10),
              verdict::fail);
}

TEST(console_log, other_text_there_is_the_cases_own)
{
    const std::string name = column(name_of_row(10));
    for (const std::string own : {"random: crng init done\n", "PA\n", "\nFAIL    : x\nFAIL: y\n"}) {
        const run_record record = judged(name + own + "PASS\n" + line(11, "PASS"), TWO);
        EXPECT_EQ(state_in(record, 10), verdict::pass) << own;
        EXPECT_EQ(record.results[0].output, own.substr(own.starts_with('\n') ? 1 : 0));
        EXPECT_EQ(record.results[1].output, "");
    }
}

TEST(console_log, much_text_keeps_its_beginning_and_end)
{
    std::string own = "first\n";
    for (int i = 0; i < 10'000; i++) {
        own += "middle\n";
    }
    const run_record record =
        judged(column(name_of_row(10)) + own + "last\nPASS\n" + line(11, "PASS"), TWO);
    EXPECT_EQ(state_in(record, 10), verdict::pass);
    EXPECT_THAT(record.results[0].output,
                testing::AllOf(testing::StartsWith("first\n"), HasSubstr(" bytes left out]\n"),
                               testing::EndsWith("\nlast\n")));
    EXPECT_LT(record.results[0].output.size(), 20'000U);
}

TEST(console_log, text_of_a_case_that_never_ended_is_kept)
{
    const run_record record =
        judged(line(10, "PASS") + column(name_of_row(11)) + "now at 1\nnow at", TWO);
    EXPECT_EQ(state_in(record, 11), verdict::unended);
    EXPECT_EQ(record.results[1].output, "now at 1\nnow at");
}

TEST(console_log, text_proves_nothing_of_lost_lines)
{
    const auto name = [](int row) { return column(name_of_row(row)); };
    // Behind the text of the first the name of the second is lost, and perhaps
    // what is before it.
    for (const std::string between : {"", "own text\n", "PA\nown text\n", "x PASS\n"}) {
        const run_record record = judged(name(10) + "own text\n" + between + "PASS\n" +
                                             line(12, "PASS") + line(13, "PASS"),
                                         {10, 11, 12, 13});
        EXPECT_EQ(state_in(record, 10), verdict::damaged) << between;
        EXPECT_TRUE(is_lost(state_in(record, 11))) << between;
        EXPECT_EQ(state_in(record, 12), verdict::pass) << between;
    }
    // The summary tells of it, too, and where the order is not known it alone
    // does.
    const std::string one = name(10) + "own text\nPASS\n";
    EXPECT_EQ(state_in(judged(one + line(12, "PASS") + summary(3, 3, 0)), 10), verdict::damaged);
    EXPECT_EQ(state_in(judged(one + line(12, "PASS") + summary(2, 2, 0)), 10), verdict::pass);
    EXPECT_EQ(state_in(judged(one + line(12, "PASS"), THREE, true), 10), verdict::damaged);
    EXPECT_EQ(state_in(judged(one + line(12, "PASS") + summary(2, 2, 0), THREE, true), 10),
              verdict::pass);
    EXPECT_EQ(state_in(judged(one + line(12, "PASS") + summary(3, 3, 0), THREE, true), 10),
              verdict::damaged);
}

TEST(console_log, a_verdict_that_is_not_whole_is_damage)
{
    const std::string name = column(name_of_row(10));
    for (const std::string noise : {"x", "PASS", "\tPASS\n", "FAIL : wro\nng\n", "x IGNORE\n"}) {
        EXPECT_EQ(state_in(judged(name + noise + "PASS\n" + line(11, "PASS"), TWO), 10),
                  verdict::damaged)
            << noise;
    }
}

TEST(console_log, foreign_lines_can_be_named)
{
    log_options options;
    options.expected = TWO;
    options.foreign.emplace_back("^random:");
    run_record record;
    judge_log(column(name_of_row(10)) + "\nrandom: crng init done\nPASS\n" + line(11, "PASS"),
              options, record);
    EXPECT_EQ(state_in(record, 10), verdict::pass);
}

TEST(console_log, a_foreign_line_may_be_of_any_length)
{
    log_options options;
    options.expected = TWO;
    options.foreign.emplace_back("^x.*y");
    run_record record;
    judge_log(column(name_of_row(10)) + "\nxy" + std::string(1'000'000, 'x') + "\nPASS\n" +
                  line(11, "PASS") + "x" + std::string(1'000'000, '-') + "\n",
              options, record);
    EXPECT_EQ(state_in(record, 10), verdict::pass);
}

TEST(console_log, kernel_text_in_the_verdict_is_damage)
{
    const std::string name = column(name_of_row(10));
    for (const std::string text : {"PA[   12.345678] usb\nSS\n", "PASS[   12.345678] usb\n\n",
                                   "FAIL : wro[   12.345678] usb\nng\n"}) {
        EXPECT_EQ(state_in(judged(name + text + line(11, "PASS"), TWO), 10), verdict::damaged);
    }
}

TEST(console_log, a_broken_name_is_damage_to_its_case_alone)
{
    const std::string second = line(11, "PASS");
    const std::string log = line(10, "PASS") + second.substr(0, 7) + "[   12.345678] usb\n" +
                            second.substr(7) + line(12, "PASS");
    const run_record record = judged(log, THREE);
    EXPECT_EQ(state_in(record, 10), verdict::pass);
    EXPECT_EQ(state_in(record, 11), verdict::damaged);
    EXPECT_EQ(state_in(record, 12), verdict::pass);
}

TEST(console_log, a_verdict_behind_a_lost_name_is_not_given_to_another_case)
{
    // Lost: the failure of the first and the name of the second.
    const std::string log = column(name_of_row(10)) + "PASS\n" + line(12, "PASS");
    const run_record record = judged(log, THREE);
    EXPECT_EQ(state_in(record, 10), verdict::damaged);
    EXPECT_EQ(state_in(record, 11), verdict::unseen);
    EXPECT_EQ(state_in(record, 12), verdict::pass);
    EXPECT_EQ(exit_code(record), SOME_LOST);
}

TEST(console_log, two_verdicts_are_damage)
{
    EXPECT_EQ(state_in(judged(line(10, "PASS") + "PASS\n" + line(11, "PASS"), TWO), 10),
              verdict::damaged);
}

TEST(console_log, a_name_at_the_end_never_ended)
{
    const run_record record = judged(line(10, "PASS") + column(name_of_row(11)), THREE);
    EXPECT_EQ(state_in(record, 10), verdict::pass);
    EXPECT_EQ(state_in(record, 11), verdict::unended);
    EXPECT_EQ(state_in(record, 12), verdict::unseen);
}

TEST(console_log, a_name_before_a_new_run_never_ended)
{
    const std::string header =
        "Name                                     Verdict  Info\n" + std::string(75, '=') + "\n";
    const run_record record = judged(header + line(10, "PASS") + column(name_of_row(11)) + "\n" +
                                         header + line(12, "PASS"),
                                     THREE);
    EXPECT_EQ(state_in(record, 11), verdict::unended);
    EXPECT_EQ(state_in(record, 12), verdict::pass);
}

TEST(console_log, a_loop_is_judged_by_the_worst)
{
    const std::string log = line(10, "PASS") + line(11, "PASS") + line(10, failed("now")) +
                            line(11, "PASS") + line(10, "PASS") + line(11, "PASS");
    const run_record record = judged(log, TWO);
    EXPECT_EQ(state_in(record, 10), verdict::fail);
    EXPECT_EQ(state_in(record, 11), verdict::pass);
}

TEST(console_log, any_order_is_for_random_runs)
{
    const std::string log = line(11, "PASS") + line(10, "PASS") + line(12, "PASS");
    EXPECT_EQ(exit_code(judged(log, THREE, true)), ALL_PASSED);
    EXPECT_EQ(exit_code(judged(log, THREE, false)), SOME_LOST);
}

TEST(console_log, an_agreeing_summary_tells_that_nothing_else_ran)
{
    const run_record record = judged(line(10, "PASS") + line(40, "PASS") + summary(2, 2, 0));
    EXPECT_THAT(record.results, SizeIs(2));
    EXPECT_EQ(exit_code(record), ALL_PASSED);
}

TEST(console_log, a_summary_with_more_cases_does_not)
{
    const run_record record = judged(line(10, "PASS") + line(40, "PASS") + summary(3, 2, 1));
    EXPECT_THAT(record.results, SizeIs(tools::all_cases().size()));
    EXPECT_EQ(state_in(record, 10), verdict::damaged);
    EXPECT_EQ(exit_code(record), SOME_LOST);
}

TEST(console_log, a_contradicting_summary_is_told)
{
    const run_record record = judged(line(10, "PASS") + line(11, "PASS") + summary(2, 1, 1), TWO);
    ASSERT_THAT(record.notes, SizeIs(1));
    EXPECT_THAT(record.notes[0], HasSubstr("1 passed, the lines show 2"));
    EXPECT_EQ(exit_code(record), SOME_LOST);
}

TEST(console_log, names_only_filter_a_log_with_more_cases)
{
    const run_record record = judged(recorded("failing_run.log"), THREE);
    EXPECT_THAT(record.results, SizeIs(3));
    EXPECT_FALSE(record.incomplete);
    EXPECT_EQ(state_in(record, 10), verdict::pass);
}

TEST(console_log, stamps_and_returns_are_stripped)
{
    const std::string log = recorded("failing_run.log");
    log_noise::noisy_log stamped(log, 1);
    stamped.add_stamps();
    stamped.add_returns();
    const run_record record = judged(stamped.text());
    EXPECT_EQ(count(record.results), count(judged(log).results));
    for (const std::string stamp :
         {"[   12.345678] ", "2024-03-01T12:00:00.123Z ", "12:00:00 ", "Mar  1 12:00:00 "}) {
        EXPECT_EQ(state_in(judged(stamp + line(10, "PASS") + stamp + line(11, "PASS"), TWO), 10),
                  verdict::pass)
            << stamp;
    }
}

TEST(console_log, an_unstamped_verdict_in_a_stamped_log_is_damage)
{
    const std::string stamp = "12:00:00 ";
    const std::string log = stamp + column(name_of_row(10)) + "\nPASS\n" + stamp + line(11, "PASS");
    EXPECT_EQ(state_in(judged(log, TWO), 10), verdict::damaged);
}

TEST(console_log, nothing_in_it_is_nothing_run)
{
    EXPECT_EQ(exit_code(judged("")), NOTHING_RAN);
    EXPECT_EQ(exit_code(judged("Linux version 6.1\nlogin: ")), NOTHING_RAN);
}

TEST(console_log, reading_in_pieces_makes_no_difference)
{
    const std::string log = recorded("full_run.log");
    log_reader whole({});
    whole.feed(log);
    whole.finish();
    std::vector<int> started;
    log_events events;
    events.on_started = [&](int row) { started.push_back(row); };
    log_reader pieces({}, events);
    for (const char each : log) {
        pieces.feed({&each, 1});
    }
    pieces.finish();
    ASSERT_EQ(pieces.sightings().size(), whole.sightings().size());
    for (std::size_t i = 0; i < whole.sightings().size(); i++) {
        EXPECT_EQ(pieces.sightings()[i].state, whole.sightings()[i].state);
        EXPECT_EQ(pieces.sightings()[i].line, whole.sightings()[i].line);
    }
    EXPECT_THAT(started, SizeIs(tools::all_cases().size()));
}

// A pass, or a case passed over, that the log does not say with all its bytes.
std::vector<std::string> false_passes_of_cut(const run_record &record,
                                             const std::vector<truth> &truths, std::size_t cut)
{
    std::vector<std::string> found;
    for (const case_result &each : record.results) {
        const truth &said = truths[static_cast<std::size_t>(each.number)];
        const std::string_view word = each.state == verdict::pass ? "PASS" : "IGNORE";
        if (is_good(each.state) && (said.verdict != word || said.end > cut)) {
            found.emplace_back(each.name);
        }
    }
    return found;
}

class cut_logs : public testing::TestWithParam<const char *> {};

TEST_P(cut_logs, never_show_a_pass_that_is_none)
{
    const std::string log = recorded(GetParam());
    const auto truths = log_noise::truths_in(log);
    std::size_t complete = 0; // cases whose lines are complete
    std::vector<std::size_t> ends;
    for (const truth &said : truths) {
        ends.push_back(said.end);
    }
    std::sort(ends.begin(), ends.end());
    for (std::size_t cut = 0; cut <= log.size(); cut++) {
        while (complete < ends.size() && ends[complete] <= cut) {
            complete++;
        }
        const run_record record = judged(log.substr(0, cut));
        ASSERT_THAT(false_passes_of_cut(record, truths, cut), SizeIs(0)) << "cut at " << cut;
        // All but the last are certain: what was not cut is read.
        const tally counts = count(record.results);
        const unsigned read = counted(counts, verdict::pass) + counted(counts, verdict::ignore) +
                              counted(counts, verdict::fail);
        ASSERT_GE(read + 1, complete) << "cut at " << cut;
        ASSERT_LE(read, complete) << "cut at " << cut;
    }
}

INSTANTIATE_TEST_SUITE_P(recorded, cut_logs,
                         testing::Values("full_run.log", "failing_run.log", "zeb_run.log"),
                         [](const auto &about) {
                             const std::string file = about.param;
                             return file.substr(0, file.find('.'));
                         });

// The log of cases that all print two lines before their verdict.
std::string with_own_text(std::string log)
{
    for (const tools::test_case &each : tools::all_cases()) {
        const std::string name = "\n" + column(std::string(each.name));
        const std::size_t at = log.find(name);
        if (at != std::string::npos) {
            log.insert(at + name.size(), "now at step 1\nnow at step 2\n");
        }
    }
    return log;
}

TEST(noisy_logs, never_show_a_pass_that_is_none)
{
    constexpr unsigned LOGS = 1000;
    constexpr unsigned DISTURBANCES = 12;
    const std::vector<std::string> files = {"full_run.log", "failing_run.log", "zeb_run.log"};
    unsigned passes = 0;
    unsigned lost = 0;
    for (unsigned seed = 0; seed < LOGS; seed++) {
        const std::string &file = files[seed % files.size()];
        const bool talks = seed % 4 == 3 && file != "zeb_run.log";
        const std::string log = talks ? with_own_text(recorded(file)) : recorded(file);
        const auto truths = log_noise::truths_in(log);
        log_noise::noisy_log noisy(log, seed);
        if (seed % 2 == 1) {
            noisy.add_stamps();
        }
        if (seed % 5 == 1) {
            noisy.add_returns();
        }
        for (unsigned i = 0; i <= seed % DISTURBANCES; i++) {
            noisy.disturb();
        }
        const std::vector<std::ptrdiff_t> places = noisy.places(log.size());
        for (const case_result &each : judged(noisy.text()).results) {
            passes += each.state == verdict::pass ? 1U : 0U;
            lost += is_lost(each.state) ? 1U : 0U;
            if (is_good(each.state)) {
                const truth &said = truths[static_cast<std::size_t>(each.number)];
                const std::string word = each.state == verdict::pass ? "PASS" : "IGNORE";
                EXPECT_EQ(said.verdict, word) << "seed " << seed << " " << each.name;
                EXPECT_TRUE(log_noise::has_kept(places, said.start, said.end - 1))
                    << "seed " << seed << " " << each.name;
            }
        }
    }
    // Neither is everything thrown away nor nothing noticed.
    EXPECT_GT(passes, LOGS * 300);
    EXPECT_GT(lost, LOGS);
}

} // namespace

// SPDX-License-Identifier: MIT
//
// What results mean together: exit codes, baselines, stored results, bisection.
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

#include "tests/support/scratch.h"
#include "tools/common/loader.h"
#include "tools/tavor-run/formats/markup.h"
#include "tools/tavor-run/formats/writer.h"
#include "tools/tavor-run/results/baseline.h"
#include "tools/tavor-run/run/bisect.h"
#include "tools/tavor-run/run/selection.h"

namespace {

using namespace tavor_run;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

case_result result(int number, verdict state, const std::string &message = "")
{
    return result_of(number, state, message);
}

int code_of(const std::vector<case_result> &results)
{
    run_record record;
    record.results = results;
    return exit_code(record);
}

TEST(exit_codes, the_worst_decides)
{
    EXPECT_EQ(code_of({result(1, verdict::pass), result(2, verdict::ignore)}), ALL_PASSED);
    EXPECT_EQ(code_of({result(1, verdict::pass), result(2, verdict::fail)}), SOME_FAILED);
    for (const verdict lost : {verdict::crash, verdict::hang, verdict::flood, verdict::damaged,
                               verdict::unended, verdict::unseen}) {
        EXPECT_EQ(code_of({result(1, verdict::fail), result(2, lost)}), SOME_LOST);
    }
    EXPECT_EQ(code_of({}), NOTHING_RAN);
    EXPECT_EQ(code_of({result(1, verdict::unseen)}), NOTHING_RAN);
    EXPECT_EQ(code_of({result(1, verdict::not_run)}), NOTHING_RAN);
}

TEST(exit_codes, something_beside_the_cases_counts)
{
    run_record record;
    record.results = {result(1, verdict::pass)};
    record.incomplete = true;
    EXPECT_EQ(exit_code(record), SOME_LOST);
}

TEST(exit_codes, with_a_baseline_differences_decide)
{
    run_record record;
    record.has_baseline = true;
    record.results = {result(1, verdict::fail)};
    EXPECT_EQ(exit_code(record), ALL_PASSED);
    record.results[0].difference = "new failure";
    EXPECT_EQ(exit_code(record), SOME_FAILED);
    record.results = {result(1, verdict::pass)};
    record.results[0].difference = "fixed";
    EXPECT_EQ(exit_code(record), SOME_FAILED);
    record.results = {result(1, verdict::pass)};
    record.lost_cases = true;
    EXPECT_EQ(exit_code(record), SOME_FAILED);
}

TEST(histories, keep_the_first_of_the_worst)
{
    const std::vector<case_result> results = {
        result(1, verdict::pass), result(1, verdict::fail, "first"),
        result(1, verdict::fail, "second"), result(1, verdict::pass), result(2, verdict::pass)};
    const auto histories = by_case(results);
    ASSERT_THAT(histories, SizeIs(2));
    EXPECT_EQ(histories[0].worst().message, "first");
    EXPECT_EQ(histories[0].runs, 4U);
    EXPECT_EQ(histories[0].bad, 2U);
    EXPECT_EQ(histories[1].bad, 0U);
}

TEST(messages, are_compared_without_line_numbers)
{
    EXPECT_EQ(comparable("msg='x failed' line=12"), comparable("msg='x failed' line=345"));
    EXPECT_NE(comparable("msg='x failed' line=12"), comparable("msg='y failed' line=12"));
    EXPECT_EQ(comparable("plain line=12"), "plain line=12");
    // However much of the line number the table has cut off.
    for (std::size_t length = 60; length < 90; length++) {
        const std::string message = "msg='" + std::string(length, 'm') + "' line=";
        EXPECT_EQ(comparable((message + "7").substr(0, 83)), comparable(message + "123")) << length;
        EXPECT_EQ(comparable((message + "71").substr(0, 83)),
                  comparable((message + "123").substr(0, 83)))
            << length;
    }
}

std::string difference_of(verdict before, const std::string &first, verdict after,
                          const std::string &second = "")
{
    return compare(outcome{"kel_role_basic", before, first},
                   outcome{"kel_role_basic", after, second})
        .text;
}

standing standing_of(verdict before, verdict after)
{
    return compare(outcome{"kel_role_basic", before, "x"}, outcome{"kel_role_basic", after, "x"})
        .what;
}

TEST(differences, have_names)
{
    EXPECT_EQ(difference_of(verdict::pass, "", verdict::pass), "");
    EXPECT_EQ(difference_of(verdict::pass, "", verdict::fail, "x"), "new failure");
    EXPECT_EQ(difference_of(verdict::ignore, "", verdict::crash, "x"), "new failure");
    EXPECT_EQ(difference_of(verdict::fail, "x", verdict::pass), "fixed");
    EXPECT_EQ(difference_of(verdict::fail, "x", verdict::fail, "y"), "changed message");
    EXPECT_EQ(difference_of(verdict::fail, "msg='x' line=1", verdict::fail, "msg='x' line=2"), "");
    EXPECT_EQ(difference_of(verdict::fail, "x", verdict::crash), "changed, fail -> crash");
    EXPECT_EQ(difference_of(verdict::pass, "", verdict::ignore), "pass -> ignore");
    EXPECT_EQ(difference_of(verdict::ignore, "", verdict::pass), "ignore -> pass");
    EXPECT_EQ(difference_of(verdict::pass, "", verdict::unseen), "vanished");
    EXPECT_EQ(difference_of(verdict::pass, "", verdict::not_run), "");
    EXPECT_EQ(difference_of(verdict::crash, "SIGSEGV", verdict::crash, "SIGBUS"), "");
}

TEST(differences, are_new_fixed_known_or_changed)
{
    EXPECT_EQ(standing_of(verdict::pass, verdict::pass), standing::same);
    EXPECT_EQ(standing_of(verdict::pass, verdict::fail), standing::fresh);
    EXPECT_EQ(standing_of(verdict::fail, verdict::fail), standing::known);
    EXPECT_EQ(standing_of(verdict::crash, verdict::crash), standing::known);
    EXPECT_EQ(standing_of(verdict::fail, verdict::ignore), standing::fixed);
    EXPECT_EQ(standing_of(verdict::fail, verdict::hang), standing::changed);
    EXPECT_EQ(standing_of(verdict::fail, verdict::unseen), standing::changed);
    EXPECT_EQ(standing_of(verdict::fail, verdict::not_run), standing::same);
}

TEST(differences, of_whole_runs)
{
    stored_run before;
    before.results = {{"kel_role_basic", verdict::pass, ""}, {"kel_gone", verdict::pass, ""}};
    stored_run after;
    after.results = {{"kel_role_basic", verdict::fail, "x"}, {"kel_new", verdict::pass, ""}};
    const auto differences = compare(before, after);
    ASSERT_THAT(differences, SizeIs(3));
    EXPECT_EQ(differences[0].what, "new failure");
    EXPECT_EQ(differences[1].what, "vanished");
    EXPECT_EQ(differences[2].what, "new case");
    EXPECT_THAT(compare(before, before), IsEmpty());
}

TEST(differences, of_a_baseline)
{
    stored_run run;
    run.results = {{"kel_role_basic", verdict::fail, "x"}, {"kel_gone", verdict::pass, ""}};
    const baseline known(run);
    const auto judged = [&](int number, verdict state, const std::string &message = "") {
        case_result what = result(number, state, message);
        known.judge(what);
        return words_against_baseline(what);
    };
    EXPECT_EQ(judged(392, verdict::fail, "x"), "known");
    EXPECT_EQ(judged(392, verdict::fail, "y"), "changed message");
    EXPECT_EQ(judged(392, verdict::pass), "fixed");
    EXPECT_EQ(judged(0, verdict::fail, "x"), "new failure");
    EXPECT_EQ(judged(0, verdict::pass), "");
    EXPECT_THAT(known.vanished(), ElementsAre("kel_gone"));
}

class stored : public testing::Test {
protected:
    const support::scratch_folder scratch;
    const std::string path = scratch.file("stored.jsonl");

    void write_run()
    {
        reporter report{run_record{}};
        report.add(make_json_writer(path));
        report.begin();
        report.result(result(392, verdict::pass));
        report.result(result(393, verdict::fail, "bad \xff byte"));
        report.result(result(393, verdict::pass));
        report.end();
    }

    std::string content()
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
};

TEST_F(stored, results_come_back)
{
    write_run();
    const stored_run run = read_results(path);
    EXPECT_TRUE(run.has_end);
    ASSERT_THAT(run.results, SizeIs(2));
    EXPECT_EQ(run.results[0].state, verdict::pass);
    EXPECT_EQ(run.results[1].state, verdict::fail);
    EXPECT_EQ(run.results[1].message, "bad \xef\xbf\xbd byte");
    EXPECT_THAT(names_to_repeat(run), ElementsAre("kel_role_always"));
}

TEST_F(stored, a_file_cut_anywhere_is_read_or_refused)
{
    write_run();
    const std::string all = content();
    const std::size_t first_line = all.find('\n') + 1;
    for (std::size_t cut = 0; cut < all.size(); cut++) {
        std::ofstream(path) << all.substr(0, cut);
        // A line that lacks nothing but its end is whole.
        if (cut + 1 < first_line) {
            EXPECT_THROW(read_results(path), usage_error) << cut;
        } else {
            EXPECT_EQ(read_results(path).has_end, cut + 1 == all.size()) << cut;
        }
    }
}

TEST_F(stored, other_files_are_refused)
{
    EXPECT_THROW(read_results("/nowhere/results"), usage_error);
    for (const std::string text :
         {"", "PASS\n", "{}\n", "[]\n", "{\"type\":\"run\",\"format\":9}\n",
          "{\"type\":\"case\",\"verdict\":\"pass\"}\n"}) {
        std::ofstream(path) << text;
        EXPECT_THROW(read_results(path), usage_error) << text;
    }
}

TEST(minimised_lists, hold_and_cannot_be_shorter)
{
    const auto rows_up_to = [](int count) {
        std::vector<int> rows(static_cast<std::size_t>(count));
        for (int i = 0; i < count; i++) {
            rows[static_cast<std::size_t>(i)] = i;
        }
        return rows;
    };
    const auto needs = [](std::vector<int> wanted) {
        return [wanted](const std::vector<int> &rows) {
            return std::includes(rows.begin(), rows.end(), wanted.begin(), wanted.end());
        };
    };
    for (const int count : {1, 2, 3, 10, 257}) {
        const std::vector<int> all = rows_up_to(count);
        EXPECT_THAT(minimised(all, needs({0})), ElementsAre(0)) << count;
        EXPECT_THAT(minimised(all, needs({count - 1})), ElementsAre(count - 1)) << count;
        EXPECT_EQ(minimised(all, needs(all)), all) << count;
    }
    EXPECT_THAT(minimised(rows_up_to(400), needs({3, 200, 201})), ElementsAre(3, 200, 201));
}

TEST(halving, finds_the_first_bad_one)
{
    for (std::size_t count = 0; count < 40; count++) {
        for (std::size_t first = 0; first <= count; first++) {
            unsigned tries = 0;
            EXPECT_EQ(first_bad(count,
                                [&](std::size_t index) {
                                    tries++;
                                    return index < first;
                                }),
                      first);
            EXPECT_LE(tries, 8U);
        }
    }
}

TEST(libraries, that_are_damaged_are_read_with_care)
{
    const std::string bytes = tools::read_bytes(KEL_REFERENCE_LIBRARY);
    const library_identity whole = describe_library("x", bytes);
    EXPECT_TRUE(whole.was_read);
    EXPECT_TRUE(whole.is_reference);
    EXPECT_EQ(whole.soname, "libkel.so");
    constexpr std::size_t HEADERS = 1024;
    for (std::size_t at = 0; at < HEADERS; at++) {
        describe_library("x", bytes.substr(0, at));
        for (const char value : {'\0', '\x7f', '\xff'}) {
            std::string changed = bytes.substr(0, 8 * HEADERS);
            changed[at] = value;
            EXPECT_EQ(describe_library("x", changed).path, "x");
        }
    }
    EXPECT_FALSE(describe_library("x", "no library").was_read);
}

TEST(libraries, are_found_in_what_the_loader_lists)
{
    EXPECT_EQ(
        tools::library_in_listing("\tlinux-vdso.so.1 (0x1)\n\tlibkel.so => /a b/libkel.so (0x2)\n"),
        "/a b/libkel.so");
    EXPECT_EQ(tools::library_in_listing("\tlibkel.so.1 => /lib/libkel.so.1 (0x2)\n"),
              "/lib/libkel.so.1");
    EXPECT_EQ(tools::library_in_listing("\tlibkel.so => not found\n"), "");
    EXPECT_EQ(tools::library_in_listing("\tlibkeltrace.so => /lib/libkeltrace.so (0x2)\n"), "");
    EXPECT_EQ(tools::library_in_listing("Usage: tavor\n"), "");
}

TEST(markup, what_xml_cannot_hold_is_written_out)
{
    EXPECT_EQ(escaped("a<b>&\"c"), "a&lt;b&gt;&amp;&quot;c");
    EXPECT_EQ(escaped("gr\xc3\xbc\xc3\x9f"), "gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(escaped(std::string("\0\x1b", 2)), "\\x00\\x1b");
    EXPECT_EQ(escaped("<\xff"), "&lt;\\xff");
    EXPECT_EQ(escaped("\tx\n"), "\tx\n");
}

} // namespace

// SPDX-License-Identifier: MIT
//
// Reports as their readers want them: JUnit XML by a schema, LAVA's signals by a strict reader.
#include <map>
#include <set>

#include "tests/cli/lava_signals.h"
#include "tests/cli/run_fixture.h"
#include "tools/common/registry.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const std::string DATA = TAVOR_SOURCE_DIR "/tests/cli/data/";

class junit : public run_test {
protected:
    // What the schema says against a document; empty for nothing.
    static std::string complaints(const std::string &path)
    {
        tools::process_options check;
        const std::string schema = TAVOR_SOURCE_DIR "/tests/cli/junit.xsd";
        check.arguments = {"xmllint", "--noout", "--nonet", "--schema", schema, path};
        const auto checked = tools::run_process(check);
        return checked.exited_with(0) ? "" : "refused: " + checked.errors;
    }

    std::string complaints_about(const std::string &text) const
    {
        std::ofstream(file("about.xml")) << text;
        return complaints(file("about.xml"));
    }

    // The sum of an attribute over all suites.
    static unsigned total(const std::string &document, const std::string &attribute)
    {
        unsigned sum = 0;
        const std::string start = " " + attribute + "=\"";
        for (std::size_t at = document.find(start); at != std::string::npos;
             at = document.find(start, at + 1)) {
            sum += static_cast<unsigned>(std::stoul(document.substr(at + start.size())));
        }
        return sum;
    }

    // Holds the schema, and counts in its suites what is in them.
    static void expect_sound(const std::string &path, unsigned cases)
    {
        EXPECT_EQ(complaints(path), "");
        const std::string document = content_of(path);
        EXPECT_EQ(count_of(document, "<testcase "), static_cast<int>(cases));
        EXPECT_EQ(total(document, "tests"), cases);
        for (const auto &[attribute, element] : std::map<std::string, std::string>{
                 {"failures", "<failure "}, {"errors", "<error "}, {"skipped", "<skipped "}}) {
            EXPECT_EQ(total(document, attribute),
                      static_cast<unsigned>(count_of(document, element)))
                << attribute;
        }
    }

    std::vector<std::string> with_report(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.end(), {"--out", "junit:" + file("j.xml")});
        return arguments;
    }
};

const auto ALL = static_cast<unsigned>(tools::all_cases().size());

TEST_F(junit, of_a_full_run)
{
    script = "ignore=kel_role_basic";
    EXPECT_TRUE(run(with_report({})).exited_with(0));
    expect_sound(file("j.xml"), ALL);
    EXPECT_THAT(content_of(file("j.xml")), Not(HasSubstr("hostname=\"localhost\"")));
}

TEST_F(junit, of_a_failing_run)
{
    script = "fail=kel_role_always:<a>&\"b\"]]>'c'\xff "
             "fail=kel_tlv_alloc:gr\xc3\xbc\xc3\x9f_--_x fail=kel_buf_get_bufmem_start:x";
    EXPECT_TRUE(run(with_report({"--shuffle=3"})).exited_with(1));
    expect_sound(file("j.xml"), ALL);
    EXPECT_EQ(total(content_of(file("j.xml")), "failures"), 3U);
}

TEST_F(junit, of_crashes_and_hangs)
{
    script = "crash=kel_role_basic hang=kel_role_always exit=kel_tlv_alloc end=3";
    EXPECT_TRUE(run(with_report({"kel_role", "kel_tlv", "--timeout", "1"})).exited_with(2));
    expect_sound(file("j.xml"), 51);
    EXPECT_EQ(total(content_of(file("j.xml")), "errors"), 3U);
}

TEST_F(junit, of_a_run_that_stops)
{
    script = "fail=kel_tlv_alloc:x";
    EXPECT_TRUE(run(with_report({"kel_role", "kel_tlv", "--fail-fast"})).exited_with(1));
    expect_sound(file("j.xml"), 51);
    script = "refuse";
    EXPECT_TRUE(run(with_report({"kel_role"})).exited_with(3));
    expect_sound(file("j.xml"), 0);
}

TEST_F(junit, of_repetitions)
{
    script = "flaky=kel_role_basic:" + file("was-here");
    EXPECT_TRUE(run(with_report({"kel_role", "--repeat", "3"})).exited_with(1));
    expect_sound(file("j.xml"), 2);
}

TEST_F(junit, of_a_run_that_is_killed)
{
    for (const std::string hanging : {"kel_role_basic", "kel_tlv_hdr_alloc"}) {
        script = "hang=" + hanging;
        tools::process_options killed =
            process(with_report({"run", "--tavor", FAKE_TAVOR_PROGRAM, "kel_role", "kel_tlv"}));
        killed.timeout = std::chrono::seconds(2);
        EXPECT_TRUE(tools::run_process(killed).timed_out);
        EXPECT_EQ(complaints(file("j.xml")), "") << hanging;
    }
}

TEST_F(junit, of_logs)
{
    tavor_run(with_report({"report", DATA + "failing_run.log"}));
    expect_sound(file("j.xml"), ALL);
    std::string cut = content_of(DATA + "full_run.log").substr(0, 9000);
    cut.replace(4000, 20, "noise\n");
    std::ofstream(file("cut.log")) << cut;
    EXPECT_TRUE(tavor_run(with_report({"report", file("cut.log")})).exited_with(2));
    expect_sound(file("j.xml"), ALL);
}

TEST_F(junit, the_schema_refuses_what_is_wrong)
{
    script = "fail=kel_role_always:x";
    run(with_report({"kel_role", "kel_send"}));
    const std::string good = content_of(file("j.xml"));
    ASSERT_EQ(complaints_about(good), "");
    // A time is there where it was measured only.
    std::string with_time = good;
    with_time.replace(with_time.find("<testcase "), 10, "<testcase time=\"1,5\" ");
    EXPECT_THAT(complaints_about(with_time), HasSubstr("refused"));
    const std::vector<std::pair<std::string, std::string>> mistakes = {
        {" package=\"tavor\"", ""},
        {" id=\"1\"", " id=\"0\""},
        {"<testsuites>", "<testsuites name=\"tavor\">"},
        {"<system-err/>", ""},
        {"<properties>", "<properties></properties><properties>"},
        {" errors=\"0\"", " errors=\"none\""},
        {" timestamp=\"2", " timestamp=\"x"},
        {"name=\"kel_role_basic\"", "name=\"kel_role_always\""},
        {"<failure message=\"x\"", "<failure"},
        {"</failure>", "</failure><skipped message=\"x\"/>"},
        {"<testcase ", "<testcase status=\"run\" "},
        {"<system-out>", "<testcase/><system-out>"},
        {"</testsuites>", ""},
    };
    for (const auto &[part, mistake] : mistakes) {
        const std::size_t at = good.find(part);
        ASSERT_NE(at, std::string::npos) << part;
        std::string bad = good;
        bad.replace(at, part.size(), mistake);
        EXPECT_THAT(complaints_about(bad), HasSubstr("refused")) << part;
    }
}

class lava : public run_test {
protected:
    static void expect_results(const lava_signals::job_output &all,
                               const std::map<std::string, std::string> &other_than_pass)
    {
        for (const auto &[name, what] : all.cases) {
            const auto other = other_than_pass.find(name);
            EXPECT_EQ(what.result, other == other_than_pass.end() ? "pass" : other->second) << name;
            EXPECT_EQ(what.set, tools::suite_of(name));
        }
        for (const auto &[name, result] : other_than_pass) {
            EXPECT_TRUE(all.cases.contains(name)) << name;
        }
    }
};

TEST_F(lava, signals_of_a_full_run)
{
    script = "ignore=kel_role_basic";
    const auto done = run({"--output", "lava"});
    EXPECT_TRUE(done.exited_with(0)) << done.errors;
    const auto all = lava_signals::read(done.output);
    EXPECT_EQ(all.complaint, "");
    EXPECT_THAT(all.cases, SizeIs(tools::all_cases().size()));
    const std::set<std::string> sets(all.sets.begin(), all.sets.end());
    EXPECT_THAT(sets, SizeIs(18)); // the table returns to some
    EXPECT_FALSE(all.set_is_open);
    expect_results(all, {{"kel_role_basic", "skip"}});
}

TEST_F(lava, signals_of_a_failing_run)
{
    script = "fail=kel_role_always:wrong_<answer> fail=kel_tlv_alloc:gr\xc3\xbc\xc3\x9f";
    const auto done = run({"kel_role", "kel_tlv", "--out", "lava:" + file("signals")});
    EXPECT_TRUE(done.exited_with(1));
    const auto all = lava_signals::read(content_of(file("signals")));
    EXPECT_EQ(all.complaint, "");
    EXPECT_THAT(all.sets, ElementsAre("kel_role", "kel_tlv"));
    expect_results(all, {{"kel_role_always", "fail"}, {"kel_tlv_alloc", "fail"}});
    EXPECT_THAT(all.cases.at("kel_role_always").comments,
                Contains("kel_role_always: fail: wrong <answer>"));
    EXPECT_THAT(all.cases.at("kel_role_always").comments,
                Contains("again: " FAKE_TAVOR_PROGRAM " kel_role_always"));
}

TEST_F(lava, signals_of_crashes_and_hangs)
{
    script = "crash=kel_role_basic hang=kel_tlv_alloc exit=kel_tlv_alloc_dup end=3";
    const auto done = run({"kel_role", "kel_tlv", "--timeout", "1", "--out", "lava"});
    EXPECT_TRUE(done.exited_with(2));
    const auto all = lava_signals::read(done.output);
    EXPECT_EQ(all.complaint, "");
    EXPECT_FALSE(all.set_is_open);
    EXPECT_THAT(all.cases, SizeIs(51));
    expect_results(
        all,
        {{"kel_role_basic", "fail"}, {"kel_tlv_alloc", "fail"}, {"kel_tlv_alloc_dup", "fail"}});
    EXPECT_THAT(all.cases.at("kel_role_basic").comments,
                Contains("kel_role_basic: crash: SIGSEGV in this case"));
    EXPECT_THAT(all.cases.at("kel_tlv_alloc").comments,
                Contains("kel_tlv_alloc: hang: no verdict after 1 s"));
}

TEST_F(lava, cases_that_nothing_is_known_of_are_not_skipped)
{
    script = "fail=kel_role_basic:x";
    const auto all =
        lava_signals::read(run({"kel_role", "kel_send", "--fail-fast", "--out", "lava"}).output);
    EXPECT_EQ(all.complaint, "");
    EXPECT_EQ(all.cases.at("kel_role_always").result, "unknown");
    EXPECT_EQ(all.cases.at("kel_send_null_buf_send").result, "unknown");

    // Up to a name that has no verdict.
    std::string cut = content_of(DATA + "full_run.log");
    cut.resize(cut.find("\nkel_packet_append ") + 1 + 41);
    const std::size_t damage = cut.find("PASS\n", 4000);
    cut.replace(damage, 4, "PA\x07S");
    std::ofstream(file("cut.log")) << cut;
    const auto judged =
        lava_signals::read(tavor_run({"report", file("cut.log"), "--out", "lava"}).output);
    EXPECT_EQ(judged.complaint, "");
    EXPECT_THAT(judged.cases, SizeIs(tools::all_cases().size()));
    std::map<std::string, int> results;
    for (const auto &[name, what] : judged.cases) {
        results[what.result]++;
    }
    EXPECT_EQ(results["unknown"] + results["pass"] + results["skip"] + results["fail"],
              static_cast<int>(tools::all_cases().size()));
    EXPECT_GT(results["unknown"], 100);
    EXPECT_EQ(results["fail"], 1); // the last one never ended
}

TEST_F(lava, repetitions_have_names_of_their_own)
{
    const auto all = lava_signals::read(run({"kel_role", "--repeat", "2", "--out", "lava"}).output);
    EXPECT_EQ(all.complaint, "");
    EXPECT_THAT(all.cases, SizeIs(4));
    EXPECT_TRUE(all.cases.contains("kel_role_basic"));
    EXPECT_TRUE(all.cases.contains("kel_role_basic.2"));
}

TEST_F(lava, a_set_is_stopped_before_the_next_one)
{
    const auto all =
        lava_signals::read(run({"kel_role", "kel_send", "--shuffle=5", "--out", "lava"}).output);
    EXPECT_EQ(all.complaint, "");
    EXPECT_THAT(all.cases, SizeIs(5));
}

TEST_F(lava, signals_are_there_when_the_run_is_killed)
{
    script = "hang=kel_tlv_hdr_alloc";
    tools::process_options killed =
        process({"run", "--tavor", FAKE_TAVOR_PROGRAM, "kel_role", "kel_tlv", "--out", "lava"});
    killed.timeout = std::chrono::seconds(2);
    const auto done = tools::run_process(killed);
    EXPECT_TRUE(done.timed_out);
    const auto all = lava_signals::read(done.output);
    EXPECT_EQ(all.complaint, "");
    EXPECT_TRUE(all.set_is_open);
    EXPECT_EQ(all.cases.size(),
              static_cast<std::size_t>(2 + tools::case_number("kel_tlv_hdr_alloc") -
                                       tools::case_number("kel_tlv_alloc_null_pkt")));
}

TEST_F(lava, no_message_makes_a_signal)
{
    std::string log = content_of(DATA + "failing_run.log");
    const std::string forged = "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=x RESULT=pass>";
    const std::size_t at = log.find("FAIL : ");
    ASSERT_NE(at, std::string::npos);
    log.replace(at + 7, forged.size(), forged);
    std::ofstream(file("forged.log")) << log;
    const auto done = tavor_run({"report", file("forged.log"), "--out", "lava"});
    const auto all = lava_signals::read(done.output);
    EXPECT_EQ(all.complaint, "");
    EXPECT_FALSE(all.cases.contains("x"));
    EXPECT_THAT(done.output, HasSubstr("(LAVA_SIGNAL_TESTCASE TEST_CASE_ID=x"));
}

TEST(lava_signals, the_reader_is_strict)
{
    const std::string start = "<LAVA_SIGNAL_TESTSET START a>\n";
    const std::string one = "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=b RESULT=pass>\n";
    const std::string stop = "<LAVA_SIGNAL_TESTSET STOP>\n";
    EXPECT_EQ(lava_signals::read("# x\n" + start + one + stop).complaint, "");
    for (const std::string &wrong : {
             one,
             stop,
             start + start,
             start + one + one,
             start + "text\n",
             start + "\n",
             start + "# " + one,
             start + " " + one,
             start + stop + stop,
             start + one + "# x",
             std::string("<LAVA_SIGNAL_TESTSET START a b>\n"),
             std::string("<LAVA_SIGNAL_TESTSET START>\n"),
             start + "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=b RESULT=PASS>\n",
             start + "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=b c RESULT=pass>\n",
             start + "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=b/c RESULT=pass>\n",
             start + "<LAVA_SIGNAL_TESTCASE RESULT=pass TEST_CASE_ID=b>\n",
             start + "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=b RESULT=pass> \n",
         }) {
        EXPECT_THAT(lava_signals::read(wrong).complaint, Not(IsEmpty())) << wrong;
    }
}

} // namespace

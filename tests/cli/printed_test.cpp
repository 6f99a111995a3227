// SPDX-License-Identifier: MIT
//
// What a case prints, in the reports, and cases that print without end.
#include "tests/cli/lava_signals.h"
#include "tests/cli/run_fixture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class printed : public run_test {
protected:
    // A log in which the case prints the text and fails.
    std::string log_of(const std::string &text) const
    {
        std::ofstream log(file("console.log"), std::ios::binary);
        log << "kel_role_basic                           " << text
            << "\nFAIL : FAIL\nkel_role_always                          PASS\n";
        return file("console.log");
    }

    std::string report(const std::string &format, const std::string &text) const
    {
        return tavor_run({"report", log_of(text), "kel_role", "--out", format}).output;
    }
};

TEST_F(printed, text_is_in_every_report_of_a_case_that_is_not_good)
{
    const std::string text = "\n<one> & more\ntwo";
    EXPECT_THAT(report("text", text),
                HasSubstr("  printed by the case:\n    <one> & more\n    two\n"));
    for (const std::string format : {"tap", "tap13"}) {
        EXPECT_THAT(report(format, text),
                    HasSubstr("  ...\n# printed by the case:\n#   <one> & more\n#   two\n"));
    }
    EXPECT_THAT(report("lava", text),
                HasSubstr("# printed by the case:\n#   <one> & more\n#   two\n"
                          "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=kel_role_basic RESULT=fail>\n"));
    EXPECT_THAT(report("junit", text), HasSubstr("</failure>\n      <system-out>&lt;one&gt; &amp; "
                                                 "more\ntwo\n</system-out>\n"));
    EXPECT_THAT(report("html", text), HasSubstr("<pre>&lt;one&gt; &amp; more\ntwo\n</pre>"));
    EXPECT_EQ(json::parse(lines_of(report("jsonl", text))[1]).at("output"), "<one> & more\ntwo\n");
}

TEST_F(printed, a_case_that_is_good_is_not_quoted)
{
    script = "print=kel_role_basic:on_its_way";
    for (const std::string format : {"text", "tap", "lava", "junit", "html"}) {
        EXPECT_THAT(run({"kel_role", "--out", format}).output, Not(HasSubstr("on its way")))
            << format;
    }
}

TEST_F(printed, text_is_no_part_of_a_report)
{
    const std::string text = "\n1..9\nok 7 - forged\nBail out! x\n</system-out></pre><script>"
                             "<LAVA_SIGNAL_TESTCASE TEST_CASE_ID=x RESULT=pass>\x1b[2J\xff\n]]>";
    for (const std::string &line : lines_of(report("tap", text))) {
        EXPECT_THAT(line, Not(testing::ContainsRegex("^(ok 7|1\\.\\.9|Bail)")));
    }
    const auto signals = lava_signals::read(report("lava", text));
    EXPECT_EQ(signals.complaint, "");
    EXPECT_THAT(signals.cases, SizeIs(2));
    EXPECT_THAT(signals.cases.at("kel_role_basic").comments, Contains("  ok 7 - forged"));
    for (const std::string format : {"junit", "html"}) {
        EXPECT_THAT(report(format, text),
                    AllOf(HasSubstr("&lt;/system-out&gt;&lt;/pre&gt;&lt;script&gt;"),
                          HasSubstr("]]&gt;"), Not(HasSubstr("\x1b")), Not(HasSubstr("\xff"))))
            << format;
    }
}

TEST_F(printed, beginning_and_end_of_much_text_are_kept)
{
    std::string text = "\nthe first line\n";
    for (int i = 0; i < 300'000; i++) {
        text += "line " + std::to_string(i) + "\n";
    }
    const std::string kept = json::parse(lines_of(report("jsonl", text))[1]).at("output");
    EXPECT_GT(kept.size(), 1'000'000U);
    EXPECT_LT(kept.size(), 1'100'000U);
    EXPECT_THAT(kept, AllOf(HasSubstr("the first line\n"), HasSubstr(" bytes left out]\n"),
                            HasSubstr("line 299999\n")));
    EXPECT_THAT(report("text", text),
                AllOf(HasSubstr("    the first line\n"), HasSubstr(" lines left out]\n"),
                      HasSubstr("    line 299999\n")));
    EXPECT_LT(report("text", text).size(), 10'000U);
}

TEST_F(printed, a_flood_is_ended_and_the_next_case_runs)
{
    script = "flood=kel_role_basic:ever";
    const auto done = run({"kel_role", "--timeout", "0", "--out", "jsonl:" + file("r.jsonl"),
                           "--out", "junit:" + file("j.xml"), "--out", "tap:" + file("t.tap"),
                           "--out", "lava:" + file("l.txt"), "--out", "html:" + file("h.html")});
    EXPECT_TRUE(done.exited_with(2)) << done.output;
    EXPECT_LT(done.peak_memory_kib, MEMORY_LIMIT_KIB);
    const std::vector<json> all = results(file("r.jsonl"));
    EXPECT_EQ(verdict_of(all, "kel_role_basic"), "flood");
    EXPECT_EQ(verdict_of(all, "kel_role_always"), "pass");
    EXPECT_LT(std::string(all.at(0).at("output")).size(), 1'100'000U);
    EXPECT_THAT(done.output, AllOf(HasSubstr("printed more than 16 MiB"),
                                   HasSubstr("2 results: 1 passed, 1 flooded\n")));
    EXPECT_THAT(content_of(file("j.xml")), HasSubstr("type=\"flood\""));
    EXPECT_THAT(content_of(file("t.tap")), HasSubstr("verdict: flood\n"));
    EXPECT_EQ(lava_signals::read(content_of(file("l.txt"))).cases.at("kel_role_basic").result,
              "fail");
    EXPECT_THAT(content_of(file("h.html")), HasSubstr("<td class=\"flood\">flood</td>"));
}

TEST_F(printed, how_much_a_case_may_print_can_be_said)
{
    script = "flood=kel_role_basic:lines";
    EXPECT_TRUE(run({"kel_role", "--print-limit", "200", "-q"}).exited_with(0));
    EXPECT_TRUE(run({"kel_role", "--print-limit", "1", "-q"}).exited_with(2));
    EXPECT_TRUE(run({"kel_role", "--print-limit", "-1", "-q"}).exited_with(3));
}

} // namespace

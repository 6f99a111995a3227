// SPDX-License-Identifier: MIT
//
// Known failures in every report, by the convention of each; TAP as prove reads it.
#include "tests/cli/lava_signals.h"
#include "tests/cli/run_fixture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class known_failures : public run_test {
protected:
    // kel_role_basic fails as before, kel_role_always is new, and of kel_send one case is fixed.
    tools::process_result run_with(const std::vector<std::string> &more)
    {
        script = "fail=kel_role_basic:known fail=kel_send_null_buf_send:old";
        EXPECT_TRUE(run(all({"--out", "jsonl:" + file("base.jsonl")})).exited_with(1));
        script = "fail=kel_role_basic:known fail=kel_role_always:new";
        std::vector<std::string> arguments = {"--baseline", file("base.jsonl")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(all(arguments));
    }

    static std::vector<std::string> all(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"kel_role", "kel_send"});
        return arguments;
    }

    std::string report(const std::string &format, const std::vector<std::string> &more = {})
    {
        std::vector<std::string> arguments = {"--out", format};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run_with(arguments).output;
    }
};

TEST_F(known_failures, are_marked_and_counted_in_the_table)
{
    const std::string text = report("text");
    EXPECT_THAT(text,
                AllOf(HasSubstr("known  [known]\n"), HasSubstr("new  [new failure]\n"),
                      HasSubstr("[fixed]\n"), HasSubstr("baseline: 1 new, 1 fixed, 1 known\n"),
                      HasSubstr("\nfail kel_role_always\n"),
                      Not(HasSubstr("\nfail kel_role_basic\n"))));
    script = "fail=kel_role_basic:known fail=kel_send_null_buf_send:old";
    const auto same = run(all({"--baseline", file("base.jsonl")}));
    EXPECT_TRUE(same.exited_with(0)) << same.output;
    EXPECT_THAT(same.output, HasSubstr("baseline: 0 new, 0 fixed, 2 known\n"));
    script = "fail=kel_role_basic:another fail=kel_send_null_buf_send:old";
    EXPECT_THAT(run(all({"--baseline", file("base.jsonl")})).output,
                HasSubstr("baseline: 0 new, 0 fixed, 1 known, 1 changed\n"));
}

TEST_F(known_failures, are_counted_once_however_often_they_run)
{
    EXPECT_THAT(report("text", {"--repeat", "3"}),
                HasSubstr("baseline: 1 new, 1 fixed, 1 known\n"));
}

TEST_F(known_failures, are_skipped_in_junit)
{
    const std::string usual = report("junit");
    EXPECT_THAT(usual, AllOf(HasSubstr("<skipped message=\"known failure: known\"/>"),
                             HasSubstr("failures=\"1\" errors=\"0\" skipped=\"1\""),
                             HasSubstr("failures=\"0\" errors=\"0\" skipped=\"0\""),
                             HasSubstr("<system-out>baseline: fixed\n</system-out>")));
    EXPECT_EQ(count_of(usual, "<failure "), 1);
    const std::string strict = report("junit", {"--fixed-is-failure"});
    EXPECT_THAT(strict, HasSubstr("<failure message=\"fixed: the baseline has it as a failure\" "
                                  "type=\"fixed\">"));
    EXPECT_EQ(count_of(strict, "<failure "), 2);
}

TEST_F(known_failures, have_a_place_of_their_own_on_the_page)
{
    const std::string page = report("html");
    const std::size_t fresh = page.find("<h2>New</h2>");
    const std::size_t fixed = page.find("<h2>Fixed</h2>");
    const std::size_t known = page.find("<h2>Known</h2>");
    ASSERT_NE(known, std::string::npos);
    EXPECT_THAT(page, HasSubstr("<p>1 new, 1 fixed, 1 known</p>"));
    EXPECT_LT(fresh, page.find("id=\"kel_role_always\""));
    EXPECT_LT(page.find("id=\"kel_role_always\""), fixed);
    EXPECT_LT(fixed, page.find("id=\"kel_send_null_buf_send\""));
    EXPECT_LT(known, page.find("id=\"kel_role_basic\""));
}

TEST_F(known_failures, do_not_fail_a_job_of_lava)
{
    const auto signals = lava_signals::read(report("lava"));
    EXPECT_EQ(signals.complaint, "");
    EXPECT_EQ(signals.cases.at("kel_role_basic").result, "skip");
    EXPECT_THAT(signals.cases.at("kel_role_basic").comments, Contains("baseline: known"));
    EXPECT_EQ(signals.cases.at("kel_role_always").result, "fail");
    EXPECT_EQ(signals.cases.at("kel_send_null_buf_send").result, "pass");
    EXPECT_THAT(signals.cases.at("kel_send_null_buf_send").comments, Contains("baseline: fixed"));
}

TEST_F(known_failures, are_named_in_json_lines)
{
    run_with({"--out", "jsonl:" + file("now.jsonl")});
    for (const json &each : results(file("now.jsonl"))) {
        const std::string name = each.at("name");
        EXPECT_EQ(each.value("baseline", "same"), name == "kel_role_basic"           ? "known"
                                                  : name == "kel_role_always"        ? "new"
                                                  : name == "kel_send_null_buf_send" ? "fixed"
                                                                                     : "same")
            << name;
    }
}

// A crash is never excused.
TEST_F(known_failures, that_crash_count)
{
    script = "crash=kel_role_basic";
    EXPECT_TRUE(run(all({"--out", "jsonl:" + file("base.jsonl")})).exited_with(2));
    const auto again =
        run(all({"--baseline", file("base.jsonl"), "--out", "tap:" + file("t.tap")}));
    EXPECT_TRUE(again.exited_with(2)) << again.output;
    EXPECT_THAT(again.output, HasSubstr("[known]\n"));
    EXPECT_THAT(content_of(file("t.tap")), Not(HasSubstr("TODO")));
}

// prove reads TAP as most readers do.
class tap : public known_failures {
protected:
    tools::process_result prove(const std::string &document) const
    {
        std::ofstream(file("run.tap")) << document;
        return tools::run_process({.arguments = {"prove", file("run.tap")}});
    }

    void SetUp() override
    {
        known_failures::SetUp();
        if (!tools::run_process({.arguments = {"prove", "--version"}}).exited_with(0)) {
            GTEST_SKIP() << "prove is not installed: nothing reads TAP here";
        }
    }
};

TEST_F(tap, of_a_run_with_known_failures_only_is_good)
{
    run_with({});
    script = "fail=kel_role_basic:known fail=kel_send_null_buf_send:old ignore=kel_role_always";
    const auto done = prove(run(all({"--baseline", file("base.jsonl"), "--out", "tap13"})).output);
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    EXPECT_THAT(done.output, HasSubstr("Result: PASS"));
}

TEST_F(tap, tells_of_new_and_of_fixed_cases)
{
    const auto done = prove(report("tap13"));
    EXPECT_TRUE(done.exited_with(1)) << done.output << done.errors;
    EXPECT_THAT(done.output, AllOf(HasSubstr("Failed test:  2\n"), HasSubstr("TODO passed:   4\n"),
                                   HasSubstr("Result: FAIL")));
    const auto strict = prove(report("tap13", {"--fixed-is-failure"}));
    EXPECT_THAT(strict.output, HasSubstr("Failed tests:  2, 4\n"));
}

TEST_F(tap, of_a_crash_and_of_a_run_that_stops_is_bad)
{
    script = "crash=kel_role_basic";
    const auto crashed = prove(run(all({"--out", "tap13"})).output);
    EXPECT_TRUE(crashed.exited_with(1)) << crashed.output;
    EXPECT_THAT(crashed.output, HasSubstr("Failed test:  1\n"));
    script = "refuse";
    EXPECT_FALSE(prove(run(all({"--out", "tap13"})).output).exited_with(0));
}

} // namespace

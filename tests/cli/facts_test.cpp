// SPDX-License-Identifier: MIT
//
// Where a case is, how long it took, under which settings it ran.
#include <algorithm>
#include <regex>

#include "tests/cli/run_fixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string DATA = TAVOR_SOURCE_DIR "/tests/cli/data/";

class facts : public run_test {
protected:
    tools::process_result run_with_settings(const std::vector<std::string> &more,
                                            const std::vector<std::string> &settings) const
    {
        std::vector<std::string> arguments = {"run", "--tavor", FAKE_TAVOR_PROGRAM, "kel_role"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        tools::process_options options = process(arguments);
        options.environment.insert(options.environment.end(), settings.begin(), settings.end());
        return tools::run_process(options);
    }
};

TEST_F(facts, file_and_line_lead_to_the_case_and_to_its_check)
{
    script = "fail=kel_role_always:shouldn't_be_able_to_register_always_+_active";
    const auto done = run({"kel_role", "--out", "jsonl:" + file("r.jsonl"), "--out",
                           "junit:" + file("j.xml"), "--out", "html:" + file("h.html")});
    const json failed = results(file("r.jsonl")).at(1);
    EXPECT_THAT(line_at(failed.at("file"), failed.at("line")), HasSubstr("CASE(kel_role, always"));
    const json check = failed.at("check");
    EXPECT_THAT(line_at(check.at("file"), check.at("line")),
                HasSubstr("shouldn't be able to register always + active"));
    EXPECT_FALSE(results(file("r.jsonl")).at(0).contains("check"));

    const std::string place =
        std::string(check.at("file")) + ":" + std::to_string(check.at("line").get<int>());
    EXPECT_THAT(content_of(file("j.xml")),
                AllOf(HasSubstr(" file=\"" + std::string(failed.at("file")) + "\" line=\"" +
                                std::to_string(failed.at("line").get<int>()) + "\""),
                      HasSubstr("\nat " + place + "\n")));
    EXPECT_THAT(content_of(file("h.html")), HasSubstr(">" + place + "<"));
    EXPECT_THAT(done.output, HasSubstr("\n  at " + place + "\n"));
}

TEST_F(facts, a_located_message_names_its_own_line)
{
    script = "fail=kel_sendrecv_jumbo:msg='kel_recv_failed'_line=123";
    run({"kel_sendrecv", "--out", "jsonl:" + file("r.jsonl")});
    for (const json &each : results(file("r.jsonl"))) {
        if (each.at("verdict") == "fail") {
            EXPECT_EQ(each.at("check").at("line"), 123);
        }
    }
}

TEST_F(facts, times_are_there_where_they_were_measured)
{
    tavor_run({"report", DATA + "full_run.log", "--out", "junit:" + file("log.xml"), "--out",
               "jsonl:" + file("log.jsonl")});
    EXPECT_THAT(content_of(file("log.xml")), Not(HasSubstr(" time=")));
    EXPECT_THAT(content_of(file("log.jsonl")), Not(HasSubstr("\"seconds\":0.0,")));

    script = "hang=kel_role_basic";
    const auto done = run({"kel_role", "kel_tlv", "--timeout", "1", "--out",
                           "junit:" + file("run.xml"), "--out", "html:" + file("run.html")});
    EXPECT_THAT(content_of(file("run.xml")),
                AllOf(HasSubstr(" time=\"1."), Not(HasSubstr(" time=\"0.000000\""))));
    EXPECT_THAT(content_of(file("run.html")), HasSubstr("The slowest cases"));
    const std::vector<std::string> lines = lines_of(done.output);
    const auto heading = std::find(lines.begin(), lines.end(), "the slowest:");
    ASSERT_NE(heading, lines.end());
    EXPECT_THAT(*(heading + 1), AllOf(StartsWith("   1."), HasSubstr(" s  kel_role_basic")));
    EXPECT_TRUE(std::regex_search(done.output, std::regex("\n1\\.[0-9]{3} s in cases\n")));
}

TEST_F(facts, settings_of_the_library_are_part_of_a_report)
{
    script = "fail=kel_role_basic:x";
    const std::vector<std::string> settings = {"KEL_REFERENCE_FAULTS=send#1+:to_standby a",
                                               "KELTRACE_FAULTS=append#1:error=EINVAL"};
    const std::string shown = "KELTRACE_FAULTS='append#1:error=EINVAL' "
                              "KEL_REFERENCE_FAULTS='send#1+:to_standby a'";
    const auto with =
        run_with_settings({"--out", "jsonl:" + file("r.jsonl"), "--out", "html:" + file("h.html"),
                           "--out", "tap:" + file("t.tap"), "--out", "lava:" + file("l.txt"),
                           "--out", "junit:" + file("j.xml")},
                          settings);
    EXPECT_THAT(with.output,
                AllOf(HasSubstr("settings " + shown + "\n"),
                      HasSubstr("again: " + shown + " " FAKE_TAVOR_PROGRAM " kel_role_basic\n")));
    const json first = json::parse(lines_of(content_of(file("r.jsonl")))[0]);
    EXPECT_EQ(first.at("settings"), shown);
    for (const std::string report : {"t.tap", "l.txt"}) {
        EXPECT_THAT(content_of(file(report)), HasSubstr("# settings " + shown + "\n")) << report;
    }
    EXPECT_THAT(content_of(file("j.xml")), HasSubstr("<property name=\"settings\""));
    EXPECT_THAT(content_of(file("h.html")), HasSubstr("settings</th>"));

    const auto without = run_with_settings({"--out", "jsonl:" + file("plain.jsonl")}, {});
    EXPECT_THAT(without.output, Not(HasSubstr("settings ")));
    EXPECT_FALSE(json::parse(lines_of(content_of(file("plain.jsonl")))[0]).contains("settings"));
    // A run with faults is no run of the same library: nothing is flaky.
    script = "";
    run_with_settings({"--out", "jsonl:" + file("good.jsonl")}, {});
    const auto over_time = tavor_run({"history", file("r.jsonl"), file("good.jsonl")});
    EXPECT_THAT(over_time.output, AllOf(HasSubstr("2 environments"), Not(HasSubstr("FLAKY"))));
}

TEST_F(facts, the_command_for_another_try_has_the_settings)
{
    script = "fail=kel_role_basic:x";
    run_with_settings({"--out", "jsonl:" + file("r.jsonl")}, {"KEL_REFERENCE_OPTIONS=a=1 'b'"});
    tools::process_options again;
    again.arguments = {"sh", "-c", std::string(results(file("r.jsonl")).at(0).at("again"))};
    again.environment = {"FAKE_TAVOR=env=KEL_REFERENCE_OPTIONS"};
    EXPECT_THAT(tools::run_process(again).output, HasSubstr("KEL_REFERENCE_OPTIONS=a=1 'b'\n"));
}

} // namespace

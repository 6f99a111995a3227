// SPDX-License-Identifier: MIT
//
// Where a case is, how long it took, under which settings it ran; annotations for GitHub.
#include <algorithm>
#include <regex>

#include "tests/cli/run_fixture.h"
#include "tools/common/registry.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

const std::string DATA = TAVOR_SOURCE_DIR "/tests/cli/data/";

// The line of a source that a report names, "file:line".
std::string line_at(const std::string &file, int line)
{
    return lines_of(content_of(TAVOR_SOURCE_DIR "/" + file)).at(static_cast<std::size_t>(line - 1));
}

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

// A workflow command, as a runner takes it apart.
struct annotation {
    std::string kind;
    std::map<std::string, std::string> properties;
    std::string text;
};

std::string unescaped(std::string text)
{
    for (const auto &[code, character] : std::vector<std::pair<std::string, std::string>>{
             {"%0A", "\n"}, {"%0D", "\r"}, {"%3A", ":"}, {"%2C", ","}, {"%25", "%"}}) {
        for (std::size_t at = text.find(code); at != std::string::npos; at = text.find(code)) {
            text.replace(at, code.size(), character == "%" ? "\x01" : character);
        }
    }
    std::replace(text.begin(), text.end(), '\x01', '%');
    return text;
}

std::vector<annotation> annotations_in(const std::string &text)
{
    static const std::regex COMMAND("::(error|warning|notice)(?: ([^:]*))?::(.*)");
    static const std::regex PROPERTY("([a-z]+)=([^,]*)");
    std::vector<annotation> found;
    for (const std::string &line : lines_of(text)) {
        std::smatch parts;
        if (!line.starts_with("::")) continue;
        EXPECT_TRUE(std::regex_match(line, parts, COMMAND)) << line;
        annotation one{parts[1], {}, unescaped(parts[3])};
        const std::string properties = parts[2];
        for (std::sregex_iterator each(properties.begin(), properties.end(), PROPERTY), end;
             each != end; ++each) {
            one.properties[(*each)[1]] = unescaped((*each)[2]);
        }
        found.push_back(one);
    }
    return found;
}

std::vector<annotation> of_kind(const std::vector<annotation> &all, const std::string &kind)
{
    std::vector<annotation> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                 [&](const annotation &each) { return each.kind == kind; });
    return found;
}

class github : public run_test {};

TEST_F(github, annotations_are_ten_and_a_count)
{
    script = "crash=kel_tlv_hdr_setdata";
    for (int row = tools::case_number("kel_tlv_alloc"), i = 0; i < 14; i++) {
        script +=
            " fail=" + std::string(tools::all_cases()[static_cast<std::size_t>(row + i)].name) +
            ":message_" + std::to_string(i);
    }
    const auto done = run({"kel_tlv", "--out", "github"});
    EXPECT_TRUE(done.exited_with(2));
    EXPECT_THAT(done.output, HasSubstr(" results: ")) << "the table is there, too";
    const auto all = annotations_in(done.output);
    const auto errors = of_kind(all, "error");
    ASSERT_THAT(errors, SizeIs(10));
    EXPECT_EQ(errors[0].properties.at("title"), "kel_tlv_hdr_setdata: crash");
    EXPECT_EQ(errors[1].properties.at("title"), "kel_tlv_alloc: fail");
    EXPECT_THAT(errors[1].text,
                AllOf(StartsWith("message 0\nagain: "), HasSubstr("kel_tlv_alloc")));
    EXPECT_THAT(
        line_at(errors[0].properties.at("file"), std::stoi(errors[0].properties.at("line"))),
        HasSubstr("CASE(kel_tlv, hdr_setdata"));
    const auto warnings = of_kind(all, "warning");
    ASSERT_THAT(warnings, SizeIs(1));
    EXPECT_THAT(warnings[0].text, StartsWith("5 cases: kel_tlv_"));
    EXPECT_THAT(of_kind(all, "notice"), SizeIs(1));
}

TEST_F(github, no_text_breaks_an_annotation)
{
    const std::string message = "50%,_a:b%0A::error::x";
    script = "fail=kel_role_basic:" + message;
    const auto errors =
        of_kind(annotations_in(run({"kel_role", "--out", "github"}).output), "error");
    ASSERT_THAT(errors, SizeIs(1));
    EXPECT_THAT(errors[0].text, StartsWith("50%, a:b%0A::error::x\n"));
}

TEST_F(github, known_failures_are_counted_only)
{
    script = "fail=kel_role_basic:known fail=kel_send_null_buf_send:old";
    run({"kel_role", "kel_send", "--out", "jsonl:" + file("base.jsonl")});
    script = "fail=kel_role_basic:known fail=kel_role_always:new";
    const auto all = annotations_in(
        run({"kel_role", "kel_send", "--baseline", file("base.jsonl"), "--out", "github"}).output);
    ASSERT_THAT(of_kind(all, "error"), SizeIs(1));
    EXPECT_EQ(of_kind(all, "error")[0].properties.at("title"),
              "kel_role_always: fail [new failure]");
    const auto notices = of_kind(all, "notice");
    ASSERT_THAT(notices, SizeIs(2));
    EXPECT_EQ(notices[0].text, "1 case: kel_send_null_buf_send");
    EXPECT_THAT(notices[1].text, HasSubstr("1 new, 1 fixed, 1 known"));
}

} // namespace

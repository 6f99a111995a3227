// SPDX-License-Identifier: MIT
//
// What GitHub shows of a run: annotations, and the summary of the step.
#include <algorithm>
#include <regex>

#include "tests/cli/run_fixture.h"
#include "tools/common/registry.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

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
    const auto first = static_cast<std::size_t>(tools::case_number("kel_tlv_alloc"));
    for (std::size_t i = 0; i < 14; i++) {
        script += " fail=" + std::string(tools::all_cases()[first + i].name) + ":message_" +
                  std::to_string(i);
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

// The summary of a step, in a file of its own.
class github_summary : public run_test {
protected:
    github_summary() { summary = file("summary.md"); }

    std::string text() const { return content_of(summary); }
};

TEST_F(github_summary, shows_each_case_that_is_not_good)
{
    script = "fail=kel_role_basic:known fail=kel_role_always:old";
    run({"kel_role", "kel_send", "--out", "jsonl:" + file("base.jsonl")});
    script = "fail=kel_role_basic:known fail=kel_send_null_buf_send:new crash=kel_role_always";
    std::ofstream(summary) << "of an earlier command\n";
    run({"kel_role", "kel_send", "--baseline", file("base.jsonl"), "--out", "github"});
    EXPECT_THAT(text(), StartsWith("of an earlier command\n<h3>tavor: "));
    EXPECT_THAT(text(), HasSubstr("1 crashed"));
    EXPECT_THAT(text(), HasSubstr("1 known"));
    const std::size_t crash = text().find("<code>kel_role_always</code> <strong>crash</strong>");
    const std::size_t failure = text().find("<code>kel_send_null_buf_send</code>");
    EXPECT_LT(crash, failure);
    EXPECT_THAT(text().substr(failure),
                AllOf(HasSubstr("at suites/send.cpp:"), HasSubstr("again: ")));
    EXPECT_EQ(count_of(text(), "<details>"), 2) << "a known failure is none to look at";
}

TEST_F(github_summary, no_text_gets_out_of_its_place)
{
    script = "fail=kel_role_basic:</pre></details><img_src=x>|`*_&lt; "
             "print=kel_role_always:x";
    run({"kel_role", "--out", "github"});
    EXPECT_THAT(text(), HasSubstr("&lt;/pre&gt;&lt;/details&gt;&lt;img src=x&gt;|`* &amp;lt;"));
    EXPECT_THAT(text(), Not(HasSubstr("<img")));
    // Behind an empty line Markdown would begin again.
    EXPECT_THAT(text(), Not(HasSubstr("\n\n")));
    EXPECT_EQ(count_of(text(), "<pre>"), count_of(text(), "</pre>"));
}

TEST_F(github_summary, is_never_more_than_github_takes)
{
    constexpr std::size_t MOST = 1048576;
    for (const std::size_t used : {std::size_t{0}, MOST - 20'000}) {
        script.clear();
        for (const tools::test_case &each : tools::all_cases()) {
            script += " fail=" + std::string(each.name) + ":" + std::string(200, 'x');
        }
        std::ofstream(summary) << std::string(used, '\n');
        const auto done = run({"--out", "github"});
        EXPECT_TRUE(done.exited_with(1)) << done.errors;
        EXPECT_LE(fs::file_size(summary), MOST);
        EXPECT_GT(fs::file_size(summary), used);
        EXPECT_EQ(text().find(" more do not fit here") != std::string::npos, used > 0);
    }
}

TEST_F(github_summary, is_missed_where_it_cannot_be_written)
{
    std::ofstream(summary) << std::string(1048576, '\n');
    auto done = run({"kel_role", "--out", "github"});
    EXPECT_TRUE(done.exited_with(2));
    EXPECT_THAT(done.errors, HasSubstr("cannot write the summary " + summary));
    EXPECT_THAT(done.output, HasSubstr("::notice title=tavor::")) << "the rest is there";
    summary = file("no/folder");
    done = run({"kel_role", "--out", "github"});
    EXPECT_TRUE(done.exited_with(3));
    EXPECT_THAT(done.errors, HasSubstr("cannot write the summary"));
}

TEST_F(github_summary, is_for_github_only)
{
    run({"kel_role"});
    EXPECT_FALSE(fs::exists(summary));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// tavor-run compare with any number of reports.
#include "tests/cli/run_fixture.h"
#include "tools/common/registry.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class comparison : public run_test {
protected:
    // Runs the stand-in and keeps its report under this name.
    std::string report(const std::string &name, const std::string &what_happens,
                       std::vector<std::string> arguments)
    {
        script = what_happens;
        arguments.insert(arguments.end(), {"--timeout", "1", "--out", "jsonl:" + file(name)});
        run(arguments);
        return file(name);
    }

    // Three runs of the same cases.
    std::vector<std::string> three()
    {
        const std::vector<std::string> cases = {"kel_role", "kel_send"};
        return {
            report("good.jsonl", "fail=kel_role_basic:known", cases),
            report("bad.jsonl", "fail=kel_role_basic:known fail=kel_role_always:new", cases),
            report("same.jsonl", "fail=kel_role_basic:known", cases),
        };
    }

    tools::process_result compare(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "compare");
        return tavor_run(arguments);
    }
};

// The words of the line that begins with this one.
std::vector<std::string> words_behind(const std::string &text, const std::string &first)
{
    for (const std::string &line : lines_of(text)) {
        std::istringstream words(line);
        std::string word;
        if (words >> word && word == first) {
            std::vector<std::string> rest;
            while (words >> word) {
                rest.push_back(word);
            }
            return rest;
        }
    }
    return {};
}

using row = std::vector<std::string>;

TEST_F(comparison, has_a_column_for_each_report)
{
    std::vector<std::string> arguments = three();
    arguments.emplace_back("--all");
    const auto done = compare(arguments);
    EXPECT_TRUE(done.exited_with(1)) << done.errors;
    const std::string &text = done.output;
    EXPECT_THAT(text, StartsWith("good: " + file("good.jsonl")));
    EXPECT_EQ(words_behind(text, "good"), (row{"bad", "same"}));
    EXPECT_EQ(words_behind(text, "kel_role_always"), (row{"pass", "fail", "pass"}));
    EXPECT_EQ(words_behind(text, "kel_role_basic"), (row{"fail", "fail", "fail"}));
    EXPECT_EQ(words_behind(text, "results"), (row{"5", "5", "5"}));
    EXPECT_EQ(words_behind(text, "pass"), (row{"4", "3", "4"}));
    EXPECT_EQ(words_behind(text, "fail"), (row{"1", "2", "1"}));
    EXPECT_THAT(text, AllOf(HasSubstr("    bad: new\n"), HasSubstr("1 of 5 cases differ\n")));
    // What differs, then what is bad everywhere, then the rest.
    EXPECT_LT(text.find("kel_role_always "), text.find("kel_role_basic "));
    EXPECT_LT(text.find("kel_role_basic "), text.find("kel_send_"));
}

TEST_F(comparison, counts_what_does_not_differ)
{
    const auto done = compare(three());
    EXPECT_THAT(done.output, AllOf(HasSubstr("\nkel_role_basic "), Not(HasSubstr("kel_send_")),
                                   HasSubstr("\n3 more cases do not differ\n")));
    EXPECT_THAT(compare({"--all", file("good.jsonl"), file("good.jsonl")}).output,
                Not(HasSubstr(" do not differ\n")));
}

TEST_F(comparison, quiet_shows_only_what_differs)
{
    std::vector<std::string> arguments = three();
    arguments.emplace_back("-q");
    const auto done = compare(arguments);
    EXPECT_THAT(done.output, AllOf(Not(HasSubstr("kel_send_")), Not(HasSubstr("\nkel_role_basic ")),
                                   HasSubstr("\n4 more cases do not differ\n")));
    EXPECT_EQ(words_behind(done.output, "pass"), (row{"4", "3", "4"}));
}

TEST_F(comparison, columns_can_be_named)
{
    const std::vector<std::string> files = three();
    const auto done = compare({"a=" + files[0], "b c=" + files[1], files[2]});
    EXPECT_THAT(done.output, AllOf(StartsWith("a: " + files[0]), HasSubstr("\nb c: "),
                                   HasSubstr("\nsame: " + files[2])));
    EXPECT_TRUE(compare({"a=" + files[0], "a=" + files[1]}).exited_with(3));
    EXPECT_TRUE(compare({"a=" + files[0], "b=/nowhere"}).exited_with(3));
    EXPECT_TRUE(compare({files[0]}).exited_with(3));
    // A file whose name holds the sign.
    fs::copy(files[0], file("x=y"));
    EXPECT_TRUE(compare({file("x=y"), files[0], files[2]}).exited_with(0));
}

TEST_F(comparison, columns_are_named_by_what_tells_reports_apart)
{
    const auto with = [&](const std::string &name, const std::string &host) {
        std::string text = content_of(report(name, "", {"kel_role"}));
        json first = json::parse(lines_of(text)[0]);
        first["host"] = host;
        std::ofstream(file(name)) << first.dump() << text.substr(text.find('\n'));
        return file(name);
    };
    const std::vector<std::string> boards = {with("1", "board-a"), with("2", "board-b"),
                                             with("3", "board-c")};
    EXPECT_THAT(compare(boards).output, StartsWith("board-a: "));
    EXPECT_THAT(compare({boards[0], with("4", "board-a"), boards[1]}).output, StartsWith("1: "));
    // The same file twice.
    EXPECT_THAT(compare({boards[0], boards[1], boards[0]}).output,
                AllOf(StartsWith(boards[0] + ": "), HasSubstr("\n" + boards[0] + " (2): ")));
}

TEST_F(comparison, of_two_without_names_says_it_in_words)
{
    const std::vector<std::string> files = three();
    EXPECT_THAT(compare({files[0], files[1]}).output,
                AllOf(StartsWith("before  " + files[0]), HasSubstr("1 differences\n")));
    EXPECT_TRUE(compare({files[0], files[1]}).exited_with(1));
    EXPECT_TRUE(compare({files[0], files[0]}).exited_with(0));
    EXPECT_THAT(compare({"a=" + files[0], "b=" + files[1]}).output,
                HasSubstr("1 of 5 cases differ"));
}

TEST_F(comparison, an_absent_case_differs_and_one_left_out_does_not)
{
    const std::string all = report("all", "", {"kel_role", "kel_send"});
    const std::string some = report("some", "", {"kel_role"});
    const auto absent = compare({all, some, all});
    EXPECT_TRUE(absent.exited_with(1));
    EXPECT_THAT(absent.output, HasSubstr("3 of 5 cases differ"));
    EXPECT_EQ(words_behind(absent.output, "kel_send_null_buf_send"), (row{"pass", "-", "pass"}));

    const std::string stopped =
        report("stopped", "fail=kel_role_basic:x", {"kel_role", "kel_send", "--fail-fast"});
    const auto left_out = compare({stopped, all, all, "--all"});
    EXPECT_THAT(left_out.output, HasSubstr("1 of 5 cases differ"));
    EXPECT_EQ(words_behind(left_out.output, "kel_role_always"), (row{"not_run", "pass", "pass"}));
}

TEST_F(comparison, line_numbers_do_not_count)
{
    const auto with_line = [&](const std::string &name, const std::string &number) {
        return report(name, "fail=kel_role_basic:msg='x'_line=" + number, {"kel_role"});
    };
    EXPECT_TRUE(
        compare({with_line("a", "12"), with_line("b", "13"), with_line("c", "14")}).exited_with(0));
}

TEST_F(comparison, other_formats)
{
    std::vector<std::string> arguments = three();
    arguments.insert(arguments.end(),
                     {"--out", "html:" + file("c.html"), "--out", "jsonl:" + file("c.jsonl")});
    const auto done = compare(arguments);
    EXPECT_TRUE(done.exited_with(1));
    EXPECT_THAT(done.output, HasSubstr("1 of 5 cases differ\n"));
    EXPECT_THAT(content_of(file("c.html")),
                AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("</html>\n"),
                      HasSubstr("<span class=\"fail\">fail</span><br>new")));
    const std::vector<std::string> lines = lines_of(content_of(file("c.jsonl")));
    ASSERT_THAT(lines, SizeIs(7));
    const json head = json::parse(lines[0]);
    EXPECT_EQ(head.at("type"), "compare");
    EXPECT_EQ(head.at("reports").at(1).at("name"), "bad");
    EXPECT_EQ(head.at("reports").at(1).at("counts").at("fail"), 2);
    const json first = json::parse(lines[1]);
    EXPECT_EQ(first.at("name"), "kel_role_always");
    EXPECT_EQ(first.at("verdicts"), json({"pass", "fail", "pass"}));
    EXPECT_EQ(first.at("messages").at(1), "new");
    EXPECT_EQ(json::parse(lines[6]).at("exit"), 1);
    EXPECT_TRUE(
        compare({file("good.jsonl"), file("bad.jsonl"), "--out", "junit:-"}).exited_with(3));
}

class shards : public comparison {
protected:
    std::string shard(unsigned index, const std::string &what_happens = "")
    {
        const std::string which = std::to_string(index) + "/3";
        return report(std::to_string(index), what_happens, {"kel_tlv", "--shard", which});
    }
};

TEST_F(shards, of_one_run_are_put_together)
{
    const auto done = compare({shard(2), shard(1), shard(3)});
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    EXPECT_THAT(done.output, HasSubstr("49 cases in 3 shards of one run\n"));
    EXPECT_EQ(words_behind(done.output, "results"), (row{"16", "17", "16"}));
    EXPECT_TRUE(compare({shard(1), shard(2, "fail=kel_tlv_alloc_dup:x"), shard(3)}).exited_with(1));
    EXPECT_TRUE(compare({shard(1), shard(2, "crash=kel_tlv_alloc_dup"), shard(3)}).exited_with(2));
}

TEST_F(shards, that_are_missing_are_named)
{
    const auto done = compare({shard(1), shard(3)});
    EXPECT_TRUE(done.exited_with(2)) << done.output;
    EXPECT_THAT(done.output, HasSubstr("shard 2/3 is missing\n"));
}

TEST_F(shards, that_were_cut_short_are_incomplete)
{
    const std::string whole = content_of(shard(2));
    std::ofstream(file("cut")) << whole.substr(0, whole.rfind('\n', whole.size() - 2) + 1);
    EXPECT_TRUE(compare({shard(1), file("cut"), shard(3)}).exited_with(2));
}

TEST_F(shards, that_are_the_same_are_compared)
{
    const std::string first = shard(1);
    fs::copy(first, file("copy"));
    EXPECT_THAT(compare({first, file("copy"), first}).output, HasSubstr("0 of 17 cases differ"));
}

} // namespace

// SPDX-License-Identifier: MIT
//
// tavor-run from outside, with a stand-in for tavor that crashes and hangs where it is told to,
// and with tavor itself.
#include <csignal>

#include "tests/cli/run_fixture.h"
#include "tools/common/registry.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

TEST_F(run_test, all_good_is_0)
{
    script = "ignore=kel_role_basic";
    const auto done = run({"kel_role", "kel_send"});
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    EXPECT_THAT(done.output, HasSubstr("5 results: 4 passed, 1 ignored\n"));
    EXPECT_THAT(done.output, Not(HasSubstr("\x1b[")));
}

TEST_F(run_test, a_failure_is_1)
{
    script = "fail=kel_role_always:wrong_answer";
    const auto done = run({"kel_role"});
    EXPECT_TRUE(done.exited_with(1)) << done.output << done.errors;
    EXPECT_THAT(done.output, AllOf(HasSubstr("wrong answer"),
                                   HasSubstr("again: " FAKE_TAVOR_PROGRAM " kel_role_always\n")));
}

TEST_F(run_test, a_crash_and_a_hang_cost_no_other_verdict)
{
    script = "crash=kel_buf_get_bufmem_start hang=kel_role_basic fail=kel_tlv_alloc:no "
             "ignore=kel_tlv_alloc_dup exit=kel_metadata_get_caller";
    const auto done = run({"--timeout", "2"});
    EXPECT_TRUE(done.exited_with(2)) << done.output << done.errors;
    const std::vector<json> all = last_results();
    ASSERT_THAT(all, SizeIs(tools::all_cases().size()));
    for (std::size_t i = 0; i < all.size(); i++) {
        EXPECT_EQ(all[i].at("number"), i);
        const std::string name = all[i].at("name");
        const std::string expected = name == "kel_buf_get_bufmem_start"  ? "crash"
                                     : name == "kel_metadata_get_caller" ? "crash"
                                     : name == "kel_role_basic"          ? "hang"
                                     : name == "kel_tlv_alloc"           ? "fail"
                                     : name == "kel_tlv_alloc_dup"       ? "ignore"
                                                                         : "pass";
        EXPECT_EQ(all[i].at("verdict"), expected) << name;
    }
    EXPECT_THAT(done.output,
                AllOf(HasSubstr("SIGSEGV in this case"), HasSubstr("exit status 7 in this case"),
                      HasSubstr("no verdict after 2 s")));
}

TEST_F(run_test, what_a_case_prints_is_kept_and_shown_when_it_fails)
{
    script = "print=kel_role_basic:on_its_way";
    const auto good = run({"kel_role"});
    EXPECT_TRUE(good.exited_with(0)) << good.output;
    EXPECT_EQ(last_results()[0].at("output"), "on its way\n");
    EXPECT_THAT(good.output, Not(HasSubstr("on its way")));
    script = "print=kel_role_basic:FAIL_:_not_in_its_place";
    const auto odd = run({"kel_role"});
    EXPECT_TRUE(odd.exited_with(2)) << odd.output;
    script = "flood=kel_role_basic:lines";
    EXPECT_TRUE(run({"kel_role", "--print-limit", "0"}).exited_with(0));
    EXPECT_LT(std::string(last_results()[0].at("output")).size(), 20'000U) << "it was good";
}

TEST_F(run_test, a_crash_in_the_last_case)
{
    script = "crash=kel_tlv_data_version_check";
    const auto done = run({"kel_tlv"});
    EXPECT_TRUE(done.exited_with(2));
    EXPECT_EQ(last_results().back().at("verdict"), "crash");
    EXPECT_THAT(last_results(), SizeIs(49));
}

TEST_F(run_test, an_odd_end_behind_the_last_case_is_told)
{
    script = "end=3";
    const auto done = run({"kel_role"});
    EXPECT_TRUE(done.exited_with(2)) << done.output;
    EXPECT_THAT(done.output, HasSubstr("tavor ended with exit status 3 behind kel_role_always"));
}

TEST_F(run_test, usage_and_empty_runs_are_3)
{
    EXPECT_TRUE(run({"kel_nothing"}).exited_with(3));
    EXPECT_TRUE(run({"kel_role", "!kel_role"}).exited_with(3));
    EXPECT_TRUE(run({"--nonsense"}).exited_with(3));
    EXPECT_TRUE(run({"--timeout", "-1"}).exited_with(3));
    EXPECT_TRUE(run({"--shard", "3/2"}).exited_with(3));
    EXPECT_TRUE(run({"--shuffle=x"}).exited_with(3));
    EXPECT_TRUE(run({"--repeat", "0"}).exited_with(3));
    EXPECT_TRUE(run({"--out", "pdf:-"}).exited_with(3));
    EXPECT_TRUE(run({"--out", "junit:/nowhere/x"}).exited_with(3));
    EXPECT_TRUE(run({"--baseline", "/nowhere/x"}).exited_with(3));
    EXPECT_TRUE(tavor_run({"--tavor", "/nowhere/tavor", "kel_role"}).exited_with(3));
    script = "refuse";
    const auto refused = run({"kel_role"});
    EXPECT_TRUE(refused.exited_with(3));
    EXPECT_THAT(refused.output, HasSubstr("no library"));
    EXPECT_TRUE(tavor_run({"--version"}).exited_with(0));
    EXPECT_TRUE(tavor_run({"report", "--help"}).exited_with(0));
}

TEST_F(run_test, run_is_the_command_when_none_is_named)
{
    EXPECT_TRUE(tavor_run({"--tavor", FAKE_TAVOR_PROGRAM, "kel_role"}).exited_with(0));
}

TEST_F(run_test, fail_fast_leaves_the_rest_out)
{
    script = "fail=kel_buf_get_bufmem_info:x";
    EXPECT_TRUE(run({"--fail-fast", "0-9"}).exited_with(1));
    const std::vector<json> all = last_results();
    ASSERT_THAT(all, SizeIs(10));
    EXPECT_EQ(all[1].at("verdict"), "pass");
    EXPECT_EQ(all[2].at("verdict"), "fail");
    EXPECT_EQ(all[3].at("verdict"), "not_run");
    script = "crash=kel_buf_get_bufmem_info";
    EXPECT_TRUE(run({"--fail-fast", "0-9"}).exited_with(2));
    EXPECT_EQ(last_results()[3].at("verdict"), "not_run");
}

TEST_F(run_test, repeat_and_until_fail)
{
    EXPECT_TRUE(run({"--repeat", "3", "kel_role"}).exited_with(0));
    EXPECT_THAT(last_results(), SizeIs(6));
    EXPECT_EQ(last_results()[5].at("run"), 3);

    script = "flaky=kel_role_basic:" + file("was-here");
    const auto done = run({"--until-fail", "--out", "junit:" + file("j.xml"), "kel_role"});
    EXPECT_TRUE(done.exited_with(1)) << done.output;
    EXPECT_THAT(last_results(), SizeIs(4));
    EXPECT_THAT(done.output, HasSubstr("in 1 of 2 runs"));
    const std::string junit = content_of(file("j.xml"));
    EXPECT_THAT(junit, AllOf(HasSubstr("in 1 of 2 runs"), HasSubstr("failures=\"1\"")));
    EXPECT_EQ(count_of(junit, "<testcase "), 2);
    fs::remove(file("was-here"));
    EXPECT_TRUE(run({"--repeat", "5", "--until-fail", "kel_role"}).exited_with(1));
    EXPECT_THAT(last_results(), SizeIs(4));
}

TEST_F(run_test, failed_runs_what_was_not_good)
{
    script = "fail=kel_role_always:x crash=kel_tlv_alloc";
    EXPECT_TRUE(run({"kel_role", "kel_tlv"}).exited_with(2));
    script = "";
    EXPECT_TRUE(run({"--failed"}).exited_with(0));
    ASSERT_THAT(last_results(), SizeIs(2));
    EXPECT_EQ(last_results()[0].at("name"), "kel_role_always");
    EXPECT_TRUE(run({"--failed"}).exited_with(3)); // nothing failed the last time
}

TEST_F(run_test, shuffle_runs_each_case_once_and_tells_the_seed)
{
    const auto done = run({"--shuffle=7", "kel_tlv", "kel_role"});
    EXPECT_TRUE(done.exited_with(0)) << done.errors;
    EXPECT_THAT(done.output, HasSubstr("seed     7\n"));
    std::vector<int> order;
    for (const json &each : last_results()) {
        order.push_back(each.at("number"));
    }
    EXPECT_FALSE(std::is_sorted(order.begin(), order.end()));
    std::vector<int> sorted = order;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::unique(sorted.begin(), sorted.end()) - sorted.begin(), 51);
    const auto listed = tavor_run({"list", "--shuffle=7", "kel_tlv", "kel_role"});
    std::vector<int> from_list;
    for (const std::string &line : lines_of(listed.output)) {
        from_list.push_back(std::stoi(line));
    }
    EXPECT_EQ(order, from_list);
    EXPECT_THAT(run({"--shuffle", "kel_role"}).output, HasSubstr("seed     "));
}

TEST_F(run_test, isolated_cases_do_not_meet)
{
    script = "poison=kel_role_always:kel_role_basic";
    EXPECT_TRUE(run({"kel_role"}).exited_with(1));
    EXPECT_TRUE(run({"--isolate", "kel_role"}).exited_with(0));
}

TEST_F(run_test, bisect_finds_the_shortest_list)
{
    script = "poison=kel_role_always:kel_buf_get_bufmem_info+kel_tlv_alloc+kel_event_wait_poll";
    EXPECT_TRUE(run({"--bisect", "kel_role_always"}).exited_with(0)); // the second is behind it
    script = "poison=kel_tlv_alloc:kel_buf_get_bufmem_info+kel_event_wait_poll";
    const auto found = tavor_run({"bisect", "kel_tlv_alloc", "--tavor", FAKE_TAVOR_PROGRAM});
    EXPECT_TRUE(found.exited_with(1)) << found.errors;
    EXPECT_THAT(found.output, HasSubstr("needed before it, none can be left out:\n"
                                        "  kel_buf_get_bufmem_info\n  kel_event_wait_poll\n"));
    EXPECT_THAT(found.output, HasSubstr("again: " FAKE_TAVOR_PROGRAM " kel_buf_get_bufmem_info "
                                        "kel_event_wait_poll kel_tlv_alloc\n"));
    EXPECT_TRUE(tavor_run({"bisect", "kel_nothing"}).exited_with(3));
}

TEST_F(run_test, a_command_brings_tavor_to_its_device)
{
    std::ofstream(file("device.sh"))
        << "#!/bin/sh\necho \"$@\" >>" << file("calls") << "\nexec \"$@\"\n";
    fs::permissions(file("device.sh"), fs::perms::owner_all);
    script = "crash=kel_role_basic fail=kel_role_always:x";
    const auto done =
        run({"--exec", "sh " + file("device.sh"), "--lib", "/some where", "kel_role"});
    EXPECT_TRUE(done.exited_with(2)) << done.output << done.errors;
    EXPECT_THAT(last_results(), SizeIs(2));
    EXPECT_THAT(content_of(file("calls")),
                HasSubstr("env LD_LIBRARY_PATH=/some where " FAKE_TAVOR_PROGRAM " kel_role\n"));
    EXPECT_THAT(done.output, HasSubstr("again: sh " + file("device.sh") +
                                       " env 'LD_LIBRARY_PATH=/some where' " FAKE_TAVOR_PROGRAM
                                       " kel_role_always\n"));
}

TEST_F(run_test, a_cut_message_is_fetched_in_full)
{
    const std::string message = "msg='" + std::string(90, 'm') + "' line=123";
    script = "fail=kel_role_basic:" + message;
    script[script.rfind(' ')] = '_';
    EXPECT_THAT(run({"kel_role"}).output, HasSubstr("  " + message + "\n"));
    EXPECT_THAT(content_of(file("tavor-run/last.jsonl")),
                HasSubstr("\"message\":\"" + message + "\""));
}

TEST_F(run_test, a_baseline_names_what_differs)
{
    script = "fail=kel_role_basic:known fail=kel_tlv_alloc:old ignore=kel_tlv_alloc_dup";
    EXPECT_TRUE(
        run({"kel_role", "kel_tlv", "--out", "jsonl:" + file("base.jsonl")}).exited_with(1));
    const auto again = run({"kel_role", "kel_tlv", "--baseline", file("base.jsonl")});
    EXPECT_TRUE(again.exited_with(0)) << again.output;

    script = "fail=kel_role_always:new fail=kel_tlv_alloc:other";
    const auto done = run({"kel_role", "kel_tlv", "--baseline", file("base.jsonl"), "--out",
                           "jsonl:" + file("now.jsonl")});
    EXPECT_TRUE(done.exited_with(1)) << done.output;
    EXPECT_THAT(done.output, AllOf(HasSubstr("[fixed]"), HasSubstr("[new failure]"),
                                   HasSubstr("[changed message]"), HasSubstr("[ignore -> pass]")));

    const auto compared = tavor_run({"compare", file("base.jsonl"), file("now.jsonl")});
    EXPECT_TRUE(compared.exited_with(1));
    EXPECT_THAT(compared.output,
                AllOf(HasSubstr("fixed: kel_role_basic\n"),
                      HasSubstr("new failure: kel_role_always\n"), HasSubstr("4 differences\n")));
    EXPECT_TRUE(tavor_run({"compare", file("now.jsonl"), file("now.jsonl")}).exited_with(0));
    EXPECT_TRUE(tavor_run({"compare", file("now.jsonl"), "/nowhere/x"}).exited_with(3));
}

TEST_F(run_test, bisect_finds_the_first_bad_library)
{
    std::vector<std::string> folders;
    for (const std::string build : {"a", "b", "c", "d", "e", "f"}) {
        fs::create_directory(file(build));
        std::ofstream(file(build) + "/libkel.so") << "not loaded by the stand-in";
        folders.push_back(file(build));
    }
    script = "fail_from=kel_role_basic:" + file("d");
    std::vector<std::string> arguments = {"bisect", "--tavor", FAKE_TAVOR_PROGRAM, "--libs"};
    arguments.insert(arguments.end(), folders.begin(), folders.end());
    arguments.emplace_back("kel_role_basic");
    const auto found = tavor_run(arguments);
    EXPECT_TRUE(found.exited_with(1)) << found.output << found.errors;
    EXPECT_THAT(found.output,
                AllOf(HasSubstr("the first bad one: " + file("d") + ", build id unknown\n"),
                      HasSubstr("the last good one: " + file("c") + ","),
                      HasSubstr("again: LD_LIBRARY_PATH=" + file("d"))));
    EXPECT_EQ(count_of(found.output, "  " + folder.string()), 4);

    arguments.back() = "kel_role_always";
    EXPECT_TRUE(tavor_run(arguments).exited_with(0));
    // The case may come first, too.
    arguments.pop_back();
    arguments.insert(arguments.begin() + 1, "kel_role_basic");
    EXPECT_TRUE(tavor_run(arguments).exited_with(1));
    arguments[1] = "kel_nothing";
    EXPECT_TRUE(tavor_run(arguments).exited_with(3));
    arguments[1] = "kel_role_basic";
    arguments.push_back(file("nowhere"));
    const auto refused = tavor_run(arguments);
    EXPECT_TRUE(refused.exited_with(3));
    EXPECT_EQ(refused.output, "") << "before anything runs";
    EXPECT_TRUE(tavor_run({"bisect"}).exited_with(3));
    EXPECT_TRUE(tavor_run({"bisect", "--libs", file("a"), "kel_role_basic"}).exited_with(3));
}

TEST_F(run_test, a_name_that_does_not_exist_has_a_nearest_one)
{
    for (const auto &[wrong, meant] : std::map<std::string, std::string>{
             {"kel_pakcet", "kel_packet"},
             {"role_basic", "kel_role_basic"},
             {"kel_packet_apend", "kel_packet_append"},
         }) {
        EXPECT_THAT(run({wrong}).errors, HasSubstr("(did you mean " + meant + "?)"));
        EXPECT_THAT(tavor_run({"bisect", wrong}).errors, HasSubstr("(did you mean "));
    }
    EXPECT_THAT(run({"nonsense"}).errors, Not(HasSubstr("did you mean")));
    EXPECT_THAT(run({std::string(100'000, 'k')}).errors, Not(HasSubstr("did you mean")));
}

TEST_F(run_test, a_library_that_is_not_found_is_told_with_a_remedy)
{
    fs::copy(TAVOR_BINARY, file("tavor"));
    const auto done = tavor_run({"--tavor", file("tavor"), "kel_role"});
    EXPECT_TRUE(done.exited_with(3)) << done.output;
    EXPECT_THAT(done.output, AllOf(HasSubstr("libkel.so"), HasSubstr("with --lib")));
}

TEST_F(run_test, gdb_is_started_with_the_case)
{
    std::ofstream(file("gdb")) << "#!/bin/sh\nprintf '%s\\n' \"$LD_LIBRARY_PATH\" \"$@\"\n";
    fs::permissions(file("gdb"), fs::perms::owner_all);
    std::ofstream(file("libkel.so")) << "x";
    tools::process_options options = process(
        {"--tavor", FAKE_TAVOR_PROGRAM, "--lib", folder.string(), "--gdb", "kel_role_basic"});
    options.environment.push_back("PATH=" + folder.string() + ":" + std::getenv("PATH"));
    const auto done = tools::run_process(options);
    EXPECT_TRUE(done.exited_with(0)) << done.errors;
    EXPECT_THAT(done.output,
                AllOf(StartsWith(folder.string()), HasSubstr("tbreak suites/role.cpp:"),
                      HasSubstr("--args\n" FAKE_TAVOR_PROGRAM "\nkel_role_basic\n")));
    EXPECT_TRUE(run({"--gdb", "kel_nothing"}).exited_with(3));
    EXPECT_TRUE(run({"--gdb", "kel_role_basic", "--exec", "sh"}).exited_with(3));
    options.environment.back() = "PATH=/nowhere";
    EXPECT_TRUE(tools::run_process(options).exited_with(3));
}

TEST_F(run_test, a_crash_has_a_backtrace_where_gdb_may_trace)
{
    script = "crash=kel_role_basic print=kel_role_always:x";
    const auto probe = tools::run_process(
        {.arguments = {"gdb", "-q", "-nx", "-batch", "-ex", "run", "--args", "true"}});
    if (probe.output.find("exited normally") == std::string::npos) {
        GTEST_SKIP() << "gdb is not installed here, or may not trace";
    }
    // Without the shim nothing is looked at a second time.
    std::ofstream(file("shim.so")) << "";
    const auto done =
        run({"kel_role", "--shim", file("shim.so"), "--out", "jsonl:" + file("r.jsonl")});
    EXPECT_THAT(done.output,
                HasSubstr("  backtrace (gdb, a second run of this case alone):\n    #0 "));
    EXPECT_THAT(done.output, HasSubstr(" main ("));
    EXPECT_THAT(content_of(file("r.jsonl")), HasSubstr("\"backtrace\":[\"#0 "));
    EXPECT_THAT(run({"kel_role", "--trace", "0"}).output, Not(HasSubstr("backtrace")));
}

// The names of elements that are open at the end, or what is wrong with the text.
std::string open_elements(const std::string &xml)
{
    std::vector<std::string> open;
    for (std::size_t at = xml.find('<'); at != std::string::npos; at = xml.find('<', at)) {
        const std::size_t end = xml.find('>', at);
        if (end == std::string::npos || xml.find('<', at + 1) < end) {
            return "broken at " + xml.substr(at, 40);
        }
        const std::string tag = xml.substr(at + 1, end - at - 1);
        const std::string name = tag.substr(0, tag.find_first_of(" \n"));
        if (tag.starts_with('/')) {
            if (open.empty() || open.back() != tag.substr(1)) {
                return "unexpected " + tag;
            }
            open.pop_back();
        } else if (!tag.starts_with('?') && !tag.ends_with('/')) {
            open.push_back(name);
        }
        if (count_of(tag, "\"") % 2 != 0) {
            return "quotes in " + tag;
        }
        at = end;
    }
    return open.empty() ? "" : "open: " + open.back();
}

TEST_F(run_test, all_formats_at_once)
{
    script = "fail=kel_role_basic:a<b>&\"c\" ignore=kel_role_always crash=kel_tlv_alloc";
    const auto done =
        run({"kel_role", "kel_tlv", "--out", "junit:" + file("j.xml"), "--out", "tap:-", "--out",
             "jsonl:" + file("r.jsonl"), "--out", "html:" + file("h.html"), "--out",
             "text:" + file("t.txt"), "--out", "tap13:" + file("t.tap")});
    EXPECT_TRUE(done.exited_with(2)) << done.errors;
    EXPECT_THAT(content_of(file("t.tap")), StartsWith("TAP version 13\n1..51\n"));

    const std::string junit = content_of(file("j.xml"));
    EXPECT_THAT(open_elements(junit), IsEmpty());
    EXPECT_THAT(junit, AllOf(StartsWith("<?xml"),
                             HasSubstr("tests=\"2\" failures=\"1\" errors=\"0\" "
                                       "skipped=\"1\""),
                             HasSubstr("tests=\"49\" failures=\"0\" errors=\"1\" "
                                       "skipped=\"0\""),
                             HasSubstr("message=\"a&lt;b&gt;&amp;&quot;c&quot;\"")));
    EXPECT_EQ(count_of(junit, "<testcase "), 51);
    EXPECT_EQ(count_of(junit, "<testsuite "), 2);

    const std::vector<std::string> tap = lines_of(done.output);
    EXPECT_EQ(tap[0], "TAP version 14");
    EXPECT_EQ(tap[1], "1..51");
    int point = 0;
    for (std::size_t i = 2; i < tap.size(); i++) {
        const std::string number = std::to_string(point + 1) + " - ";
        if (tap[i].starts_with("ok " + number) || tap[i].starts_with("not ok " + number)) {
            const std::size_t own = tap[i].find(" - ") + 3; // tavor's number, then the name
            const int row = std::stoi(tap[i].substr(own));
            EXPECT_EQ(
                tap[i].find(std::string(tools::all_cases()[static_cast<std::size_t>(row)].name)),
                tap[i].find(' ', own) + 1)
                << tap[i];
            point++;
        } else {
            EXPECT_TRUE(tap[i].starts_with("#") || tap[i].starts_with("  ")) << tap[i];
        }
    }
    EXPECT_EQ(point, 51);
    EXPECT_THAT(done.output, HasSubstr("ok 2 - 393 kel_role_always # SKIP ignore\n"));
    EXPECT_THAT(done.output, HasSubstr("not ok 1 - 392 kel_role_basic\n  ---\n  verdict: fail\n"
                                       "  message: \"a<b>&\\\"c\\\"\"\n"));

    EXPECT_THAT(results(file("r.jsonl")), SizeIs(51));
    const std::string html = content_of(file("h.html"));
    EXPECT_THAT(html,
                AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("</html>\n"),
                      HasSubstr("a&lt;b&gt;"), Not(HasSubstr("src=")), Not(HasSubstr("href=\"h")),
                      Not(HasSubstr("url(")), Not(HasSubstr("@import"))));
    EXPECT_EQ(count_of(html, "<tr class=\"case\""), 51);
    EXPECT_THAT(content_of(file("t.txt")),
                HasSubstr("51 results: 48 passed, 1 ignored, 1 failed, 1 crashed"));
    EXPECT_TRUE(run({"kel_role", "--out", "tap:-", "--out", "jsonl:-"}).exited_with(3));
}

TEST_F(run_test, reports_survive_the_end_of_tavor_run)
{
    script = "hang=kel_tlv_hdr_alloc";
    tools::process_options killed =
        process({"--tavor", FAKE_TAVOR_PROGRAM, "kel_tlv", "--out", "junit:" + file("j.xml"),
                 "--out", "jsonl:" + file("r.jsonl"), "--out", "tap:" + file("t.tap")});
    killed.timeout = std::chrono::seconds(3);
    EXPECT_TRUE(tools::run_process(killed).timed_out);
    const std::size_t written = results(file("r.jsonl")).size();
    EXPECT_EQ(written, static_cast<std::size_t>(tools::case_number("kel_tlv_hdr_alloc") -
                                                tools::case_number("kel_tlv_alloc_null_pkt")));
    const std::string junit = content_of(file("j.xml"));
    EXPECT_THAT(open_elements(junit), IsEmpty());
    EXPECT_GE(count_of(junit, "<testcase "), 1);
    EXPECT_EQ(count_of(content_of(file("t.tap")), "ok "), static_cast<int>(written));
}

TEST_F(run_test, an_interrupt_ends_behind_the_case)
{
    script = "hang=kel_role_always";
    tools::process_options options = process({"--tavor", FAKE_TAVOR_PROGRAM, "kel_role", "kel_tlv",
                                              "--timeout", "1", "--out", "jsonl:-"});
    options.stop_signal = SIGINT;
    options.on_output = [](std::string_view piece) {
        return piece.find("kel_role_basic") != std::string_view::npos;
    };
    const auto done = tools::run_process(options);
    EXPECT_TRUE(done.exited_with(2)) << done.output;
    EXPECT_EQ(verdict_of(last_results(), "kel_role_basic"), "pass");
    EXPECT_EQ(verdict_of(last_results(), "kel_tlv_alloc"), "not_run");
}

TEST_F(run_test, a_log_is_judged)
{
    const std::string data = TAVOR_SOURCE_DIR "/tests/cli/data/";
    EXPECT_TRUE(tavor_run({"report", data + "full_run.log"}).exited_with(0));
    const auto failing =
        tavor_run({"report", data + "failing_run.log", "-q", "--out", "junit:" + file("j.xml")});
    EXPECT_TRUE(failing.exited_with(1));
    EXPECT_EQ(count_of(content_of(file("j.xml")), "<failure"), count_of(failing.output, " fail "));
    std::ofstream(file("cut.log")) << content_of(data + "full_run.log").substr(0, 9000);
    EXPECT_TRUE(tavor_run({"report", file("cut.log")}).exited_with(2));
    EXPECT_TRUE(tavor_run({"report", "/nowhere/x"}).exited_with(3));
    EXPECT_TRUE(tavor_run({"report", "/dev/null"}).exited_with(3));
    EXPECT_TRUE(tavor_run({"report", data + "full_run.log", "--foreign", "("}).exited_with(3));
}

TEST_F(run_test, list_shows_numbers_suites_and_names)
{
    EXPECT_EQ(tavor_run({"list", "kel_role"}).output,
              "392\tkel_role\tkel_role_basic\n393\tkel_role\tkel_role_always\n");
    EXPECT_THAT(lines_of(tavor_run({"list", "--suites"}).output), SizeIs(18));
    EXPECT_TRUE(tavor_run({"list", "nobody"}).exited_with(3));
}

TEST_F(run_test, colours_only_when_wanted)
{
    script = "";
    EXPECT_THAT(run({"kel_role", "--color", "always"}).output, HasSubstr("\x1b[32m"));
    EXPECT_THAT(run({"kel_role", "--color", "auto"}).output, Not(HasSubstr("\x1b")));
}

class real_tavor : public run_test {};

TEST_F(real_tavor, the_library_that_ran_is_named)
{
    const auto done = tavor_run({"--tavor", TAVOR_BINARY, "kel_role", "--out",
                                 "jsonl:" + file("r.jsonl"), "--timeout-scale", "5"});
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    const json first = json::parse(lines_of(content_of(file("r.jsonl")))[0]);
    const json library = first.at("library");
    EXPECT_TRUE(fs::equivalent(std::string(library.at("path")), KEL_REFERENCE_LIBRARY));
    EXPECT_EQ(library.at("soname"), "libkel.so");
    EXPECT_EQ(library.at("reference"), true);
    EXPECT_EQ(first.at("tavor").at("image"), "tavor");
    EXPECT_THAT(std::string(first.at("tavor").at("target")), Not(IsEmpty()));
}

TEST_F(real_tavor, closed_refuses_the_reference_library)
{
    const auto done = tavor_run({"--tavor", TAVOR_BINARY, "--closed", "kel_role"});
    EXPECT_TRUE(done.exited_with(3));
    EXPECT_THAT(done.errors, HasSubstr("is the reference library"));
    EXPECT_TRUE(run({"--closed", "kel_role"}).exited_with(3)); // no library to be seen
}

TEST_F(real_tavor, another_folder_means_another_library)
{
    fs::copy(KEL_REFERENCE_LIBRARY, file("libkel.so"));
    const auto done = tavor_run({"--tavor", TAVOR_BINARY, "--lib", folder.string(), "kel_role"});
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    EXPECT_THAT(done.output, HasSubstr("library  " + file("libkel.so")));
}

#ifdef KELTRACE_LIBRARY
TEST_F(real_tavor, the_last_calls_of_a_failed_case_are_shown)
{
    tools::process_options options = process(
        {"--tavor", TAVOR_BINARY, "--shim", KELTRACE_LIBRARY, "--trace", "5", "kel_packet_append"});
    options.environment.emplace_back("LD_PRELOAD=" KELTRACE_LIBRARY);
    options.environment.emplace_back("KELTRACE_FAULTS=append#1:error=EINVAL");
    const auto done = tools::run_process(options);
    EXPECT_TRUE(done.exited_with(1)) << done.output << done.errors;
    EXPECT_THAT(done.output, HasSubstr("last library calls (a second run, of this case alone: the "
                                       "same verdict):\n"));
    EXPECT_THAT(done.output, HasSubstr(" kel_append("));
    EXPECT_THAT(done.output, HasSubstr(" = EINVAL"));
    options.arguments.emplace_back("--isolate");
    EXPECT_THAT(tools::run_process(options).output, HasSubstr("last library calls (this run):\n"));
}

// The case leaves its packet to its client's deregistration.
TEST_F(real_tavor, the_objects_that_a_case_does_not_release_are_named)
{
    const std::string name = "kel_bufgroup_get_bufcount_add_trim";
    const auto done = tavor_run({"--tavor",
                                 TAVOR_BINARY,
                                 "--shim",
                                 KELTRACE_LIBRARY,
                                 "--census",
                                 "--trace",
                                 "0",
                                 name,
                                 "kel_tlv_alloc",
                                 "--out",
                                 "text",
                                 "--out",
                                 "jsonl:" + file("r.jsonl"),
                                 "--out",
                                 "junit:" + file("j.xml"),
                                 "--out",
                                 "html:" + file("h.html"),
                                 "--out",
                                 "tap:" + file("r.tap"),
                                 "--out",
                                 "lava:" + file("r.lava")});
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    EXPECT_THAT(done.output, MatchesRegex("(.|\n)*" + name +
                                          " does not release:\n"
                                          "    swept packet 0x[0-9a-f]+ by [0-9]+ t1 "
                                          "kel_get_packet\\(client=[^\n]*\\)\n(.|\n)*"));
    EXPECT_THAT(done.output, Not(HasSubstr("kel_tlv_alloc does")));
    for (const char *const each : {"r.jsonl", "j.xml", "h.html", "r.tap", "r.lava"}) {
        EXPECT_EQ(count_of(content_of(file(each)), "swept packet 0x"), 1) << each;
    }
}

TEST_F(real_tavor, a_census_needs_the_shim)
{
    const auto done = tavor_run({"--tavor", TAVOR_BINARY, "--shim", file("none"), "--census"});
    EXPECT_TRUE(done.exited_with(3));
    EXPECT_THAT(done.errors, HasSubstr("--shim: "));
}
#endif

} // namespace

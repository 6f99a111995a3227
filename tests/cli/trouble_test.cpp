// SPDX-License-Identifier: MIT
//
// tavor-run where things go wrong around it: signals, full disks, closed streams, links, floods of
// output, texts that would steer a terminal.
#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "tests/cli/run_fixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class trouble : public run_test {
protected:
    static constexpr std::chrono::seconds PATIENCE{20};

    // A shell's command with tavor-run's path as $0 and the stand-in's as $1.
    tools::process_result shell(const std::string &command) const
    {
        tools::process_options options = process({});
        options.arguments = {"bash", "-c", command, TAVOR_RUN, FAKE_TAVOR_PROGRAM};
        options.timeout = PATIENCE;
        return tools::run_process(options);
    }

    // Sends signals to a run whose second case hangs; its status is the shell's.
    tools::process_result signalled(const std::string &signals) const
    {
        fs::copy_file(FAKE_TAVOR_PROGRAM, file("own-tavor"), fs::copy_options::overwrite_existing);
        fs::remove(file("r.jsonl"));
        return shell("env --default-signal=INT,QUIT \"$0\" run --tavor " + file("own-tavor") +
                     " kel_role --timeout 15 --out jsonl:" + file("r.jsonl") +
                     " & until grep -q kel_role_basic " + file("r.jsonl") +
                     "; do sleep .05; done; for signal in " + signals +
                     "; do kill -$signal $!; sleep .3; done 2>/dev/null; wait $!");
    }

    // How many processes run the copy of the stand-in.
    int running() const
    {
        int count = 0;
        std::error_code gone;
        for (const auto &each : fs::directory_iterator("/proc")) {
            count += fs::read_symlink(each.path() / "exe", gone) == file("own-tavor") ? 1 : 0;
        }
        return count;
    }

    bool all_are_gone() const
    {
        for (int tries = 0; running() > 0; tries++) {
            if (tries == 100) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    // A shell's command with file systems of its own; empty where that is not allowed.
    static std::string alone(const std::string &command)
    {
        const auto allowed = tools::run_process({.arguments = {"unshare", "-m", "true"}});
        return allowed.exited_with(0) ? "unshare -m bash -c '" + command + "' \"$0\" \"$1\"" : "";
    }
};

TEST_F(trouble, a_second_interrupt_ends_the_case_that_hangs)
{
    script = "hang=kel_role_always";
    const auto done = signalled("INT INT");
    EXPECT_TRUE(done.exited_with(2)) << done.output << done.errors;
    EXPECT_LT(done.wall_time, std::chrono::seconds(8)) << "that is the time-out's work";
    EXPECT_EQ(verdict_of(results(file("r.jsonl")), "kel_role_always"), "not_run");
    EXPECT_TRUE(all_are_gone());
}

TEST_F(trouble, other_signals_end_it_at_once_and_nothing_is_left)
{
    script = "hang=kel_role_always";
    for (const std::string signal : {"TERM", "HUP", "QUIT"}) {
        const auto done = signalled(signal);
        EXPECT_TRUE(done.exited_with(2)) << signal << done.output << done.errors;
        EXPECT_LT(done.wall_time, std::chrono::seconds(8)) << signal;
        EXPECT_EQ(verdict_of(results(file("r.jsonl")), "kel_role_always"), "not_run") << signal;
        EXPECT_TRUE(all_are_gone()) << signal;
    }
    EXPECT_TRUE(signalled("KILL").exited_with(137));
    EXPECT_TRUE(all_are_gone());
}

TEST_F(trouble, a_report_through_a_link_goes_where_the_link_leads)
{
    std::ofstream(file("real.xml")) << "old";
    fs::permissions(file("real.xml"), fs::perms(0640));
    fs::create_symlink("real.xml", file("link.xml"));
    std::ofstream(file("victim")) << "precious";
    fs::create_symlink("victim", file("real.xml.part"));
    fs::create_symlink("victim", file("link.xml.part"));
    fs::create_symlink("new.html", file("dangling.html"));
    EXPECT_TRUE(run({"kel_role", "--out", "junit:" + file("link.xml"), "--out",
                     "html:" + file("dangling.html")})
                    .exited_with(0));
    EXPECT_TRUE(fs::is_symlink(file("link.xml")));
    EXPECT_THAT(content_of(file("real.xml")), StartsWith("<?xml"));
    EXPECT_EQ(fs::status(file("real.xml")).permissions(), fs::perms(0640));
    EXPECT_THAT(content_of(file("new.html")), StartsWith("<!DOCTYPE"));
    EXPECT_EQ(content_of(file("victim")), "precious");
}

TEST_F(trouble, a_report_that_cannot_be_exchanged_is_written_in_place)
{
    std::ofstream(file("mounted.xml")) << "old";
    std::ofstream(file("other.xml")) << "other";
    const std::string command =
        alone("mount --bind " + file("other.xml") + " " + file("mounted.xml") +
              " && \"$0\" run --tavor \"$1\" kel_role " + "--out junit:" + file("mounted.xml"));
    if (command.empty()) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    const auto done = shell(command);
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    EXPECT_THAT(content_of(file("other.xml")),
                AllOf(StartsWith("<?xml"), HasSubstr("</testsuites>")));
    EXPECT_EQ(content_of(file("mounted.xml")), "old");
}

TEST_F(trouble, a_full_disk_costs_one_report_and_is_told)
{
    fs::create_directory(file("small"));
    const std::string command =
        alone("mount -t tmpfs -o size=4k none " + file("small") + " && echo old >" +
              file("small/r.jsonl") + "; \"$0\" run --tavor \"$1\" kel_tlv --out jsonl:" +
              file("small/r.jsonl") + " --out junit:" + file("r.xml"));
    if (command.empty()) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    const auto done = shell(command);
    EXPECT_TRUE(done.exited_with(2)) << done.output << done.errors;
    EXPECT_THAT(done.errors, HasSubstr("No space left on device"));
    EXPECT_THAT(done.output, AllOf(HasSubstr("note: cannot write "), HasSubstr(" 49 passed")));
    EXPECT_EQ(count_of(content_of(file("r.xml")), "<testcase "), 49);
}

TEST_F(trouble, remembering_the_last_results_is_no_reason_to_stop)
{
    fs::create_directory(file("tavor-run"));
    fs::create_symlink("/dev/full", file("tavor-run/last.jsonl"));
    const auto done = run({"kel_role"});
    EXPECT_TRUE(done.exited_with(0)) << done.output << done.errors;
    EXPECT_THAT(done.output, HasSubstr("2 results: 2 passed"));
    EXPECT_THAT(done.errors, HasSubstr("No space left on device"));
    EXPECT_TRUE(run({"kel_role", "--last", "/dev/full", "-q"}).exited_with(2))
        << "that was asked for";
}

TEST_F(trouble, a_closed_standard_output_is_nobody_elses_file)
{
    const auto done =
        shell("\"$0\" run --tavor \"$1\" kel_role --out junit:" + file("j.xml") + " >&-");
    EXPECT_TRUE(done.exited_with(2)) << done.errors;
    EXPECT_THAT(done.errors, HasSubstr("cannot write to standard output"));
    EXPECT_THAT(content_of(file("j.xml")), AllOf(StartsWith("<?xml"), Not(HasSubstr("results:"))));
    EXPECT_TRUE(shell("\"$0\" run --tavor \"$1\" kel_role <&- >&- 2>&-").exited_with(3));
}

TEST_F(trouble, what_standard_output_refuses_is_told)
{
    for (const std::string command : {"list", "--version", "--help", "run --tavor \"$1\" kel_role",
                                      "bisect kel_role_always --tavor \"$1\" kel_role"}) {
        const auto done = shell("\"$0\" " + command + " >/dev/full");
        EXPECT_TRUE(done.exited_with(3)) << command;
        EXPECT_THAT(done.errors, HasSubstr("cannot write to standard output")) << command;
    }
}

TEST_F(trouble, a_flood_of_output_is_not_kept)
{
    for (const std::string form : {"lines", "one"}) {
        script = "flood=kel_role_basic:" + form;
        const auto done =
            run({"kel_role", "--print-limit", "0", "--out", "jsonl:" + file("r.jsonl"), "-q"});
        EXPECT_LT(done.peak_memory_kib, 50'000) << form;
        EXPECT_NE(verdict_of(results(file("r.jsonl")), "kel_role_basic"), "none") << form;
        EXPECT_EQ(verdict_of(results(file("r.jsonl")), "kel_role_always"), "pass") << form;
    }
}

TEST_F(trouble, nothing_from_outside_steers_a_terminal)
{
    script = "fail=kel_role_basic:\x1b[31m\xc2\x9b"
             "2J\xff";
    for (const std::string format : {"text", "tap", "jsonl", "lava", "junit", "html"}) {
        const auto done = run({"kel_role", "--out", format});
        EXPECT_TRUE(done.exited_with(1) || done.exited_with(2)) << format;
        EXPECT_THAT(done.output, AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\xc2\x9b")),
                                       Not(HasSubstr("\xff")), HasSubstr("kel_role_basic")))
            << format;
    }
    std::ofstream(file("evil.jsonl"))
        << json{{"type", "run"},
                {"format", 1},
                {"started", "\x1b]0;x\x07"},
                {"tavor", {{"path", ""}, {"target", ""}, {"tree", ""}, {"image", ""}}},
                {"library",
                 {{"path", "\xc2\x9b"}, {"soname", ""}, {"build_id", ""}, {"reference", false}}}}
               .dump()
        << "\n"
        << json{{"type", "case"},
                {"name", "kel_role_basic"},
                {"verdict", "fail"},
                {"message", "\x1b[2J"}}
               .dump()
        << "\n";
    for (const std::string names : {" ", " a="}) {
        const auto compared =
            tavor_run({"compare", file("evil.jsonl"), names.substr(1) + file("evil.jsonl")});
        EXPECT_THAT(compared.output, AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\xc2\x9b"))));
    }
    EXPECT_THAT(run({"kel_\x1b[2J"}).errors, Not(HasSubstr("\x1b")));
}

TEST_F(trouble, a_folder_without_the_library_is_refused)
{
    const auto done = tavor_run({"--tavor", TAVOR_BINARY, "--lib", folder.string(), "kel_role"});
    EXPECT_TRUE(done.exited_with(3)) << done.output;
    EXPECT_THAT(done.errors, HasSubstr("--lib: no libkel.so in "));
}

TEST_F(trouble, a_library_that_the_loader_passes_over_is_refused)
{
    // Of the other class: the loader goes on to the next folder without a word.
    std::string bytes = content_of(KEL_REFERENCE_LIBRARY);
    bytes[4] = bytes[4] == 1 ? 2 : 1;
    std::ofstream(file("libkel.so"), std::ios::binary) << bytes;
    for (const std::string command : {"run", "bisect"}) {
        const auto done = tavor_run(
            {command, "--tavor", TAVOR_BINARY, "--lib", folder.string(), "kel_role_basic"});
        EXPECT_TRUE(done.exited_with(3)) << done.output;
        EXPECT_THAT(done.errors, HasSubstr("--lib: the loader takes /"));
    }
}

// Whichever ends first: the name leads to the run that began last.
TEST_F(trouble, two_runs_at_once_keep_their_last_results_apart)
{
    const std::string last = file("tavor-run/last.jsonl");
    script = "hang=kel_role_always";
    std::thread first([&] { run({"kel_role", "--timeout", "3"}); });
    while (content_of(last).find("kel_role_basic") == std::string::npos) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    script = "";
    EXPECT_TRUE(run({"kel_tlv"}).exited_with(0));
    const std::string second = content_of(last);
    first.join();
    EXPECT_EQ(content_of(last), second);
    EXPECT_THAT(results(last), SizeIs(49));
    EXPECT_EQ(std::distance(fs::directory_iterator(file("tavor-run")), fs::directory_iterator()), 1)
        << "something is left behind";
}

#ifdef KELTRACE_LIBRARY
TEST_F(trouble, a_shim_that_the_loader_cannot_take_is_refused)
{
    fs::create_directory(file("a blank"));
    fs::copy(KELTRACE_LIBRARY, file("a blank/libkeltrace.so"));
    for (const std::string shim : {"a blank/libkeltrace.so", "nowhere.so"}) {
        const auto done = run({"--shim", file(shim), "kel_role"});
        EXPECT_TRUE(done.exited_with(3)) << done.output;
        EXPECT_THAT(done.errors, HasSubstr("--shim: "));
    }
}
#endif

} // namespace

// SPDX-License-Identifier: MIT
//
// The campaign where things go wrong around it: no result may look better for it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/scratch.h"
#include "tools/common/process.h"
#include "tools/common/unique_fd.h"

namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

class trouble : public testing::Test {
protected:
    std::string file(const std::string &name) const { return folder / name; }

    std::vector<std::string> command(const std::vector<std::string> &arguments) const
    {
        std::vector<std::string> all = {
            KEL_CAMPAIGN, "--tavor", tavor, "--pairs", TAVOR_SOURCE_DIR "/tests/campaign/pairs",
            "--quiet"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    tools::process_result campaign(const std::vector<std::string> &arguments,
                                   const std::vector<std::string> &environment = {}) const
    {
        return tools::run_process({.arguments = command(arguments), .environment = environment});
    }

    const support::scratch_folder scratch;
    const fs::path folder = scratch.path();
    std::string tavor = TAVOR_BINARY;
};

TEST_F(trouble, runs_without_whole_reports_count_for_nothing)
{
    // Any other library: cases run, and nobody says which faults were reached or what is left.
    fs::copy(KEL_REFERENCE_LIBRARY, file("libother.so"));
    for (const std::vector<std::string> &what :
         {std::vector<std::string>{}, {"--skip-green"}, {"--skip-green", "--exhaustive"}}) {
        std::vector<std::string> words = what;
        words.insert(words.end(),
                     {"--shim", file("libother.so"), "--results", file("r"), "kel_reg_tag"});
        const auto done = campaign(words);
        EXPECT_TRUE(done.exited_with(3)) << done.output;
        EXPECT_THAT(done.errors, HasSubstr("the shim's report is missing or cut: "));
        EXPECT_TRUE(!fs::exists(file("r")) || fs::is_empty(file("r")));
    }
}

TEST_F(trouble, no_folder_for_temporary_files_is_needed)
{
    const auto done = campaign({"kel_reg_tag"}, {"TMPDIR=/nowhere"});
    EXPECT_TRUE(done.exited_with(0)) << done.errors;
    EXPECT_THAT(done.output, HasSubstr(" runs, 0 to be looked at\n"));
}

TEST_F(trouble, mutants_without_a_folder_are_an_error)
{
    const auto done = tools::run_process(
        {.arguments = {KEL_MUTATE, "--source", TAVOR_SOURCE_DIR, "--build", TAVOR_BUILD_DIR,
                       "--campaign", KEL_CAMPAIGN, "--shim", KELTRACE_LIBRARY, "--count", "1",
                       "--each", "1", "buf.cpp"},
         .environment = {"TMPDIR=/nowhere"}});
    EXPECT_TRUE(done.exited_with(3)) << done.exit_status << ' ' << done.signal;
    EXPECT_THAT(done.errors, HasSubstr("kel-mutate: "));
}

TEST_F(trouble, a_program_that_does_not_start_is_an_error)
{
    tavor = file("tavor");
    fs::copy(TAVOR_BINARY, tavor);
    fs::permissions(file("tavor"), fs::perms(0600));
    const auto done = campaign({"--skip-green", "kel_reg_tag"});
    EXPECT_TRUE(done.exited_with(3)) << done.output;
}

TEST_F(trouble, output_that_is_refused_is_an_error)
{
    for (const std::string what : {"--list", "", "jobs"}) {
        std::vector<std::string> words = command({"kel_reg_tag"});
        words.push_back(what.empty() ? "kel_send" : what);
        words.insert(words.begin(), {"sh", "-c", "exec \"$@\" >/dev/full", "sh"});
        const auto done = tools::run_process({.arguments = words});
        EXPECT_TRUE(done.exited_with(3)) << what;
        EXPECT_THAT(done.errors, HasSubstr("cannot write to standard output")) << what;
    }
    const auto done = campaign({"kel_reg_tag", "--results", "/dev/full"});
    EXPECT_TRUE(done.exited_with(3));
    EXPECT_THAT(done.errors, HasSubstr("/dev/full: cannot be written: No space left on device"));
}

TEST_F(trouble, two_campaigns_do_not_share_a_file)
{
    std::ofstream(file("r")) << "kept\n";
    const tools::unique_fd other(open(file("r").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    const auto done = campaign({"kel_reg_tag", "--results", file("r")});
    EXPECT_TRUE(done.exited_with(3)) << done.output;
    EXPECT_THAT(done.errors, HasSubstr("another campaign writes it"));
    EXPECT_EQ(fs::file_size(file("r")), 5U);

    // Jobs add to one file together.
    ASSERT_EQ(flock(other.get(), LOCK_SH), 0);
    const std::string job = "faultless kel_reg_tag_reg_dereg_tag";
    EXPECT_TRUE(campaign({"run-jobs", job, "--results", file("r")}).exited_with(0));
    EXPECT_TRUE(campaign({"kel_reg_tag", "--resume", "--results", file("r")}).exited_with(3));
}

TEST_F(trouble, a_folder_with_another_library_is_refused)
{
    const auto done = campaign({"kel_reg_tag", "--library-path", folder.string()});
    EXPECT_TRUE(done.exited_with(3)) << done.output;
    EXPECT_THAT(done.errors, HasSubstr("--library-path: the loader takes "));
}

TEST_F(trouble, a_shim_that_the_loader_cannot_take_is_refused)
{
    fs::create_directory(file("a blank"));
    fs::copy(KELTRACE_LIBRARY, file("a blank/libkeltrace.so"));
    const auto done = campaign({"kel_reg_tag", "--shim", file("a blank/libkeltrace.so")});
    EXPECT_TRUE(done.exited_with(3)) << done.output;
    EXPECT_THAT(done.errors, HasSubstr("--shim: the loader takes no path with a blank"));
}

TEST_F(trouble, signals_leave_no_process_and_no_file)
{
    tavor = file("tavor");
    fs::copy(TAVOR_BINARY, tavor);
    const std::string library = fs::path(KEL_REFERENCE_LIBRARY).parent_path();
    const auto running = [&] {
        int count = 0;
        std::error_code gone;
        for (const auto &each : fs::directory_iterator("/proc")) {
            count += fs::read_symlink(each.path() / "exe", gone) == file("tavor") ? 1 : 0;
        }
        return count;
    };
    for (const std::string signal : {"INT", "TERM", "HUP", "QUIT", "KILL"}) {
        fs::create_directory(file("tmp"));
        std::vector<std::string> words =
            command({"--shim", KELTRACE_LIBRARY, "--library-path", library, "--jobs", "4",
                     "--results", file("r"), "kel_bufgroup_get_bufcount_bytag"});
        words.insert(words.begin(),
                     {"bash", "-c",
                      "env --default-signal=INT,QUIT TMPDIR=" + file("tmp") +
                          " \"$@\" & sleep 0.7; kill -" + signal + " $!; wait $! 2>/dev/null",
                      "bash"});
        tools::process_options how{.arguments = words};
        how.timeout = std::chrono::seconds(30);
        const auto done = tools::run_process(how);
        EXPECT_GT(done.exit_status, 128) << signal << done.errors;
        EXPECT_LT(done.wall_time, std::chrono::seconds(5)) << signal;
        for (int tries = 0; running() > 0 && tries < 100; tries++) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        EXPECT_EQ(running(), 0) << signal;
        EXPECT_TRUE(fs::is_empty(file("tmp"))) << signal;
        fs::remove_all(file("tmp"));
    }
}

} // namespace

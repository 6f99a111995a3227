// SPDX-License-Identifier: MIT
//
// The campaign's jobs: their ids, lists and shards, and the command that runs and merges them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "tests/support/scratch.h"
#include "tools/campaign/job_list.h"
#include "tools/campaign/plan.h"
#include "tools/common/process.h"

namespace {

using testing::HasSubstr;

const std::string PAIRS = TAVOR_SOURCE_DIR "/tests/campaign/pairs";

std::vector<std::string> ids_of(const std::vector<campaign::task> &jobs)
{
    std::vector<std::string> ids;
    for (const campaign::task &job : jobs) {
        ids.push_back(job.id);
    }
    return ids;
}

// Of every kind some, of which each case has a few.
std::vector<campaign::task> jobs_of(const campaign::job_book &book)
{
    std::vector<campaign::task> jobs = control_jobs(book, {"kel_buf_append", "kel_tlv_alloc"});
    for (const campaign::pair &shown : book.pairs()) {
        if (shown.unreachable.empty()) {
            jobs.push_back(book.showing(shown));
        }
    }
    const std::map<std::string, unsigned> calls = {{"append", 40}, {"select", 3}, {"malloc", 2}};
    for (const std::string &fault : campaign::faults_for(calls, {})) {
        jobs.push_back(book.under_fault("kel_buf_append", fault));
    }
    return jobs;
}

std::string complaint_of(const std::function<void()> &action)
{
    try {
        action();
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "";
}

class in_folder : public testing::Test {
protected:
    std::string file(const std::string &name, const std::string &text) const
    {
        std::string path = folder / name;
        std::ofstream(path) << text;
        return path;
    }

    const support::scratch_folder scratch;
    const std::filesystem::path folder = scratch.path();
};

TEST(job, is_found_by_its_id)
{
    const campaign::job_book book(PAIRS);
    for (const campaign::task &job : jobs_of(book)) {
        const campaign::task found = book.named(job.id);
        EXPECT_EQ(found.id, job.id);
        EXPECT_EQ(found.what.test, job.what.test);
        EXPECT_EQ(found.what.faults, job.what.faults);
        EXPECT_EQ(found.expected, job.expected);
        EXPECT_EQ(found.pairs_of_case, job.pairs_of_case);
        EXPECT_EQ(is_control(found), is_control(job));
    }
}

TEST(job, of_no_campaign_is_refused)
{
    const campaign::job_book book(PAIRS);
    for (const std::string id :
         {"", "every", "every ", "every kel_buf_append", "every kel_none append#1:lost",
          "every kel_buf_append append#0:lost", "every kel_buf_append append#:lost",
          "every kel_buf_append append#2+:lost", "every kel_buf_append append#1:gone",
          "every kel_buf_append nothing#1:lost", "every kel_buf_append nocrash_set#1:lost",
          "every kel_buf_append append#1:lost ", "every kel_buf_append append#1:lost sleep#1:lost",
          "faultless kel_none", "without effect", "pair kel_buf_append append#1:lost no such",
          "FAULTLESS kel_buf_append"}) {
        EXPECT_EQ(complaint_of([&] { book.named(id); }), "no such job: " + id);
    }
}

TEST_F(in_folder, the_same_pair_twice_is_refused)
{
    file("a.txt", "kel_buf_append | plain | text | append#1:lost\n"
                  "kel_buf_append | plain | text | append#2:lost\n"
                  "kel_buf_append | located | text | append#1:lost\n");
    EXPECT_EQ(complaint_of([&] { const campaign::job_book book(folder); }),
              "a.txt:3: the same pair as a.txt:1");
}

TEST(shards, share_all_jobs_whatever_their_order)
{
    const campaign::job_book book(PAIRS);
    std::vector<campaign::task> jobs = jobs_of(book);
    for (const unsigned count : {1U, 2U, 7U, 100U}) {
        std::map<std::string, unsigned> shard_of;
        for (unsigned i = 1; i <= count; i++) {
            const auto part = jobs_of_shard(jobs, {i, count});
            EXPECT_GT(part.size(), jobs.size() / count / 3);
            for (const campaign::task &job : part) {
                EXPECT_TRUE(shard_of.emplace(job.id, i).second) << job.id;
            }
        }
        EXPECT_EQ(shard_of.size(), jobs.size());
        std::reverse(jobs.begin(), jobs.end());
        for (const campaign::task &job : jobs_of_shard(jobs, {1, count})) {
            EXPECT_EQ(shard_of.at(job.id), 1U);
        }
    }
}

TEST_F(in_folder, job_lists_come_back_as_they_were_written)
{
    const campaign::job_book book(PAIRS);
    const std::vector<campaign::task> jobs = jobs_of(book);
    std::ostringstream list;
    write_job_list(list, jobs);
    EXPECT_EQ(ids_of(read_job_list(file("list", list.str()), book)), ids_of(jobs));
}

TEST_F(in_folder, job_lists_that_lack_lines_are_refused)
{
    const campaign::job_book book(PAIRS);
    std::ostringstream list;
    write_job_list(list, control_jobs(book, {"kel_buf_append", "kel_tlv_alloc"}));
    const std::string text = list.str();
    for (std::size_t size = 0; size + 1 < text.size(); size++) {
        const std::string path = file("list", text.substr(0, size));
        EXPECT_NE(complaint_of([&] { read_job_list(path, book); }), "") << size;
    }
}

TEST_F(in_folder, job_lists_say_where_they_are_wrong)
{
    const campaign::job_book book(PAIRS);
    const auto complaint = [&](const std::string &text) {
        return complaint_of([&] { read_job_list(file("list", text), book); });
    };
    EXPECT_THAT(complaint("# 2 jobs\nfaultless kel_buf_append\nnonsense\n"),
                HasSubstr("list:3: no such job: nonsense"));
    EXPECT_THAT(complaint("# 2 jobs\nfaultless kel_buf_append\nfaultless kel_buf_append\n"),
                HasSubstr("list:3: stands there twice: faultless kel_buf_append"));
    EXPECT_THAT(complaint("# 3 jobs\nfaultless kel_buf_append\n"),
                HasSubstr("holds 1 jobs, but begins with \"# 3 jobs\""));
    EXPECT_THAT(complaint_of([&] { read_job_list(folder / "none", book); }),
                HasSubstr("cannot be read"));
}

class command : public in_folder {
protected:
    static tools::process_result campaign(std::vector<std::string> arguments,
                                          std::vector<std::string> environment = {})
    {
        arguments.insert(arguments.begin(), {KEL_CAMPAIGN, "--tavor", TAVOR_BINARY, "--shim",
                                             KELTRACE_LIBRARY, "--pairs", PAIRS, "--quiet"});
        return tools::run_process(
            {.arguments = std::move(arguments), .environment = std::move(environment)});
    }

    std::string path(const std::string &name) const { return folder / name; }
};

TEST_F(command, shards_merge_to_the_table_of_a_whole_run)
{
    const auto whole = campaign({"kel_reg_tag", "kel_send", "--results", path("whole")});
    ASSERT_TRUE(whole.exited_with(0)) << whole.errors;
    EXPECT_THAT(whole.output, HasSubstr(" runs, 0 to be looked at\n"));

    std::vector<std::string> merge = {"kel_reg_tag", "kel_send", "merge"};
    for (const std::string part : {"3/3", "1/3", "2/3"}) {
        merge.push_back(path(part.substr(0, 1)));
        EXPECT_TRUE(
            campaign({"kel_reg_tag", "kel_send", "--shard", part, "--results", merge.back()})
                .exited_with(0));
    }
    const auto merged = campaign(merge);
    EXPECT_TRUE(merged.exited_with(0)) << merged.errors;
    EXPECT_EQ(merged.output, whole.output);
    EXPECT_EQ(merged.errors, "");

    merge.push_back(path("whole"));
    EXPECT_EQ(campaign(merge).output, whole.output) << "everything twice";
}

TEST_F(command, findings_merge_as_they_are_reported)
{
    std::filesystem::create_directory(path("pairs"));
    file("pairs/a.txt",
         "kel_reg_tag_reg_dereg_tag | plain | other text | register_tag#1:error=EIO\n"
         "kel_reg_tag_reg_dereg_tag | plain | no text | - | for no reason\n");
    const auto run = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--pairs", path("pairs"), "kel_reg_tag"});
        arguments.insert(arguments.begin(),
                         {KEL_CAMPAIGN, "--tavor", TAVOR_BINARY, "--shim", KELTRACE_LIBRARY});
        return tools::run_process({.arguments = std::move(arguments)});
    };
    const auto whole = run({"--results", path("whole")});
    EXPECT_TRUE(whole.exited_with(1)) << whole.errors;
    EXPECT_THAT(whole.output, HasSubstr("CAUGHT ELSEWHERE: kel_reg_tag_reg_dereg_tag under "));
    const auto merged = run({"merge", path("whole")});
    EXPECT_TRUE(merged.exited_with(1)) << merged.errors;
    EXPECT_EQ(merged.output, whole.output);
}

TEST_F(command, a_red_suite_ends_shards_and_merge_as_it_ends_a_run)
{
    const std::vector<std::string> red = {"KELTRACE_FAULTS=register_tag#1:error=EIO"};
    const auto whole = campaign({"kel_reg_tag", "--results", path("whole")}, red);
    EXPECT_TRUE(whole.exited_with(1)) << whole.errors;
    EXPECT_THAT(whole.output, testing::EndsWith(" cases are green and leave nothing\n"));
    for (const std::string part : {"1", "2"}) {
        EXPECT_TRUE(campaign({"kel_reg_tag", "--shard", part + "/2", "--results", path(part)}, red)
                        .exited_with(1));
    }
    const auto merged = campaign({"kel_reg_tag", "merge", path("1"), path("2")});
    EXPECT_TRUE(merged.exited_with(1)) << merged.errors;
    EXPECT_EQ(merged.output, whole.output);
    EXPECT_TRUE(campaign({"kel_reg_tag", "merge", path("1")}).exited_with(2));
}

TEST_F(command, each_printed_job_can_be_run_by_a_shell)
{
    const auto jobs = campaign({"kel_reg_tag_is_tag_registered", "jobs", "--results", path("all")});
    ASSERT_TRUE(jobs.exited_with(0)) << jobs.errors;
    const auto shell =
        tools::run_process({.arguments = {"sh", "-e", file("jobs.sh", jobs.output)}});
    ASSERT_TRUE(shell.exited_with(0)) << shell.errors;

    const auto merged = campaign({"kel_reg_tag_is_tag_registered", "merge", path("all")});
    const auto whole = campaign({"kel_reg_tag_is_tag_registered"});
    EXPECT_TRUE(merged.exited_with(0)) << merged.errors;
    EXPECT_EQ(merged.output, whole.output);
}

TEST_F(command, an_exhaustive_campaign_is_run_from_its_list)
{
    const std::vector<std::string> what = {"--exhaustive", "kel_reg_tag_reg_dereg_tag"};
    const auto with = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), what.begin(), what.end());
        return campaign(arguments);
    };
    const auto list = with({"jobs", "--ids"});
    ASSERT_TRUE(list.exited_with(0)) << list.errors;
    const std::string jobs = file("list", list.output);
    const auto whole = with({});
    for (const std::string part : {"1", "2"}) {
        EXPECT_TRUE(with({"--job-list", jobs, "--shard", part + "/2", "--results", path(part)})
                        .exited_with(0));
    }
    const auto merged = with({"--job-list", jobs, "merge", path("1"), path("2")});
    EXPECT_TRUE(merged.exited_with(0)) << merged.errors;
    EXPECT_EQ(merged.output, whole.output);
}

// It waits for two seconds, and the calls behind that must not be missing.
TEST_F(command, a_case_may_wait_longer_than_a_hang)
{
    const auto list = campaign(
        {"--exhaustive", "--timeout", "1", "kel_sendrecv_recv_no_sig_prog_flush", "jobs", "--ids"});
    EXPECT_TRUE(list.exited_with(0)) << list.errors;
    EXPECT_THAT(
        list.output,
        HasSubstr("every kel_sendrecv_recv_no_sig_prog_flush deregister_client#1:error=EIO\n"));
}

TEST_F(command, what_is_incomplete_has_no_table)
{
    const auto part = campaign({"kel_reg_tag", "--shard", "1/2", "--results", path("half")});
    ASSERT_TRUE(part.exited_with(0)) << part.errors;
    const auto merged = campaign({"kel_reg_tag", "merge", path("half")});
    EXPECT_TRUE(merged.exited_with(2));
    EXPECT_EQ(merged.output, "");
    EXPECT_THAT(merged.errors, HasSubstr("\nmissing: "));
    EXPECT_THAT(merged.errors, HasSubstr("\nno table: of "));

    const auto missing = campaign({"kel_reg_tag", "merge", "--missing", path("half")});
    EXPECT_TRUE(missing.exited_with(0));
    const auto other = campaign({"kel_reg_tag", "--shard", "2/2", "jobs", "--ids"});
    EXPECT_EQ(missing.output, other.output.substr(other.output.find('\n') + 1));

    const auto foreign = campaign({"kel_send", "merge", path("half")});
    EXPECT_TRUE(foreign.exited_with(2));
    EXPECT_THAT(foreign.errors, HasSubstr("half:1: no job of this campaign: "));
}

TEST_F(command, bad_ids_run_nothing)
{
    const auto ran = campaign({"run-jobs", "faultless kel_reg_tag_reg_dereg_tag", "nonsense"});
    EXPECT_TRUE(ran.exited_with(3));
    EXPECT_EQ(ran.output, "");
    EXPECT_THAT(ran.errors, HasSubstr("no such job: nonsense"));
}

} // namespace

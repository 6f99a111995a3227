// SPDX-License-Identifier: MIT
//
// tavor-run diagnose as it is typed: reports and logs, exit statuses, what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tests/support/tavor.h"

namespace {

using testing::HasSubstr;

tools::process_result tavor_run(const std::vector<std::string> &words,
                                const std::vector<std::string> &environment = {})
{
    return support::run(TAVOR_RUN, words, environment);
}

class diagnose_command : public testing::Test {
protected:
    void write(const std::string &text) const { std::ofstream(path, std::ios::binary) << text; }

    const support::scratch_folder scratch;
    const std::string path = scratch.file("told");
};

const std::vector<std::string> TO_OLDEST = {"KEL_REFERENCE_FAULTS=send#1+:to_oldest"};

TEST_F(diagnose_command, names_the_fault_of_a_report_and_of_a_log)
{
    const auto run = tavor_run(
        {"--last", "/dev/null", "--trace", "0", "--out", "jsonl:" + path, "kel_role", "kel_send"},
        TO_OLDEST);
    ASSERT_TRUE(run.exited_with(1)) << run.errors;
    const auto of_report = tavor_run({"diagnose", path});
    EXPECT_TRUE(of_report.exited_with(1)) << of_report.errors;
    EXPECT_THAT(of_report.output, HasSubstr("1 of 230 known faults explains all of it\n"
                                            "  send:to_oldest  packets go to the client"));

    write(support::run_tavor({"kel_role", "kel_send"}, {.environment = TO_OLDEST}).output);
    const auto of_log = tavor_run({"diagnose", "--json", path});
    EXPECT_TRUE(of_log.exited_with(1)) << of_log.errors;
    const auto object = nlohmann::json::parse(of_log.output);
    EXPECT_EQ(object.at("failed"), 1);
    EXPECT_EQ(object.at("faults").at(0).at(0).at("fault"), "send:to_oldest");
}

// The case ends alike with both faults that it could be; which call differs tells them apart.
TEST_F(diagnose_command, goes_by_explanations)
{
    const std::vector<std::string> wraps = {"KEL_REFERENCE_FAULTS=trim_head#1+:wraps_offsets"};
    write(support::run_tavor({"kel_packet"}, {.environment = wraps}).output);
    const auto of_log = tavor_run({"diagnose", path});
    EXPECT_THAT(of_log.output, HasSubstr("explain kel_packet_trim_head to tell them apart\n"));

    const std::string explained = path + ".json";
    std::ofstream(explained)
        << tavor_run({"explain", "--json", "kel_packet_trim_head"}, wraps).output;
    const auto of_both = tavor_run({"diagnose", path, explained});
    EXPECT_THAT(of_both.output, HasSubstr("1 of 230 known faults explains all of it\n"
                                          "  trim_head:wraps_offsets"));

    const std::string report = path + ".jsonl";
    tavor_run({"--last", "/dev/null", "--out", "jsonl:" + report, "kel_packet"}, wraps);
    EXPECT_THAT(tavor_run({"diagnose", report}).output,
                HasSubstr("1 of 230 known faults explains all of it\n"
                          "  trim_head:wraps_offsets"));
}

TEST_F(diagnose_command, has_nothing_to_find_in_a_good_log)
{
    write(support::run_tavor({"kel_role", "kel_send"}).output);
    const auto said = tavor_run({"diagnose", path});
    EXPECT_TRUE(said.exited_with(0)) << said.errors;
    EXPECT_THAT(said.output, HasSubstr("0 failed"));
}

TEST_F(diagnose_command, ranks_operations_of_a_failure_that_it_does_not_know)
{
    // A library may be wrong in a way that no fault of the reference library has.
    write(support::run_tavor({"kel_packet"}, {.faults = "trim_head#1+:error=EIO"}).output);
    const auto said = tavor_run({"diagnose", path});
    EXPECT_TRUE(said.exited_with(1));
    EXPECT_THAT(said.output, HasSubstr("no known fault alone explains all of it"));
    const std::size_t first = said.output.find("suspicious first\n");
    EXPECT_THAT(said.output.substr(first, 80), HasSubstr(" trim_head "));
}

TEST_F(diagnose_command, refuses_what_it_cannot_read)
{
    EXPECT_TRUE(tavor_run({"diagnose"}).exited_with(3));
    EXPECT_TRUE(tavor_run({"diagnose", "/no/such/file"}).exited_with(3));
    EXPECT_TRUE(tavor_run({"diagnose", "/"}).exited_with(3));
    write("nothing of the kind\n");
    EXPECT_THAT(tavor_run({"diagnose", path}).errors, HasSubstr("it tells of no case"));
    write("{\"type\": \"case\"}\n");
    EXPECT_THAT(tavor_run({"diagnose", path}).errors, HasSubstr(":1: no line of results"));
    EXPECT_TRUE(tavor_run({"diagnose", "--table", path, path}).exited_with(3));
}

TEST_F(diagnose_command, says_when_standard_output_is_full)
{
    write(support::run_tavor({"kel_role"}, {.environment = TO_OLDEST}).output);
    const auto said = tools::run_process(
        {.arguments = {"sh", "-c", "exec " TAVOR_RUN " diagnose " + path + " >/dev/full"}});
    EXPECT_TRUE(said.exited_with(3));
    EXPECT_THAT(said.errors, HasSubstr("cannot write to standard output"));
}

} // namespace

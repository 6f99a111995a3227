// SPDX-License-Identifier: MIT
//
// tavor-run explain and reproduce: the call, its number, the place of the check, the sentence of
// the contract.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/sequence/recording.h"
#include "tests/support/scratch.h"
#include "tests/support/tavor.h"
#include "tools/common/registry.h"
#include "tools/explain/checks.h"
#include "tools/explain/clauses.h"
#include "tools/sequence/schema.h"

namespace {

using testing::HasSubstr;

tools::process_result tavor_run(const std::vector<std::string> &words,
                                const std::vector<std::string> &environment = {})
{
    return support::run(TAVOR_RUN, words, environment);
}

const std::vector<std::string> KEEPS_OFFSETS = {"KEL_REFERENCE_FAULTS=trim_head#1+:keeps_offsets"};

TEST(explain, names_the_call_and_the_one_that_had_no_effect)
{
    const auto said = tavor_run({"explain", "kel_packet_trim_head"}, KEEPS_OFFSETS);
    EXPECT_TRUE(said.exited_with(1)) << said.errors;
    EXPECT_THAT(said.output,
                HasSubstr("kel_packet_trim_head: fail: trim_head wrong OFFSET_NETWORK"));
    EXPECT_THAT(said.output, HasSubstr("first call that differs: the 1st get_offset\n"
                                       "  9 get_offset(packet1, OFFSET_NETWORK)\n"
                                       "  offset: expected 0, got 64\n"));
    EXPECT_THAT(said.output, HasSubstr("the answer is what it would be without\n"
                                       "  7 trim_head(packet1, 128) -> 0\n"));
    EXPECT_THAT(said.output, HasSubstr("kel_trim_head, kelapi/packet.h: Removes `size` bytes"));
}

TEST(explain, is_one_object_for_programs)
{
    const auto said = tavor_run({"explain", "--json", "kel_packet_trim_head"}, KEEPS_OFFSETS);
    const auto object = nlohmann::json::parse(said.output);
    EXPECT_EQ(object.at("case"), "kel_packet_trim_head");
    EXPECT_EQ(object.at("verdict"), "fail");
    EXPECT_EQ(object.at("check").at("file"), "suites/packet.cpp");
    EXPECT_EQ(object.at("difference").at("operation"), "get_offset");
    EXPECT_EQ(object.at("difference").at("n"), 1);
    EXPECT_EQ(object.at("difference").at("expected"), "offset=0");
    EXPECT_EQ(object.at("difference").at("got"), "offset=64");
    EXPECT_EQ(object.at("profile"), nlohmann::json::array());
}

TEST(explain, names_the_call_that_floods)
{
    const auto said = tavor_run({"explain", "kel_packet_append"}, {"LD_PRELOAD=" FLOODING_CALL});
    EXPECT_TRUE(said.exited_with(1)) << said.errors;
    EXPECT_THAT(said.output, HasSubstr("kel_packet_append: flood\n"));
    EXPECT_THAT(said.output, HasSubstr("first call that differs: the 1st get_length\n"));
    EXPECT_THAT(said.output, HasSubstr(", got flood\n"));
}

TEST(explain, says_when_no_call_differs)
{
    const auto right = tavor_run({"explain", "--json", "kel_packet_trim_head"});
    EXPECT_TRUE(right.exited_with(0));
    EXPECT_TRUE(nlohmann::json::parse(right.output).at("difference").is_null());
    // The program's own malloc is no call of the library.
    const auto own =
        tavor_run({"explain", "kel_packet_trim_head"}, {"KELTRACE_FAULTS=calloc#1:fail"});
    EXPECT_THAT(own.output, HasSubstr("a finding about tavor"));
}

TEST(explain, reads_what_came_back_from_a_device)
{
    const support::scratch_folder scratch;
    const std::string path = scratch.file("device.seq");
    std::ofstream(path) << support::recorded_text("kel_packet_trim_head", KEEPS_OFFSETS);
    const auto said = tavor_run({"explain", "kel_packet_trim_head", "--recording", path});
    EXPECT_TRUE(said.exited_with(1));
    EXPECT_THAT(said.output, HasSubstr("offset: expected 0, got 64\n"));
}

// Recorded where numbers have their highest byte first; one with numbers in a record's bytes.
TEST(explain, reads_what_came_back_from_another_machine)
{
    const std::string folder = TAVOR_SOURCE_DIR "/tests/sequence/data/";
    const auto said = tavor_run(
        {"explain", "kel_packet_trim_head", "--recording", folder + "powerpc_trim_head.seq"});
    EXPECT_TRUE(said.exited_with(1)) << said.errors;
    EXPECT_THAT(said.output, HasSubstr("first call that differs: the 1st get_offset\n"));
    EXPECT_THAT(said.output, HasSubstr("offset: expected 0, got 64\n"));
    const auto right = tavor_run(
        {"explain", "kel_region_invalid_get_info", "--recording", folder + "s390x_region.seq"});
    EXPECT_TRUE(right.exited_with(0)) << right.errors;
    EXPECT_THAT(right.output, HasSubstr("no call differs from the contract\n"));
    std::ifstream stored(folder + "s390x_region.seq");
    const std::string text{std::istreambuf_iterator<char>(stored), {}};
    const std::string here = support::recorded_text("kel_region_invalid_get_info");
    EXPECT_EQ(text.substr(text.find('\n')), here.substr(here.find('\n')));
}

TEST(explain, refuses_what_is_no_case_or_no_recording)
{
    EXPECT_TRUE(tavor_run({"explain", "no_such_case"}).exited_with(3));
    EXPECT_TRUE(
        tavor_run({"explain", "kel_buf_append", "--recording", "/dev/null"}).exited_with(3));
}

TEST(run, names_the_call_after_a_fail)
{
    const auto said = tavor_run({"--last", "/dev/null", "kel_packet_trim_head"}, KEEPS_OFFSETS);
    EXPECT_THAT(said.output, HasSubstr("  first call that differs: the 1st get_offset\n"));
    EXPECT_THAT(said.output, HasSubstr("offset: expected 0, got 64\n"));
}

TEST(reproduce, writes_the_program)
{
    const support::scratch_folder scratch;
    const std::string path = scratch.file("reproduced.c");
    const auto said = tavor_run({"reproduce", "kel_packet_trim_head", "-o", path}, KEEPS_OFFSETS);
    EXPECT_TRUE(said.exited_with(1)) << said.errors;
    EXPECT_THAT(said.output, HasSubstr("5 calls\noffset: expected 0, got 64\n"));
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(contract, has_a_clause_for_each_operation_and_a_place_for_each_case)
{
    for (const auto &each : sequence::operations()) {
        EXPECT_NE(explain::clause_of(each.function).empty(), !each.is_system()) << each.name;
    }
    for (const auto &each : tools::all_cases()) {
        EXPECT_NE(explain::place_of_case(each.name).file, "") << each.name;
    }
    EXPECT_EQ(explain::place_of_check("kel_reg_tag_invalid_tag", "msg='x' line=204").line, 204);
}

} // namespace

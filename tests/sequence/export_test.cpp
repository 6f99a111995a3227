// SPDX-License-Identifier: MIT
//
// kel-sequence export: sequences as cases in tavor's form, which compile within its sources.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/sequence/recording.h"
#include "tests/support/scratch.h"
#include "tests/support/tavor.h"

namespace {

using support::run;
using testing::HasSubstr;
namespace fs = std::filesystem;

// The last one was recorded with a wrong library; what the case asks for is right all the same.
struct recorded_case {
    const char *name;
    const char *faults;
    const char *check;
};

void PrintTo(const recorded_case &printed, std::ostream *stream)
{
    *stream << printed.name;
}

class exported_case : public testing::TestWithParam<recorded_case> {
protected:
    exported_case()
    {
        std::ofstream(sequence) << support::recorded_text(
            GetParam().name, {std::string("KEL_REFERENCE_FAULTS=") + GetParam().faults});
    }

    static std::string name() { return GetParam().name; }

    const support::scratch_folder scratch;
    const std::string sequence = scratch.file("exported.seq");
    const std::string source = scratch.file("exported.cpp");
};

TEST_P(exported_case, compiles_within_tavor_and_checks_what_the_contract_asks)
{
    const auto made = run(KEL_SEQUENCE, {"export", "--case", name(), sequence, "-o", source});
    ASSERT_TRUE(made.exited_with(0)) << made.errors;
    std::ifstream file(source);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(text, HasSubstr("\nCASE(kel_"));
    EXPECT_THAT(text, HasSubstr(GetParam().check));
    const auto compiled = run(CXX_COMPILER, {"-std=c++20", "-I" TAVOR_SOURCE_DIR, "-Wall",
                                             "-Wextra", "-Werror", "-fsyntax-only", source});
    EXPECT_TRUE(compiled.exited_with(0)) << compiled.errors;
}

INSTANTIATE_TEST_SUITE_P(
    cases, exported_case,
    testing::Values(
        recorded_case{"kel_packet_trim_head", "trim_head#1+:keeps_offsets",
                      "if (offset != 0) return \"kel_get_offset wrong offset\";"},
        recorded_case{"kel_free_buf_free2", "",
                      "if (result != EPERM) return \"kel_free_buffer wrong result\";"},
        recorded_case{"kel_tlv_setdata", "", "if (memcmp(expected_destination, destination, "},
        recorded_case{"kel_bufgroup_threshold_test", "", "KEL_HIGH_THRESHOLD_REACHED"}));

class export_command : public testing::Test {
protected:
    export_command()
    {
        std::ofstream(path) << "sequence version=1 library=\"x\" program=\"y\"\n"
                               "client1 = register_client(\"c\", ALWAYS, 8)\n"
                               "@2 deregister_client(client1)\n";
    }

    const support::scratch_folder scratch;
    const std::string path = scratch.file("exported.seq");
};

TEST_F(export_command, knows_the_suites_of_tavor_more)
{
    std::ofstream(path) << "sequence version=1 library=\"x\" program=\"y\"\n"
                           "client1 = register_client(\"c\", ALWAYS, 8)\n"
                           "deregister_client(client1)\n";
    const auto made = run(KEL_SEQUENCE, {"export", "--case", "kel_more_send_mine", path});
    EXPECT_TRUE(made.exited_with(0)) << made.errors;
    EXPECT_THAT(made.output, HasSubstr("\nCASE(kel_more_send, mine, "));
}

TEST_F(export_command, refuses_cases_with_threads_and_names_that_are_none)
{
    const auto threads = run(KEL_SEQUENCE, {"export", "--case", "kel_packet_mine", path});
    EXPECT_TRUE(threads.exited_with(2));
    EXPECT_THAT(threads.errors, HasSubstr("no case of calls in threads"));
    for (const char *const name : {"mine", "kel_packet_", "kel_packet_a b", "kel_nothing_mine"}) {
        const auto refused = run(KEL_SEQUENCE, {"export", "--case", name, path});
        EXPECT_TRUE(refused.exited_with(2));
        EXPECT_THAT(refused.errors, HasSubstr("no name for a case")) << name;
    }
    EXPECT_TRUE(run(KEL_SEQUENCE, {"export", path}).exited_with(2));
    EXPECT_TRUE(
        run(KEL_SEQUENCE, {"export", "--c", "--case", "kel_packet_mine", path}).exited_with(2));
}

TEST_F(export_command, says_when_standard_output_is_full)
{
    const auto refused = run("sh", {"-c", "exec " KEL_SEQUENCE " show " + path + " >/dev/full"});
    EXPECT_TRUE(refused.exited_with(2)) << refused.exit_status;
}

} // namespace

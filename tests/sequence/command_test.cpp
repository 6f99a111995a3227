// SPDX-License-Identifier: MIT
//
// kel-sequence as it is typed: verbs, files, parts and exit statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/sequence/recording.h"
#include "tests/support/scratch.h"
#include "tests/support/tavor.h"

namespace {

using testing::HasSubstr;

tools::process_result kel_sequence(const std::vector<std::string> &words,
                                   const std::vector<std::string> &environment = {})
{
    return support::run(KEL_SEQUENCE, words, environment);
}

class kel_sequence_command : public testing::Test {
protected:
    kel_sequence_command()
    {
        text = support::recorded_text("kel_packet_trim_head");
        std::ofstream(path) << text;
    }

    const support::scratch_folder scratch;
    const std::string path = scratch.file("recorded.seq");
    std::string text;
};

TEST_F(kel_sequence_command, shows_a_file_and_parts_of_it)
{
    EXPECT_EQ(kel_sequence({"show", path}).output, text);
    const auto part = kel_sequence({"show", path, "--calls", "0-1", "--no-answers"});
    EXPECT_TRUE(part.exited_with(0));
    EXPECT_THAT(part.output,
                testing::EndsWith("nocrash_set()\n"
                                  "client1 = register_client(\"test client\", ALWAYS, 32)\n"));
}

TEST_F(kel_sequence_command, makes_the_calls_again)
{
    const auto run = kel_sequence({"run", path});
    EXPECT_TRUE(run.exited_with(0));
    EXPECT_EQ(run.output.substr(run.output.find('\n')), text.substr(text.find('\n')));
}

TEST_F(kel_sequence_command, says_by_its_status_whether_there_is_a_difference)
{
    const std::vector<std::string> wrong = {"KEL_REFERENCE_FAULTS=trim_head#1+:keeps_offsets"};
    EXPECT_TRUE(kel_sequence({"diff", path}).exited_with(0));
    EXPECT_TRUE(kel_sequence({"diff", path, "--lib", KEL_REFERENCE_LIBRARY}).exited_with(0));
    const auto found = kel_sequence({"diff", path, "--lib", KEL_REFERENCE_LIBRARY}, wrong);
    EXPECT_TRUE(found.exited_with(1));
    EXPECT_THAT(found.output, HasSubstr("call 9 differs: get_offset(packet1, OFFSET_NETWORK)\n"
                                        "offset: expected 0, got 64\n"));
    EXPECT_THAT(
        found.output,
        HasSubstr("not compared: nocrash_set's result, 1 time: the result means nothing\n"));
    EXPECT_TRUE(
        kel_sequence({"diff", path, "--lib", KEL_REFERENCE_LIBRARY, "--lib", KEL_REFERENCE_LIBRARY})
            .exited_with(0));
}

TEST_F(kel_sequence_command, has_a_flood_as_an_answer)
{
    std::ofstream(path) << "sequence version=1 library=\"\" program=\"\"\nget_length(1)\n";
    const auto run = kel_sequence({"run", path, "--lib", FLOODING_LIBRARY});
    EXPECT_TRUE(run.exited_with(1)) << run.errors;
    EXPECT_THAT(run.output, testing::EndsWith("get_length(0x1) -> flood\n"));
    const auto found = kel_sequence({"diff", path, "--lib", FLOODING_LIBRARY});
    EXPECT_TRUE(found.exited_with(1)) << found.errors;
    EXPECT_THAT(found.output, HasSubstr("expected 0, got flood\n"));
}

TEST_F(kel_sequence_command, refuses_what_it_cannot_do)
{
    std::ofstream(path, std::ios::app) << "recv(";
    for (const std::vector<std::string> &words :
         std::vector<std::vector<std::string>>{{"show", path},
                                               {"show", "/no/such/file"},
                                               {"show", "/"},
                                               {"nonsense", path},
                                               {},
                                               {"diff", "/dev/null"},
                                               {"run", path, "--lib", "/no/such/library"}}) {
        const auto refused = kel_sequence(words);
        EXPECT_TRUE(refused.exited_with(2)) << testing::PrintToString(words);
    }
    EXPECT_THAT(kel_sequence({"show", path}).errors,
                HasSubstr(path + ":20:6: the last line is cut off"));
}

TEST_F(kel_sequence_command, refuses_parts_that_are_none)
{
    for (const char *const list : {"7-3", "99", "x", "1,", "-"}) {
        EXPECT_TRUE(kel_sequence({"show", path, "--calls", list}).exited_with(2)) << list;
    }
    EXPECT_THAT(kel_sequence({"show", path, "--calls", "3"}).errors,
                HasSubstr("the calls need packet1"));
}

} // namespace

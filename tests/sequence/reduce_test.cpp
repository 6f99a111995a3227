// SPDX-License-Identifier: MIT
//
// Reduced sequences show the same difference, none of their calls can be left out, and the programs
// made of them compile without warnings and say the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/sequence/recording.h"
#include "tests/support/scratch.h"
#include "tests/support/tavor.h"
#include "tools/sequence/dependencies.h"
#include "tools/sequence/export_c.h"
#include "tools/sequence/parser.h"
#include "tools/sequence/printer.h"
#include "tools/sequence/reduction.h"
#include "tools/sequence/report.h"

namespace {

using namespace sequence;
using support::run;
namespace fs = std::filesystem;

struct wrong_library {
    const char *case_name;
    const char *fault;
};

void PrintTo(const wrong_library &printed, std::ostream *stream)
{
    *stream << printed.fault;
}

class reduced_case : public testing::TestWithParam<wrong_library> {
protected:
    reduced_case()
        : setting(std::string("KEL_REFERENCE_FAULTS=") + GetParam().fault),
          how{{KEL_REFERENCE_LIBRARY, {setting}}, KEL_REFERENCE_LIBRARY}
    {
        const call_sequence made = support::recorded(GetParam().case_name, {setting});
        const verdict judged = judge(made, KEL_REFERENCE_LIBRARY);
        if (!judged.finding) return;
        shown = *judged.finding;
        smallest = reduce(made, shown, how);
    }

    std::string setting;
    reduction_setup how;
    finding shown;
    std::optional<reduced> smallest;
};

// Whether the library answers the last call as it did, and all before it rightly.
bool still_shows(const call_sequence &made, const finding &shown, const reduction_setup &how)
{
    const auto both = run_all(made, {{how.tested}, {reference_setup(how.reference, {})}});
    const std::size_t last = made.calls.size() - 1;
    if (made.calls.empty() || both[0].size() != made.calls.size()) return false;
    for (std::size_t i = 0; i < last; i++) {
        if (compare(made.calls[i], both[1][i], both[0][i], made.variables)) return false;
    }
    return compare(made.calls[last], both[1][last], both[0][last], made.variables) ==
           shown.difference;
}

TEST_P(reduced_case, shows_the_same_difference_with_no_call_to_spare)
{
    ASSERT_TRUE(smallest);
    const call_sequence &made = smallest->made;
    ASSERT_FALSE(made.calls.empty());
    EXPECT_LE(made.calls.size(), 12U) << to_text(made, printed::calls);
    for (int i = 0; i < 10; i++) EXPECT_TRUE(still_shows(made, shown, how));
    for (std::size_t i = 0; i + 1 < made.calls.size(); i++) {
        std::vector<bool> kept(made.calls.size(), true);
        kept[i] = false;
        kept = closed(made, kept);
        EXPECT_FALSE(kept.back() && still_shows(selection(made, kept), shown, how)) << i;
    }
}

// The path of the program; empty where it does not compile without a warning.
std::string program_of(const call_sequence &made, const support::scratch_folder &scratch)
{
    const std::string folder = fs::path(KEL_REFERENCE_LIBRARY).parent_path();
    const std::string program = scratch.file("reduced");
    std::ofstream(program + ".c") << to_c(made);
    const auto compiled =
        run(C_COMPILER,
            {"-std=c11", "-Wall", "-Wextra", "-Werror", "-I" TAVOR_SOURCE_DIR, program + ".c", "-o",
             program, "-L" + folder, "-lkel", "-lpthread", "-Wl,-rpath," + folder});
    EXPECT_TRUE(compiled.exited_with(0)) << compiled.errors;
    return compiled.exited_with(0) ? program : "";
}

TEST_P(reduced_case, becomes_a_program_with_the_same_verdict)
{
    ASSERT_TRUE(smallest);
    const support::scratch_folder scratch;
    const std::string program = program_of(smallest->made, scratch);
    EXPECT_TRUE(run(program, {}, {setting}).exited_with(1));
    const auto right = run(program, {});
    EXPECT_TRUE(right.exited_with(0)) << right.output;
}

// Memory that nobody has written holds what the library likes, in the tested one and in others.
TEST(reduced_data, is_held_to_what_was_written)
{
    const std::string filled = "KEL_REFERENCE_OPTIONS=unwritten_byte=165";
    const std::string wrong = "KEL_REFERENCE_FAULTS=set_data#1+:first_buffer_only";
    const library_setup tested{KEL_REFERENCE_LIBRARY, {filled, wrong}};
    auto made = from_text("sequence version=1 library=\"x\" program=\"y\"\n"
                          "client1 = register_client(\"c\", ACTIVE, 4)\n"
                          "packet1 = get_packet(client1, 0, 20000, 0)\n"
                          "set_data(packet1, OFFSET_DATA, 64, pattern(1, 19000), 19000)\n"
                          "get_data(packet1, OFFSET_DATA, 0, 20000)\n");
    made.answers = run_one(made, {tested});
    const verdict judged = judge(made, KEL_REFERENCE_LIBRARY);
    ASSERT_TRUE(judged.finding);
    EXPECT_EQ(judged.finding->call, 3U);
    const auto smallest =
        reduce(made, *judged.finding, {tested, KEL_REFERENCE_LIBRARY, judged.profile.front()});
    ASSERT_TRUE(smallest);
    const support::scratch_folder scratch;
    const std::string program = program_of(smallest->made, scratch);
    EXPECT_TRUE(run(program, {}, {wrong}).exited_with(1));
    for (const char *const byte : {"0", "90", "165"}) {
        const auto right =
            run(program, {}, {std::string("KEL_REFERENCE_OPTIONS=unwritten_byte=") + byte});
        EXPECT_TRUE(right.exited_with(0)) << right.output;
    }
}

// Whether the call returns is all that there is to see.
TEST(exported_hang, is_right_where_the_contract_has_one)
{
    const std::string start = "sequence version=1 library=\"x\" program=\"y\"\n"
                              "client1 = register_client(\"c\", ACTIVE, 4) -> 0, client=client1\n";
    const support::scratch_folder scratch;
    const auto endless = from_text(start + "event_wait(client1, null) -> hang\n");
    EXPECT_TRUE(run(program_of(endless, scratch), {}).exited_with(0));
    const auto polled = from_text(start + "event_wait(client1, {}) -> hang\n");
    const auto returned = run(program_of(polled, scratch), {});
    EXPECT_TRUE(returned.exited_with(1));
    EXPECT_NE(returned.output.find("expected hang, got a return"), std::string::npos);
}

// The wait of another thread's making: what would end it belongs to the difference.
TEST(reduced_wait, keeps_the_calls_that_end_it)
{
    const std::string setting = "KEL_REFERENCE_FAULTS=event_clear#1+:does_not_wake";
    call_sequence made =
        from_text("sequence version=1 library=\"x\" program=\"y\"\n"
                  "nocrash_set() -> 0\n"
                  "client1 = register_client(\"c\", ACTIVE, 4) -> 0, client=client1\n"
                  "client2 = register_client(\"d\", ACTIVE, 4) -> 0, client=client2\n"
                  "event_wait(client1, null) ...\n"
                  "@2 event_clear(client1) -> 0\n"
                  "@2 event_clear(client2) -> 0\n");
    const verdict judged = judge(made, KEL_REFERENCE_LIBRARY);
    ASSERT_TRUE(judged.finding);
    EXPECT_EQ(judged.finding->difference.expected, "EINTR");
    EXPECT_EQ(judged.finding->difference.got, "not returned");
    const auto smallest =
        reduce(made, *judged.finding,
               {{KEL_REFERENCE_LIBRARY, {setting}}, KEL_REFERENCE_LIBRARY, {}, {}, 2});
    ASSERT_TRUE(smallest);
    EXPECT_EQ(smallest->made.calls.size(), 3U) << to_text(smallest->made, printed::calls);
    EXPECT_EQ(smallest->finding.call, 1U);
}

INSTANTIATE_TEST_SUITE_P(
    faults, reduced_case,
    testing::Values(wrong_library{"kel_packet_trim_head", "trim_head#1+:keeps_offsets"},
                    wrong_library{"kel_reg_tag_invalid_tag", "register_tag#1+:accepts_zero"},
                    wrong_library{"kel_buf_trim_head", "buf_trim_head#1+:other_end"},
                    wrong_library{"kel_role_basic", "send#1+:to_oldest"}));

} // namespace

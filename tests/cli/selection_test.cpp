// SPDX-License-Identifier: MIT
//
// Which cases tavor-run takes, and in which order.
#include "tests/support/scratch.h"
#include "tools/tavor-run/run/selection.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <numeric>

#include "tools/common/registry.h"

namespace {

using namespace tavor_run;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

std::vector<std::string> names_of(const std::vector<int> &rows)
{
    std::vector<std::string> names;
    for (const int row : rows) {
        names.emplace_back(tools::all_cases()[static_cast<std::size_t>(row)].name);
    }
    return names;
}

std::vector<int> every_row()
{
    std::vector<int> rows(tools::all_cases().size());
    std::iota(rows.begin(), rows.end(), 0);
    return rows;
}

TEST(selection, nothing_said_is_everything)
{
    EXPECT_EQ(select_cases({}), every_row());
}

TEST(selection, cases_suites_globs_and_numbers)
{
    EXPECT_THAT(names_of(select_cases({"kel_packet_append"})), ElementsAre("kel_packet_append"));
    EXPECT_THAT(select_cases({"kel_role"}), ElementsAre(392, 393));
    EXPECT_THAT(select_cases({"12", "3-5", "4"}), ElementsAre(3, 4, 5, 12));
    EXPECT_THAT(names_of(select_cases({"kel_tlv_*"})), Each(StartsWith("kel_tlv_")));
    EXPECT_THAT(select_cases({"kel_tlv*"}), SizeIs(49));
    EXPECT_THAT(select_cases({"kel_send"}), SizeIs(3));
    EXPECT_THAT(select_cases({"kel_s[e]n?"}), SizeIs(3));
}

TEST(selection, an_exclamation_mark_takes_away)
{
    EXPECT_THAT(select_cases({"!12", "10-14", "!kel_tlv"}), ElementsAre(10, 11, 13, 14));
    EXPECT_THAT(select_cases({"!kel_tlv"}), SizeIs(tools::all_cases().size() - 49));
}

TEST(selection, a_file_holds_terms)
{
    const support::scratch_folder scratch;
    const std::string path = scratch.file("terms");
    std::ofstream(path) << "# the roles\nkel_role  7 # and one more\n\n!393\n";
    EXPECT_THAT(select_cases({"@" + path}), ElementsAre(7, 392));
    EXPECT_THAT(select_cases({"390-393", "!@" + path}), ElementsAre(390, 391, 393));
    std::ofstream(path) << "@" + path;
    EXPECT_THROW(select_cases({"@" + path}), usage_error);
}

TEST(selection, what_means_nothing_is_an_error)
{
    const std::string beyond = std::to_string(tools::all_cases().size());
    for (const std::string &term :
         {std::string("kel_nothing"), std::string("nothing*"), beyond, std::string("5-3"),
          "0-" + beyond, std::string(), std::string("!nobody"), std::string("@/nowhere/terms"),
          std::string("99999999999"), std::string("KEL_ROLE")}) {
        EXPECT_THROW(select_cases({term}), usage_error) << term;
    }
    EXPECT_THROW(select_cases({"kel_role", "!kel_role"}), usage_error);
}

TEST(selection, shards_are_a_partition)
{
    const std::vector<int> rows = select_cases({"!kel_corrupt"});
    for (const unsigned shards : {1U, 2U, 7U, 449U}) {
        std::vector<int> all;
        for (unsigned index = 1; index <= shards; index++) {
            const std::vector<int> part = rows_of_shard(rows, {index, shards});
            EXPECT_GE(part.size() + 1, (rows.size() + shards - 1) / shards);
            all.insert(all.end(), part.begin(), part.end());
        }
        std::sort(all.begin(), all.end());
        EXPECT_EQ(all, rows);
    }
    EXPECT_THROW(rows_of_shard({1, 2}, {3, 3}), usage_error);
}

TEST(selection, shards_are_written_as_index_and_count)
{
    EXPECT_EQ(parse_shard("2/5").index, 2U);
    EXPECT_EQ(parse_shard("2/5").count, 5U);
    for (const std::string text : {"0/5", "6/5", "1", "1/", "/2", "a/b", "1/0", "-1/2"}) {
        EXPECT_THROW(parse_shard(text), usage_error) << text;
    }
}

TEST(selection, a_shuffle_is_stable_under_subsets)
{
    const std::vector<int> all = shuffled(every_row(), 42);
    EXPECT_NE(all, every_row());
    EXPECT_NE(all, shuffled(every_row(), 43));
    std::vector<int> expected;
    std::copy_if(all.begin(), all.end(), std::back_inserter(expected),
                 [](int row) { return row % 3 == 0; });
    std::vector<int> subset = expected;
    std::sort(subset.begin(), subset.end());
    EXPECT_EQ(shuffled(subset, 42), expected);
}

TEST(selection, a_seed_means_the_same_everywhere)
{
    EXPECT_THAT(shuffled({0, 1, 2, 3, 4, 5}, 1), ElementsAre(2, 3, 1, 4, 0, 5));
}

TEST(selection, groups_ascend)
{
    EXPECT_THAT(ascending_groups({3, 5, 4, 1, 2, 9}),
                ElementsAre(ElementsAre(3, 5), ElementsAre(4), ElementsAre(1, 2, 9)));
    EXPECT_THAT(ascending_groups({}), IsEmpty());
    EXPECT_THAT(ascending_groups(every_row()), SizeIs(1));
}

TEST(selection, names_select_these_rows_and_no_others)
{
    EXPECT_THAT(names_selecting(every_row()), IsEmpty());
    EXPECT_THAT(names_selecting(select_cases({"kel_role", "394"})),
                ElementsAre("kel_role", names_of({394})[0]));
    EXPECT_EQ(select_cases(names_selecting(select_cases({"kel_packet", "350-360"}))),
              select_cases({"kel_packet", "350-360"}));
}

} // namespace

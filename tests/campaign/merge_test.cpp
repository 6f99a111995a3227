// SPDX-License-Identifier: MIT
//
// Merging records: whatever becomes of them on their way, the result is right or says what is
// wrong, and never another table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "tests/support/scratch.h"
#include "tools/campaign/merge.h"

namespace {

using campaign::outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const campaign::subject SUBJECT{"build", "library"};

campaign::task task_of(const std::string &test)
{
    campaign::task made;
    made.id = "every " + test + " append#1:lost";
    made.what = {test, "append#1:lost"};
    return made;
}

const std::vector<campaign::task> TASKS = {
    task_of("kel_buf_append"),
    task_of("kel_packet_append"),
    task_of("kel_tlv_alloc"),
};

std::string line_of(const campaign::task &done, outcome reached,
                    const campaign::subject &of = SUBJECT, const std::string &shown = "")
{
    campaign::result made;
    made.id = done.id;
    made.test = done.what.test;
    made.reached = reached;
    made.shown = shown;
    made.repeat = "elsewhere/tavor " + done.what.test;
    return record_line(made, of);
}

class merging : public testing::Test {
protected:
    merging() { where.tavor = "here/tavor"; }

    std::string file(const std::string &name, const std::string &text) const
    {
        std::string path = folder / name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    campaign::merged merge(const std::vector<std::string> &files,
                           const campaign::subject &expected = SUBJECT) const
    {
        campaign::record_list list;
        for (const std::string &path : files) {
            read_records(path, list);
        }
        return merge_records(where, TASKS, expected, list);
    }

    const support::scratch_folder scratch;
    const std::filesystem::path folder = scratch.path();
    campaign::setting where;
};

std::string table_of(const campaign::merged &merged)
{
    std::ostringstream table;
    print_table(table, merged.results);
    return table.str();
}

std::string gaps_of(const campaign::merged &merged)
{
    std::ostringstream gaps;
    print_gaps(gaps, merged, TASKS.size());
    return gaps.str();
}

const std::string WHOLE = line_of(TASKS[0], outcome::caught) + line_of(TASKS[1], outcome::missed) +
                          line_of(TASKS[2], outcome::crash);

TEST_F(merging, takes_what_was_seen_and_how_to_repeat_it_here)
{
    const campaign::merged merged = merge({file("a", WHOLE)});
    ASSERT_TRUE(merged.is_whole());
    ASSERT_EQ(merged.results.size(), 3U);
    EXPECT_EQ(merged.results[1].reached, outcome::missed);
    EXPECT_EQ(merged.results[1].test, "kel_packet_append");
    EXPECT_THAT(merged.results[1].repeat, HasSubstr("here/tavor kel_packet_append"));
    EXPECT_EQ(gaps_of(merged), "");
}

TEST_F(merging, order_files_and_repetitions_do_not_matter)
{
    const std::string expected = table_of(merge({file("a", WHOLE)}));
    std::vector<std::string> lines;
    for (const campaign::task &done : {TASKS[0], TASKS[0], TASKS[1], TASKS[2], TASKS[2]}) {
        const std::size_t at = WHOLE.find(done.id);
        const std::size_t begin = WHOLE.rfind('\n', at) + 1;
        lines.push_back(WHOLE.substr(begin, WHOLE.find('\n', at) + 1 - begin));
    }
    std::mt19937 generator(1);
    for (int i = 0; i < 20; i++) {
        std::shuffle(lines.begin(), lines.end(), generator);
        const std::string first = file("first", lines[0] + lines[1] + "\n");
        const std::string second = file("second", lines[2] + lines[3] + lines[4]);
        const campaign::merged merged = merge({first, second, first});
        EXPECT_TRUE(merged.is_whole()) << gaps_of(merged);
        EXPECT_EQ(table_of(merged), expected);
    }
}

TEST_F(merging, names_what_a_truncated_file_lacks)
{
    for (std::size_t size = 0; size < WHOLE.size(); size++) {
        const campaign::merged merged = merge({file("cut", WHOLE.substr(0, size))});
        // A last line that lacks nothing but its end is whole.
        const std::string kept = WHOLE.substr(0, size + 1);
        const auto lines = static_cast<std::size_t>(std::count(kept.begin(), kept.end(), '\n'));
        EXPECT_EQ(merged.results.size(), lines) << size;
        ASSERT_EQ(merged.missing.size(), TASKS.size() - lines) << size;
        for (std::size_t i = lines; i < TASKS.size(); i++) {
            EXPECT_EQ(merged.missing[i - lines], TASKS[i].id);
        }
        const bool is_within_line = size != 0 && kept[size] != '\n' && kept[size - 1] != '\n';
        EXPECT_EQ(merged.damaged.size(), is_within_line ? 1U : 0U) << size;
        EXPECT_EQ(merged.is_whole(), lines == TASKS.size());
    }
}

TEST_F(merging, a_file_without_its_beginning_lacks_a_record)
{
    for (std::size_t size = 1; size < WHOLE.find('\n'); size++) {
        const campaign::merged merged = merge({file("cut", WHOLE.substr(size))});
        EXPECT_THAT(merged.missing, ElementsAre(TASKS[0].id)) << size;
        EXPECT_EQ(merged.damaged.size(), 1U) << size;
    }
}

TEST_F(merging, a_cut_line_that_swallowed_the_next_is_neither)
{
    const std::string cut = line_of(TASKS[0], outcome::caught);
    const campaign::merged merged =
        merge({file("glued", cut.substr(0, cut.size() / 2) + line_of(TASKS[1], outcome::caught) +
                                 line_of(TASKS[2], outcome::caught))});
    EXPECT_THAT(merged.missing, ElementsAre(TASKS[0].id, TASKS[1].id));
    EXPECT_THAT(merged.damaged, ElementsAre(HasSubstr("glued:1")));
    EXPECT_THAT(gaps_of(merged), HasSubstr("missing: " + TASKS[1].id + "\n"));
    EXPECT_THAT(gaps_of(merged), HasSubstr("no table: of 3 jobs 2 have no result"));
}

TEST_F(merging, what_was_damaged_and_is_there_elsewhere_does_no_harm)
{
    const campaign::merged merged = merge({file("a", "{\"id\":\n[]\n7\nnull\n"), file("b", WHOLE)});
    EXPECT_TRUE(merged.is_whole());
    EXPECT_EQ(merged.damaged.size(), 4U);
    EXPECT_EQ(merged.results.size(), TASKS.size());
}

TEST_F(merging, records_with_other_fields_are_damaged)
{
    std::string text = line_of(TASKS[0], outcome::caught);
    text.replace(text.find("CAUGHT"), 6, "FOUND!");
    const campaign::merged merged = merge({file("a", text), file("b", "{\"id\":\"x\"}\n")});
    EXPECT_EQ(merged.damaged.size(), 2U);
    EXPECT_EQ(merged.missing.size(), TASKS.size());
}

TEST_F(merging, contradictions_are_named_and_not_counted)
{
    const campaign::merged merged =
        merge({file("a", WHOLE), file("b", line_of(TASKS[1], outcome::caught, SUBJECT, "text"))});
    EXPECT_FALSE(merged.is_whole());
    EXPECT_EQ(merged.results.size(), 2U);
    EXPECT_THAT(merged.missing, IsEmpty());
    EXPECT_THAT(merged.contradicting,
                ElementsAre(testing::AllOf(HasSubstr(TASKS[1].id), HasSubstr("a:2)"),
                                           HasSubstr("CAUGHT \"text\""), HasSubstr("b:1)"))));
}

TEST_F(merging, another_outcome_is_a_contradiction)
{
    const campaign::merged merged =
        merge({file("a", WHOLE), file("b", line_of(TASKS[0], outcome::leak))});
    EXPECT_EQ(merged.contradicting.size(), 1U);
}

TEST_F(merging, another_message_is_a_contradiction)
{
    const campaign::merged merged =
        merge({file("a", WHOLE), file("b", line_of(TASKS[0], outcome::caught, SUBJECT, "other"))});
    EXPECT_EQ(merged.contradicting.size(), 1U);
}

TEST_F(merging, records_of_something_else_are_named)
{
    const campaign::task unknown = task_of("kel_tlv_alloc_dup");
    const std::string odd = line_of(unknown, outcome::caught) +
                            line_of(TASKS[0], outcome::caught, {"older", "library"}) +
                            line_of(TASKS[0], outcome::missed, {"build", "other"});
    const campaign::merged merged = merge({file("a", WHOLE), file("odd", odd)});
    EXPECT_FALSE(merged.is_whole());
    EXPECT_THAT(merged.foreign,
                ElementsAre(HasSubstr("odd:1: no job of this campaign: " + unknown.id),
                            HasSubstr("odd:2: of another tavor, shim or table"),
                            HasSubstr("odd:3: of another library")));
    EXPECT_THAT(merged.contradicting, IsEmpty());
}

TEST_F(merging, where_no_library_is_known_the_records_must_agree_on_one)
{
    const campaign::subject anywhere{"build", ""};
    EXPECT_TRUE(merge({file("a", WHOLE)}, anywhere).is_whole());

    const std::string other = line_of(TASKS[2], outcome::caught, {"build", "other"});
    const auto one_way = merge({file("a", WHOLE), file("b", other)}, anywhere);
    const auto other_way = merge({file("b", other), file("a", WHOLE)}, anywhere);
    EXPECT_THAT(one_way.foreign, ElementsAre(HasSubstr("b:1: of another library")));
    EXPECT_EQ(one_way.foreign, other_way.foreign);
}

TEST_F(merging, files_that_are_not_there_are_an_error)
{
    EXPECT_THROW(merge({folder / "none"}), std::runtime_error);
    EXPECT_THROW(merge({folder}), std::runtime_error);
}

using mode = campaign::results_file::mode;

std::string content_of(const std::string &path)
{
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

campaign::result some_result()
{
    campaign::result made;
    made.id = TASKS[0].id;
    return made;
}

TEST_F(merging, what_is_added_to_a_cut_file_stands_on_a_line_of_its_own)
{
    for (const mode how : {mode::resumed, mode::added_to}) {
        const std::string path = file("cut", WHOLE.substr(0, WHOLE.size() - 9));
        campaign::results_file out(path, how, SUBJECT);
        out.append(some_result());
        EXPECT_THAT(content_of(path), HasSubstr("\n" + record_line(some_result(), SUBJECT)));
        EXPECT_EQ(out.known(TASKS[0].id) != nullptr, how == mode::resumed);
        EXPECT_EQ(out.known(TASKS[2].id), nullptr);
    }
}

TEST_F(merging, results_of_something_else_are_not_gone_on_with)
{
    const std::string path = file("a", WHOLE);
    EXPECT_THROW(campaign::results_file(path, mode::resumed, {"newer", "library"}),
                 std::runtime_error);
    EXPECT_EQ(content_of(path), WHOLE);
    campaign::results_file anew(path, mode::anew, {"newer", "library"});
    EXPECT_EQ(content_of(path), "");
}

TEST_F(merging, what_is_no_text_can_be_recorded)
{
    campaign::result odd = some_result();
    odd.detail = "said \xff\xfe";
    campaign::record_list list;
    read_records(file("odd", record_line(odd, SUBJECT)), list);
    ASSERT_EQ(list.records.size(), 1U);
    EXPECT_THAT(list.records[0].what.detail, testing::StartsWith("said "));
}

TEST_F(merging, a_full_disk_is_noticed)
{
    campaign::results_file out("/dev/full", mode::added_to, SUBJECT);
    EXPECT_THROW(out.append(some_result()), std::runtime_error);
}

} // namespace

// SPDX-License-Identifier: MIT
//
// The table's text, and what follows from it: consistent faults, the case that tells them apart,
// the ranking of operations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/common/usage_error.h"
#include "tools/diagnosis/report.h"

namespace {

using namespace diagnosis;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char *TEXT = "case a get free\n"
                             "case b get send\n"
                             "case c send\n"
                             "case d free\n"
                             "right\n"
                             "  c good\n"
                             "    | 200 sent\n"
                             "fault get:lost nothing is there\n"
                             "  a fail msg='get failed' line=12\n"
                             "  b hang\n"
                             "fault get:twice two are there\n"
                             "  a fail msg='get failed' line=12\n"
                             "fault send:lost nothing is sent\n"
                             "  b fail FAIL\n"
                             "    | expected 1\n"
                             "    | got 0\n"
                             "fault send:twice it is sent twice\n"
                             "  b fail FAIL\n"
                             "    | expected 1\n"
                             "    | got 2\n"
                             "fault free:lost\n"
                             "fault free:dies the program dies\n"
                             "  d crash SIGSEGV\n"
                             "fault free:dies_too the program dies, too\n"
                             "  d crash SIGSEGV\n"
                             "fault count:less it is one less\n"
                             "  c fail wrong\n"
                             "    > count 1: 2 -> 1\n"
                             "fault count:more it is one more\n"
                             "  c fail wrong\n"
                             "    > count 1: 2 -> 3\n";

class diagnosed : public testing::Test {
protected:
    // The cases that are not named are good.
    ::diagnosis::diagnosis of(const std::vector<sighting> &seen,
                              const std::set<std::string> &lost = {}, bool is_whole = true)
    {
        told = {};
        told.is_whole = is_whole;
        std::set<std::string> named = lost;
        for (const sighting &each : seen) {
            told.cases.push_back(each);
            named.insert(each.case_name);
        }
        for (const auto &[name, called] : known.operations) {
            if (!named.contains(name)) told.cases.push_back({name, *known_good(name).begin()});
        }
        told = in_terms_of(known, told);
        return diagnose(known, told);
    }

    std::set<outcome> known_good(const std::string &name) const
    {
        return endings_of(known, nullptr, name);
    }

    static std::vector<std::vector<std::string>> names(const ::diagnosis::diagnosis &made)
    {
        std::vector<std::vector<std::string>> all;
        for (const group &each : made.consistent) {
            all.emplace_back();
            for (const known_fault *one : each) all.back().push_back(one->name);
        }
        return all;
    }

    table known = table_of(TEXT, "known.txt");
    evidence told;
};

using names_of_groups = std::vector<std::vector<std::string>>;

TEST_F(diagnosed, table_is_read_and_written_alike)
{
    EXPECT_EQ(to_text(known), TEXT);
    for (const char *const damaged : {"", "case a get\n", "nonsense\n", "fault\n", "    | line\n",
                                      "  a fail x\n", "fault f:x\n  a falls\n"}) {
        EXPECT_THROW(table_of(damaged, "t"), tools::usage_error) << damaged;
    }
    try {
        table_of("case a get\nfault f:x\n  a falls\n", "t");
    } catch (const tools::usage_error &error) {
        EXPECT_STREQ(error.what(), "t:3: no way to end: falls");
    }
}

TEST_F(diagnosed, names_the_one_fault_that_explains_all)
{
    const sighting failed = {"a", {ending::fail, "msg='get failed' line=12", {}}};
    EXPECT_EQ(names(of({failed})), (names_of_groups{{"get:twice"}}));
    EXPECT_EQ(names(of({failed, {"b", {ending::hang, "", {}}}})), (names_of_groups{{"get:lost"}}));
    EXPECT_EQ(names(of({failed, {"b", {ending::stopped, "", {}}}})),
              (names_of_groups{{"get:lost"}}));
    EXPECT_TRUE(names(of({failed, {"b", {ending::crash, "SIGSEGV", {}}}})).empty());
}

TEST_F(diagnosed, goes_by_what_a_case_prints)
{
    const std::set<std::string> noise = {"[ 12.3] usb 1-1: new device"};
    std::set<std::string> lines = {"expected 1", "got 2"};
    EXPECT_EQ(names(of({{"b", {ending::fail, "FAIL", lines}}})), (names_of_groups{{"send:twice"}}));
    lines.insert(noise.begin(), noise.end());
    EXPECT_EQ(names(of({{"b", {ending::fail, "FAIL", lines}}})), (names_of_groups{{"send:twice"}}));
    // A line that is missing counts unless lines are lost.
    const sighting part = {"b", {ending::fail, "FAIL", {"expected 1"}}};
    EXPECT_TRUE(names(of({part})).empty());
    EXPECT_EQ(names(of({part}, {}, false)), (names_of_groups{{"send:lost"}, {"send:twice"}}));
}

TEST_F(diagnosed, asks_for_the_case_that_tells_them_apart)
{
    const auto made = of({{"a", {ending::fail, "msg='get failed' line=12", {}}}}, {"b"}, false);
    // Of the second nothing is missing in the log.
    EXPECT_EQ(names(made), (names_of_groups{{"get:twice"}, {"get:lost"}}));
    ASSERT_TRUE(made.next);
    EXPECT_EQ(made.next->name, "b");
    EXPECT_THAT(to_text(known, told, made), HasSubstr("run b to tell them apart\n"
                                                      "  good\n    get:twice\n"
                                                      "  hang\n    get:lost\n"));
}

TEST_F(diagnosed, keeps_together_what_no_case_tells_apart)
{
    const auto made = of({{"d", {ending::crash, "SIGSEGV", {}}}});
    EXPECT_EQ(names(made), (names_of_groups{{"free:dies", "free:dies_too"}}));
    EXPECT_FALSE(made.next);
    EXPECT_THAT(to_text(known, told, made), HasSubstr("no case tells these apart"));
}

TEST_F(diagnosed, goes_by_the_call_that_differs_where_it_is_known)
{
    sighting failed = {"c", {ending::fail, "wrong", {}}};
    const auto made = of({failed});
    EXPECT_EQ(names(made), (names_of_groups{{"count:less"}, {"count:more"}}));
    ASSERT_TRUE(made.next);
    EXPECT_TRUE(made.next->is_explained);
    EXPECT_THAT(to_text(known, told, made), HasSubstr("explain c to tell them apart\n"
                                                      "  count 1: 2 -> 1\n    count:less\n"
                                                      "  count 1: 2 -> 3\n    count:more\n"));
    failed.seen.call = "count 1: 2 -> 3";
    EXPECT_EQ(names(of({failed})), (names_of_groups{{"count:more"}}));
    failed.seen.call = "count 1: 2 -> 4";
    EXPECT_TRUE(names(of({failed})).empty());
}

TEST_F(diagnosed, compares_without_the_lines_of_another_tavor)
{
    const auto made = of({{"a", {ending::fail, "msg='get failed' line=14", {}}}});
    EXPECT_FALSE(told.has_lines);
    EXPECT_EQ(names(made), (names_of_groups{{"get:twice"}}));
    EXPECT_THAT(to_text(known, told, made), HasSubstr("the line numbers are another tavor's"));
}

TEST_F(diagnosed, ranks_operations_where_no_fault_fits)
{
    const auto made = of({{"b", {ending::fail, "new", {}}}, {"c", {ending::fail, "new, too", {}}}});
    EXPECT_TRUE(made.consistent.empty());
    ASSERT_EQ(made.suspects.size(), 2U);
    EXPECT_EQ(made.suspects[0].operation, "send");
    EXPECT_EQ(made.suspects[0].score, 1);
    EXPECT_EQ(made.suspects[1].operation, "get");
    EXPECT_EQ(made.suspects[1].score, 0.5);
    EXPECT_THAT(to_text(known, told, made), HasSubstr("1.00 send"));
    EXPECT_THAT(to_json(made), HasSubstr(R"("faults":[],"next":null,"operations":[{"operation")"));
}

TEST_F(diagnosed, has_nothing_to_say_of_a_good_log)
{
    const auto made = of({});
    EXPECT_EQ(made.failed, 0U);
    EXPECT_TRUE(made.consistent.empty());
    EXPECT_TRUE(made.suspects.empty());
    EXPECT_EQ(to_text(known, told, made), "0 failed, 4 good, 0 not told of\n");
}

} // namespace

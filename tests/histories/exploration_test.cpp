// SPDX-License-Identifier: MIT
//
// Runs: a right library has no finding, whatever it chose; one that is wrong when calls overlap
// has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tests/support/stopping.h"
#include "tools/common/usage_error.h"
#include "tools/histories/exploration.h"
#include "tools/sequence/parser.h"

namespace {

using namespace histories;
using testing::HasSubstr;

// In this process's environment as long as it lives; children have it, too.
class setting {
public:
    setting(const char *name, const std::string &value) : name_(name)
    {
        setenv(name, value.c_str(), 1);
    }
    ~setting() { unsetenv(name_); }
    setting(const setting &) = delete;
    setting &operator=(const setting &) = delete;

private:
    const char *name_;
};

settings usual(std::uint64_t count)
{
    settings asked;
    asked.library = KEL_REFERENCE_LIBRARY;
    asked.reference = KEL_REFERENCE_LIBRARY;
    asked.histories = count;
    return asked;
}

TEST(histories_of, a_right_library_are_legal)
{
    const totals all = explore(usual(200));
    EXPECT_EQ(all.legal, 200U);
    EXPECT_EQ(all.illegal + all.undecided, 0U);
    EXPECT_GT(all.calls, 200U * 32);
}

TEST(histories_of, other_shapes_are_legal)
{
    for (const shape size : {shape{1, 20}, shape{2, 3}, shape{THREADS_MAX, 4}}) {
        settings asked = usual(20);
        asked.size = size;
        EXPECT_EQ(explore(asked).legal, 20U) << size.threads;
    }
}

class legal_choice : public testing::TestWithParam<sequence::configuration> {};

TEST_P(legal_choice, is_no_finding)
{
    const setting chosen("KEL_REFERENCE_OPTIONS", sequence::text_of(GetParam()));
    settings asked = usual(60);
    asked.profile = GetParam();
    EXPECT_EQ(explore(asked).legal, 60U);
}

INSTANTIATE_TEST_SUITE_P(histories, legal_choice,
                         testing::Values(sequence::configuration{{"dynamic_tags_increase", "1"},
                                                                 {"sharing_by_present_role", "1"},
                                                                 {"event_group_reports_level",
                                                                  "1"}},
                                         sequence::configuration{{"high_notice_repeats", "1"},
                                                                 {"low_notice_from_buffers", "1"},
                                                                 {"same_role_result", "22"},
                                                                 {"unheld_tag_error", "22"}}));

TEST(histories_of, a_library_with_another_choice_are_not)
{
    const setting chosen("KEL_REFERENCE_OPTIONS", "unheld_tag_error=22");
    EXPECT_GT(explore(usual(60)).illegal, 0U);
}

struct race {
    const char *fault;
    const char *got; // of one of its findings
    unsigned histories;
};

class racy_library : public testing::TestWithParam<race> {
protected:
    std::vector<nlohmann::json> explored(std::uint64_t seed)
    {
        const setting fault("RACY_FAULT", GetParam().fault);
        const setting library("RACY_LIBRARY", KEL_REFERENCE_LIBRARY);
        const support::scratch_folder scratch;
        const std::string file = scratch.file("racy.jsonl");
        settings asked = usual(GetParam().histories);
        asked.library = RACY_LIBRARY;
        asked.json = file;
        asked.seed = seed;
        if (GetParam().got == std::string("hang")) asked.stillness = std::chrono::seconds{1};
        found_ = explore(asked);
        std::vector<nlohmann::json> lines;
        std::ifstream in(file);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(nlohmann::json::parse(line));
        }
        return lines;
    }

    totals found_;
};

TEST_P(racy_library, is_found)
{
    // On a busy machine calls may not overlap for a while.
    std::uint64_t seed = 1;
    auto lines = explored(seed);
    while (found_.illegal == 0 && seed < 20) lines = explored(++seed);
    EXPECT_GT(found_.illegal, 0U);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines.back().at("illegal"), found_.illegal);
    bool is_there = false;
    for (const auto &each : lines) {
        if (!each.contains("operation")) continue;
        EXPECT_NO_THROW(sequence::from_text(each.at("sequence").get<std::string>()));
        EXPECT_FALSE(each.at("clause").get<std::string>().empty());
        if (each.at("got").get<std::string>().starts_with(GetParam().got)) is_there = true;
    }
    EXPECT_TRUE(is_there) << nlohmann::json(lines).dump(1);
}

INSTANTIATE_TEST_SUITE_P(histories, racy_library,
                         testing::Values(race{"loses", "0", 30}, race{"gives_twice", "packet", 60},
                                         race{"miscounts", "", 15}, race{"reorders", "", 60},
                                         race{"hangs", "hang", 4},
                                         race{"crashes", "crash SIGABRT", 30}),
                         [](const auto &one) { return std::string(one.param.fault); });

TEST(histories_of, a_library_that_is_right_and_slow_are_legal)
{
    const setting fault("RACY_FAULT", "is_slow");
    const setting library("RACY_LIBRARY", KEL_REFERENCE_LIBRARY);
    settings asked = usual(40);
    asked.library = RACY_LIBRARY;
    const totals all = explore(asked);
    EXPECT_EQ(all.legal, 40U);
    EXPECT_EQ(all.late, 0U);
}

TEST(histories_of, a_right_library_on_a_busy_machine_are_legal)
{
    const setting fault("RACY_FAULT", "is_slow");
    const setting library("RACY_LIBRARY", KEL_REFERENCE_LIBRARY);
    const support::stopping now_and_then(std::chrono::milliseconds(200));
    settings asked = usual(20);
    asked.library = RACY_LIBRARY;
    asked.stillness = std::chrono::milliseconds(30);
    EXPECT_EQ(explore(asked).legal, 20U);
}

TEST(histories_of, no_library_are_refused)
{
    settings asked = usual(1);
    asked.library = "/dev/null";
    EXPECT_THROW(explore(asked), tools::usage_error);
    asked = usual(1);
    asked.reference = "/nowhere";
    EXPECT_THROW(explore(asked), tools::usage_error);
}

} // namespace

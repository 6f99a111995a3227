// SPDX-License-Identifier: MIT
//
// tavor-run history over a week of reports: 200 runs of all cases, with two builds of the library
// and two devices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/scratch.h"
#include "tools/common/registry.h"
#include "tools/tavor-run/history/history.h"

namespace {

using namespace tavor_run;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

constexpr std::size_t RUNS = 200;
constexpr std::size_t SECOND_BUILD = 80;
constexpr std::size_t SECOND_DEVICE = 160;

const std::string REGRESSION = "kel_packet_trim_head"; // bad with the second build
const std::string FIX = "kel_tlv_alloc";               // bad with the first build
const std::string FLAKY = "kel_sendrecv_select_test";  // bad in every fifth run
const std::string KNOWN = "kel_role_basic";            // always bad
const std::string CRASHED = "kel_buf_append_self";     // crashes in the newest run
const std::string HOSTILE = "</td><script>alert(1)</script>";

std::string case_of_device()
{
    return std::string(tools::all_cases()[300].name); // bad on the second device
}

std::string verdict_of(const std::string &name, std::size_t run)
{
    if (name == REGRESSION) return run >= SECOND_BUILD ? "fail" : "pass";
    if (name == FIX) return run < SECOND_BUILD ? "fail" : "pass";
    if (name == FLAKY) return run % 5 == 2 ? "fail" : "pass";
    if (name == KNOWN) return "fail";
    if (name == CRASHED) return run == RUNS - 1 ? "crash" : "pass";
    if (name == case_of_device()) return run >= SECOND_DEVICE ? "fail" : "pass";
    return "pass";
}

class week : public testing::Test {
protected:
    // Every so many of the reports, and the newest one.
    void write_every(std::size_t step) const
    {
        for (std::size_t run = 0; run < RUNS; run++) {
            if (run % step == 0 || run == RUNS - 1) write(folder, run);
        }
    }

    static void write(const fs::path &into, std::size_t run,
                      std::size_t cases = tools::all_cases().size(), bool ends = true)
    {
        std::ofstream file(into / ("run-" + std::to_string(run) + ".jsonl"));
        std::array<char, 32> started{};
        std::snprintf(started.data(), started.size(), "2026-11-%02zuT%02zu:%02zu:00Z", 1 + run / 29,
                      run % 29 * 48 / 60, run % 29 * 48 % 60);
        const std::string host = run >= SECOND_DEVICE ? "board-2" : "board-1";
        const std::string build = run >= SECOND_BUILD ? "b2b2b2b2b2b2b2b2" : "a1a1a1a1a1a1a1a1";
        file << nlohmann::json{{"type", "run"},
                               {"format", 1},
                               {"started", started.data()},
                               {"planned", tools::all_cases().size()},
                               {"host", host},
                               {"tavor",
                                {{"path", "tavor"},
                                 {"target", "t"},
                                 {"tree", "1.0"},
                                 {"image", ""}}},
                               {"library",
                                {{"path", "libkel.so"},
                                 {"soname", "libkel.so"},
                                 {"build_id", build},
                                 {"reference", false}}}}
             << "\n";
        for (const tools::test_case &each : tools::all_cases().first(cases)) {
            const std::string name(each.name);
            const std::string verdict = verdict_of(name, run);
            file << nlohmann::json{{"type", "case"},
                                   {"name", name},
                                   {"verdict", verdict},
                                   {"message", verdict == "fail" ? HOSTILE : ""},
                                   {"seconds", 0.001 + static_cast<double>(run) / 1000}}
                 << "\n";
        }
        if (ends) file << nlohmann::json{{"type", "end"}, {"exit", 1}} << "\n";
    }

    static const case_trend &found(const history &in, const std::string &name)
    {
        const auto place = std::find_if(in.cases.begin(), in.cases.end(),
                                        [&](const case_trend &each) { return each.name == name; });
        if (place == in.cases.end()) throw std::runtime_error("not in the history: " + name);
        return *place;
    }

    const support::scratch_folder scratch;
    const fs::path folder = scratch.path();
};

std::string file_of(const history &all, std::size_t run)
{
    return fs::path(all.runs[run].run.path).filename();
}

TEST_F(week, names_each_trend_in_text_and_page)
{
    write_every(1);
    const history all = read_history({folder});
    ASSERT_EQ(all.runs.size(), RUNS);
    ASSERT_EQ(all.environments.size(), 3U);
    EXPECT_EQ(found(all, REGRESSION).what, trend::known); // on the second device as on the first
    EXPECT_EQ(found(all, REGRESSION).since, SECOND_BUILD);
    EXPECT_EQ(found(all, FIX).what, trend::fixed);
    EXPECT_EQ(found(all, FIX).since, SECOND_BUILD);
    EXPECT_EQ(found(all, FLAKY).what, trend::flaky);
    EXPECT_EQ(found(all, FLAKY).bad, 8U);
    EXPECT_EQ(found(all, FLAKY).judged, 40U);
    EXPECT_EQ(found(all, KNOWN).what, trend::known);
    EXPECT_EQ(found(all, CRASHED).what, trend::lost);
    EXPECT_EQ(found(all, case_of_device()).what, trend::new_failure);
    EXPECT_EQ(found(all, case_of_device()).since, SECOND_DEVICE);
    EXPECT_EQ(all.counts()[static_cast<std::size_t>(trend::good)], all.cases.size() - 6);

    const std::string text = text_of(all);
    EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 20);
    EXPECT_THAT(text,
                HasSubstr("200 runs of " + std::to_string(tools::all_cases().size()) + " cases"));
    EXPECT_THAT(text, HasSubstr("NEW   " + case_of_device()));
    EXPECT_THAT(text, HasSubstr("LOST  " + CRASHED));
    EXPECT_THAT(text, HasSubstr("FLAKY " + FLAKY));
    EXPECT_THAT(text, HasSubstr("bad in 8 of 40 runs of one library, program and machine"));
    EXPECT_THAT(text, HasSubstr("FIXED " + FIX));
    EXPECT_THAT(text, HasSubstr("library b2b2b2b2b2b2, tavor 1.0, on board-2"));

    constexpr std::size_t MOST = 2'000'000;
    const std::string page = html_of(all);
    EXPECT_LE(page.size(), MOST);
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, HasSubstr("&lt;script&gt;"));
    for (const tools::test_case &each : tools::all_cases()) {
        EXPECT_THAT(page, HasSubstr("id=\"" + std::string(each.name) + "\""));
    }
}

TEST_F(week, a_regression_is_new_until_the_environment_changes)
{
    write_every(10);
    for (std::size_t run = SECOND_DEVICE; run < RUNS; run++) {
        fs::remove(folder / ("run-" + std::to_string(run) + ".jsonl"));
    }
    const history all = read_history({folder});
    EXPECT_EQ(found(all, REGRESSION).what, trend::new_failure);
    EXPECT_EQ(file_of(all, found(all, REGRESSION).since), "run-80.jsonl");
    EXPECT_EQ(found(all, KNOWN).what, trend::known);
    EXPECT_EQ(found(all, FIX).what, trend::fixed);
    EXPECT_EQ(file_of(all, found(all, FIX).since), "run-80.jsonl");
    EXPECT_EQ(found(all, CRASHED).what, trend::good);
}

TEST_F(week, cases_that_a_cut_run_did_not_reach_are_lost)
{
    write_every(10);
    write(folder, RUNS - 1, 100, false);
    const history all = read_history({folder});
    const std::string last(tools::all_cases().back().name);
    EXPECT_EQ(found(all, last).what, trend::lost);
    EXPECT_EQ(found(all, std::string(tools::all_cases()[50].name)).what, trend::good);
}

TEST_F(week, a_run_of_some_cases_loses_none)
{
    write_every(10);
    const fs::path some = folder / "some.jsonl";
    std::ifstream whole(folder / "run-199.jsonl");
    std::ofstream part(some);
    std::string line;
    std::getline(whole, line);
    nlohmann::json first = nlohmann::json::parse(line);
    first["started"] = "2026-11-30T00:00:00Z";
    first["planned"] = 1;
    std::getline(whole, line);
    part << first << "\n" << line << "\n" << nlohmann::json{{"type", "end"}, {"exit", 0}} << "\n";
    part.close();
    const history all = read_history({folder});
    EXPECT_EQ(found(all, std::string(tools::all_cases().back().name)).what, trend::good);
}

TEST_F(week, a_file_counts_once_and_others_are_named)
{
    write_every(10);
    std::ofstream(folder / "other.jsonl") << "{\"type\": \"else\"}\n";
    const history all = read_history({folder, folder / "run-0.jsonl"});
    EXPECT_EQ(all.runs.size(), RUNS / 10 + 1);
    ASSERT_EQ(all.skipped.size(), 1U);
    EXPECT_THAT(all.skipped[0], HasSubstr("other.jsonl"));
    EXPECT_THROW(read_history({folder / "other.jsonl"}), std::runtime_error);
    EXPECT_THROW(read_history({folder / "missing"}), std::runtime_error);
}

} // namespace

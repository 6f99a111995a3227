// SPDX-License-Identifier: MIT
//
// The library's settings, each in a process of its own: every legal value loads and shows,
// every other one is refused.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tools/common/process.h"

namespace {

struct option {
    std::string name;
    std::string default_value;
    std::vector<std::string> others;
};

void PrintTo(const option &printed, std::ostream *stream)
{
    *stream << printed.name;
}

std::vector<option> all_options()
{
    const auto texts = [](std::initializer_list<unsigned> values) {
        std::vector<std::string> written;
        for (const unsigned value : values) written.push_back(std::to_string(value));
        return written;
    };
    const auto text = [](unsigned value) { return std::to_string(value); };
#define VALUES(...)                                                                                \
    {                                                                                              \
        __VA_ARGS__                                                                                \
    }
#define OPTION(name, default_value, other_values, meaning)                                         \
    {#name, text(default_value), texts(VALUES other_values)},
    return {
#include "reference/options.def"
    };
#undef OPTION
#undef VALUES
}

tools::process_result run_probe(const std::string &variable, const std::string &value,
                                const std::string &observed)
{
    return tools::run_process({.arguments = {OPTION_PROBE, observed},
                               .environment = {variable + "=" + value},
                               .timeout = std::chrono::seconds(60)});
}

// What option_probe sees where that is not the value itself.
const std::map<std::string, std::map<std::string, std::string>> OBSERVED = {
    {"head_growth_fills_room", {{"0", "96 1436"}, {"1", "32 1500"}}},
    {"tail_growth_fills_room", {{"0", "512 128"}, {"1", "576 64"}}},
    {"dptr_clamps", {{"0", "22"}, {"1", "0"}}},
    {"low_notice_from_buffers", {{"0", "0"}, {"1", "32795"}}},
    {"get_data_short_succeeds", {{"0", "28 512"}, {"1", "0 512"}}},
    {"data_kinds", {{"4", "0"}, {"1", "22"}}},
    {"data_start_moves_data", {{"0", "0"}, {"1", "64"}}},
    {"with_tlv_counts", {{"0", "2"}, {"1", "1 2"}}},
    {"threshold_governs", {{"0", "3 3"}, {"1", "3 10"}, {"2", "10 3"}}},
    {"high_notice_repeats", {{"0", "0"}, {"1", "32794"}}},
    {"thresholds_ordered", {{"0", "0"}, {"1", "22"}}},
    {"group_name_max", {{"0", "40"}}},
    {"group_use_needs_registration", {{"0", "0"}, {"1", "22"}}},
    {"list_result_error", {{"1", "22"}, {"0", "0"}}},
    {"offset_kinds", {{"4", "22 22"}, {"6", "0 0"}}},
    {"offset_may_equal_length", {{"1", "0"}, {"0", "34"}}},
    {"set_length_grows", {{"1", "0"}, {"0", "34"}}},
    {"version_check_from_zero", {{"1", "0"}, {"0", "22"}}},
    {"dynamic_tags_increase", {{"0", "reused"}, {"1", "fresh"}}},
    {"sinks_limit_is_total", {{"0", "16"}, {"1", "8"}}},
    {"event_group_flags", {{"0", "1:-1 2:4"}, {"1", "1:4 2:-1"}, {"2", "1:-1 2:5"}}},
    {"event_group_reports_level", {{"0", "none"}, {"1", "reported"}}},
    {"interrupted_wait_keeps_record", {{"0", "0"}, {"1", "4711"}}},
    {"refused_tlv_read_zeroes", {{"0", "100 99 100 100"}, {"1", "0 0 0 100"}}},
    {"wait_stores_time_left", {{"0", "0 200000"}, {"1", "0 0"}}},
    {"records_are_used_up",
     {{"0", "5 3 3 0"}, {"1", "2779096485 2779096485 2779096485 2779096485"}}},
    {"device", {{"1", "22"}, {"0", "no device"}}},
    {"reserved_head_room", {{"0", "0 apart"}, {"1", "0 close"}}},
    {"unwritten_byte", {{"0", "120"}, {"90", "90"}, {"165", "165"}}},
    {"reserve_takes_room", {{"0", "100 888"}, {"1", "100 1400"}}},
    {"sharing_by_present_role", {{"0", "0 17"}, {"1", "17 0"}}},
    {"stale_client_error", {{"22", "22 22"}, {"1", "1 22"}}},
};

class option_contract : public testing::TestWithParam<option> {};

TEST_P(option_contract, every_legal_value_shows)
{
    std::vector<std::string> values = GetParam().others;
    values.insert(values.begin(), GetParam().default_value);
    for (const std::string &value : values) {
        SCOPED_TRACE(GetParam().name + "=" + value);
        const auto result =
            run_probe("KEL_REFERENCE_OPTIONS", GetParam().name + "=" + value, GetParam().name);
        EXPECT_TRUE(result.exited_with(0)) << result.exit_status << ' ' << result.errors;
        EXPECT_EQ(result.errors, "");
        std::string expected = value;
        if (const auto named = OBSERVED.find(GetParam().name); named != OBSERVED.end()) {
            const auto row = named->second.find(value);
            if (row != named->second.end()) expected = row->second;
        }
        EXPECT_EQ(result.output, expected + "\n");
    }
}

TEST_P(option_contract, default_needs_no_setting)
{
    const auto set = run_probe("KEL_REFERENCE_OPTIONS",
                               GetParam().name + "=" + GetParam().default_value, GetParam().name);
    const auto unset = run_probe("KEL_REFERENCE_OPTIONS", "", GetParam().name);
    EXPECT_TRUE(unset.exited_with(0)) << unset.errors;
    EXPECT_EQ(set.output, unset.output);
}

TEST_P(option_contract, other_values_are_refused)
{
    for (const std::string value : {"123456789", "-1", "x", "", "1x", "4294967296"}) {
        const std::string word = GetParam().name + "=" + value;
        const auto result = run_probe("KEL_REFERENCE_OPTIONS", word, GetParam().name);
        EXPECT_TRUE(result.exited_with(2)) << word << ": " << result.exit_status;
        EXPECT_EQ(result.errors.find("libkel: KEL_REFERENCE_OPTIONS: " + word + ": "), 0u)
            << result.errors;
        EXPECT_EQ(result.output, "");
    }
}

INSTANTIATE_TEST_SUITE_P(options, option_contract, testing::ValuesIn(all_options()),
                         [](const auto &tested) { return tested.param.name; });

struct refused_setting {
    const char *variable;
    const char *value;
    const char *word;
};

TEST(settings, unknown_names_end_the_process)
{
    for (const refused_setting &row :
         {refused_setting{"KEL_REFERENCE_OPTIONS", "no_such_option=1", "no_such_option=1"},
          {"KEL_REFERENCE_OPTIONS", "piece_size", "piece_size"},
          {"KEL_REFERENCE_OPTIONS", "=1", "=1"},
          {"KEL_REFERENCE_OPTIONS", "piece_size=16384 no_such_option=1", "no_such_option=1"},
          {"KEL_REFERENCE_FAULTS", "send#1:no_such_fault", "send#1:no_such_fault: no such fault"},
          {"KEL_REFERENCE_FAULTS", "burn#1:lost", "burn#1:lost: no such operation"},
          {"KEL_REFERENCE_FAULTS", "recv#0:newest", "recv#0:newest: bad call number"},
          {"KEL_REFERENCE_LIST", "everything", "everything"}}) {
        const auto result = run_probe(row.variable, row.value, "piece_size");
        EXPECT_TRUE(result.exited_with(2)) << row.value << ": " << result.exit_status;
        EXPECT_EQ(result.errors.find(std::string("libkel: ") + row.variable + ": " + row.word), 0u)
            << result.errors;
    }
}

TEST(settings, several_options_at_once)
{
    const auto result =
        run_probe("KEL_REFERENCE_OPTIONS", "contiguous_max=32768,piece_size=16384 tlv_size_max=232",
                  "piece_size");
    EXPECT_TRUE(result.exited_with(0)) << result.errors;
    EXPECT_EQ(result.output, "16384\n");
}

TEST(settings, lists_all_options)
{
    const auto result = run_probe("KEL_REFERENCE_LIST", "options", "piece_size");
    EXPECT_TRUE(result.exited_with(0)) << result.errors;
    const auto lines = std::ranges::count(result.output, '\n');
    EXPECT_EQ(static_cast<std::size_t>(lines), all_options().size());
    for (const option &each : all_options()) {
        EXPECT_NE(result.output.find(each.name + "\t" + each.default_value + "\t"),
                  std::string::npos)
            << each.name;
    }
}

} // namespace

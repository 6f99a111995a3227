// SPDX-License-Identifier: MIT
//
// kel-explore as its users find it: what it finds in wrong libraries, that it finds nothing in
// right ones, and what it says and writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/common/process.h"

namespace {

using testing::HasSubstr;
using testing::Not;

tools::process_result explore(const std::vector<std::string> &arguments,
                              const std::vector<std::string> &environment = {})
{
    tools::process_options options;
    options.arguments = {KEL_EXPLORE, "--lib", KEL_REFERENCE_LIBRARY, "--jobs", "1"};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.environment = environment;
    options.timeout = std::chrono::seconds(100);
    return run_process(options);
}

struct wrong {
    const char *fault;
    const char *operation;
};

class fault : public testing::TestWithParam<wrong> {};

TEST_P(fault, is_found)
{
    const auto run =
        explore({"--sequences", "1500"}, {std::string("KEL_REFERENCE_FAULTS=") + GetParam().fault});
    EXPECT_TRUE(run.exited_with(1)) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr(std::string("finding 1: kel_")));
}

INSTANTIATE_TEST_SUITE_P(explore, fault,
                         testing::Values(wrong{"trim_head#1+:keeps_offsets", ""},
                                         wrong{"trim_tail#1+:keeps_length", ""},
                                         wrong{"send#1+:keeps_holder", ""},
                                         wrong{"free_tag#1+:stays_registered", ""},
                                         wrong{"event_wait#1+:reports_again", ""},
                                         wrong{"buf_duplicate#1+:not_charged", ""}));

class choice : public testing::TestWithParam<const char *> {};

TEST_P(choice, is_no_finding_and_is_told)
{
    const auto run =
        explore({"--sequences", "600"}, {std::string("KEL_REFERENCE_OPTIONS=") + GetParam()});
    EXPECT_TRUE(run.exited_with(0)) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(explore, choice,
                         testing::Values("piece_size=5462", "event_group_flags=2",
                                         "threshold_governs=1", "tlv_size_max=237",
                                         "data_kinds=1 own_tag_error=22 stale_client_error=1"));

} // namespace

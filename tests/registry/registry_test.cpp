// SPDX-License-Identifier: MIT
//
// The table that tavor lists: its order, its numbers and its names.
#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>
#include <vector>

#include "tests/support/tavor.h"
#include "tools/common/registry.h"

namespace {

struct run_of_rows {
    std::string suite;
    int count;
};

// The order of the suites, which is part of the interface.
const std::vector<run_of_rows> TABLE = {
    {"kel_buf", 95},      {"kel_bufgroup", 15},  {"kel_bufgroup_reserved", 19},
    {"kel_corrupt", 9},   {"kel_dyn_tag", 8},    {"kel_event", 16},
    {"kel_free", 10},     {"kel_metadata", 110}, {"kel_packet", 66},
    {"kel_pkt", 2},       {"kel_packet", 17},    {"kel_region", 5},
    {"kel_subregion", 5}, {"kel_reg_client", 6}, {"kel_reg_tag", 9},
    {"kel_role", 2},      {"kel_send", 2},       {"kel_sendrecv", 1},
    {"kel_send", 1},      {"kel_sendrecv", 11},  {"kel_tlv", 49},
};

struct landmark {
    int row;
    std::string name;
};

const std::array<landmark, 20> LANDMARKS = {{
    {0, "kel_buf_get_tag_null_buf"},
    {94, "kel_buf_dup_buf_diff_chain"},
    {95, "kel_bufgroup_reg_bufgroup_null_client"},
    {128, "kel_bufgroup_reserved_not_reserved"},
    {129, "kel_corrupt_buf_free_chain"},
    {145, "kel_dyn_tag_reg_someone_tag"},
    {162, "kel_free_pkt_free2"},
    {171, "kel_free_recv_pkt"},
    {234, "kel_metadata_adj_netoff_app_toobig"},
    {281, "kel_metadata_group_access_fields"},
    {328, "kel_packet_addhead_toobig"},
    {332, "kel_packet_addtail_toobig"},
    {333, "kel_packet_addtail"},
    {348, "kel_pkt_set_tag_null_pkt"},
    {366, "kel_packet_pkt_invalid_tlvsize"},
    {377, "kel_reg_client_null_client_handle"},
    {391, "kel_reg_tag_invalid_client"},
    {396, "kel_sendrecv_sendself"},
    {445, "kel_tlv_null_null_pkt"},
    {457, "kel_tlv_data_version_check"},
}};

TEST(registry, lists_every_row_in_table_order)
{
    const auto result = support::run_tavor({"-g"});
    ASSERT_TRUE(result.exited_with(0));
    const std::vector<std::string> lines = support::lines_of(result.output);
    ASSERT_EQ(lines.size(), tools::all_cases().size());

    std::set<std::string> names;
    std::size_t row = 0;
    for (const run_of_rows &run : TABLE) {
        for (int i = 0; i < run.count; i++, row++) {
            const std::string &line = lines[row];
            const std::string name = line.substr(0, line.find(" -> "));
            EXPECT_TRUE(name.starts_with(run.suite + "_")) << line;
            EXPECT_EQ(line, name + " -> [" + std::to_string(row) + "] ");
            EXPECT_TRUE(names.insert(name).second) << "twice: " << name;
        }
    }
    EXPECT_EQ(row, lines.size());
    for (const landmark &mark : LANDMARKS) {
        EXPECT_EQ(lines[static_cast<std::size_t>(mark.row)],
                  mark.name + " -> [" + std::to_string(mark.row) + "] ");
    }
}

} // namespace

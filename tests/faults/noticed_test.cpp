// SPDX-License-Identifier: MIT
//
// Every fault of the reference library is noticed as noticed.txt says: by a case of tavor or of
// tavor-more with a message, by a case that waits, or by none. And every case of tavor-more has
// been seen to fail.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iostream>
#include <set>
#include <span>
#include <thread>

#include "tests/support/tavor.h"
#include "tools/campaign/columns.h"
#include "tools/common/registry.h"

namespace {

struct row {
    std::string fault; // operation:kind
    std::string test;  // "-": no case of any program
    std::string message;
};

std::vector<row> read_rows()
{
    std::ifstream table(NOTICED);
    std::vector<row> rows;
    for (const campaign::numbered_line &line : campaign::meaningful_lines(table)) {
        std::vector<std::string> columns = campaign::columns_of(line.text);
        columns.resize(3);
        rows.push_back({columns[0], columns[1], columns[2]});
    }
    return rows;
}

// The library's faults, in the order in which it lists them.
std::vector<std::string> listed_faults()
{
    std::vector<std::string> faults;
    const auto listing = support::run_tavor({}, {.environment = {"KEL_REFERENCE_LIST=faults"}});
    for (const std::string &line : support::lines_of(listing.output)) {
        faults.push_back(line.substr(0, line.find('\t')));
    }
    return faults;
}

std::string on_every_call(const std::string &fault)
{
    const std::size_t colon = fault.find(':');
    return fault.substr(0, colon) + "#1+" + fault.substr(colon);
}

// Cases that wait for seconds, in which no fault shows that would not show elsewhere.
const std::set<std::string> WAITING = {"kel_event_wait_timeout", "kel_event_wait_interrupt",
                                       "kel_sendrecv_recv_no_sig_prog_flush"};

std::string program_of(const std::string &test)
{
    return test.starts_with("kel_more_") ? TAVOR_MORE_BINARY : TAVOR_BINARY;
}

tools::process_result run_cases(const std::vector<std::string> &cases, const std::string &fault)
{
    const bool waits = cases.size() == 1 && WAITING.contains(cases.front());
    std::string faults = on_every_call(fault);
    if (!waits) faults += " sleep#1+:lost";
    std::vector<std::string> arguments = {program_of(cases.front())};
    arguments.insert(arguments.end(), cases.begin(), cases.end());
    return tools::run_process(
        {.arguments = arguments,
         .environment = {"LD_PRELOAD=" KELTRACE_LIBRARY, "KELTRACE_FAULTS=" + faults},
         .timeout = std::chrono::seconds(cases.size() > 1 ? 30 : 5),
         .kept = 1 << 16});
}

// What the table of a run says of the fault; what it says is wrong otherwise.
std::string found_by(const row &expected, const tools::process_result &run)
{
    if (run.timed_out) return "waits";
    for (const std::string &line : support::lines_of(run.output)) {
        const std::size_t at = line.find("FAIL : ");
        if (at == std::string::npos) continue;
        const std::size_t end = line.find_last_not_of(' ');
        std::string message = line.substr(at + 7, end - at - 6);
        // The number of the line changes with the suites' sources.
        if (const auto number = message.find("' line="); number != message.npos) {
            message.resize(number + 1);
        }
        return expected.test == "-" ? line.substr(0, line.find(' ')) + ": " + message : message;
    }
    return run.signal ? tools::signal_name(run.signal) : "";
}

// After them the shim's have their place; an unknown one is noticed below.
TEST(faults, all_are_in_the_table)
{
    const std::vector<std::string> listed = listed_faults();
    std::vector<std::string> in_table;
    for (const row &each : read_rows()) in_table.push_back(each.fault);
    ASSERT_GE(in_table.size(), listed.size());
    in_table.resize(listed.size());
    EXPECT_EQ(in_table, listed);
}

// A case that fails with no library that is wrong proves nothing.
TEST(faults, every_case_of_tavor_more_notices_one)
{
    std::set<std::string> noticing;
    for (const row &each : read_rows()) noticing.insert(each.test);
    for (const tools::test_case &each : tools::cases_of(tools::TAVOR_MORE)) {
        EXPECT_TRUE(noticing.contains(std::string(each.name))) << each.name;
    }
}

TEST(faults, stand_in_one_list_with_those_of_the_shim)
{
    const auto listing = tools::run_process(
        {.arguments = {TAVOR_BINARY},
         .environment = {"LD_PRELOAD=" KELTRACE_LIBRARY, "KELTRACE_LIST=faults"}});
    std::set<std::string> listed;
    for (const std::string &line : support::lines_of(listing.output)) {
        listed.insert(line.substr(0, line.find('\t')));
    }
    EXPECT_TRUE(listed.contains("append:error=E"));
    EXPECT_TRUE(listed.contains("sleep:lost"));
    EXPECT_FALSE(listed.contains("append:flip=K"));
    for (const std::string &fault : listed_faults()) EXPECT_TRUE(listed.contains(fault)) << fault;
}

TEST(faults, unknown_ones_end_the_program_with_their_name)
{
    const auto refused = run_cases({"kel_buf_append"}, "append:nowhere");
    EXPECT_TRUE(refused.exited_with(2));
    EXPECT_EQ(refused.errors, "keltrace: KELTRACE_FAULTS: append#1+:nowhere: unknown action\n");
}

constexpr unsigned TRIES_ALONE = 3;

// All but those that wait.
std::vector<std::string> names_of(std::span<const tools::test_case> cases)
{
    std::vector<std::string> names;
    for (const tools::test_case &each : cases) {
        if (!WAITING.contains(std::string(each.name))) names.emplace_back(each.name);
    }
    return names;
}

TEST(faults, are_noticed_as_the_table_says)
{
    const std::vector<std::string> all = names_of(tools::cases_of(tools::TAVOR));
    const std::vector<std::string> all_more = names_of(tools::cases_of(tools::TAVOR_MORE));
    const std::vector<row> rows = read_rows();
    std::vector<std::string> found(rows.size());
    std::atomic<std::size_t> next = 0;
    const auto try_row = [&](std::size_t i) {
        const row &tried = rows[i];
        const bool is_unseen = tried.test == "-";
        const auto cases = is_unseen ? all : std::vector<std::string>{tried.test};
        found[i] = found_by(tried, run_cases(cases, tried.fault));
        if (!is_unseen || !found[i].empty()) return;
        found[i] = found_by(tried, run_cases(all_more, tried.fault));
    };
    const auto work = [&] {
        for (std::size_t i = next++; i < rows.size(); i = next++) try_row(i);
    };
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 3; i++) threads.emplace_back(work);
    threads.clear();
    for (std::size_t i = 0; i < rows.size(); i++) {
        // Some cases measure time: what differs beside others is tried again alone.
        for (unsigned again = 1; again <= TRIES_ALONE && found[i] != rows[i].message; again++) {
            std::cout << rows[i].fault << ": \"" << found[i] << "\" beside others; alone, try "
                      << again << " of " << TRIES_ALONE << '\n';
            try_row(i);
        }
        EXPECT_EQ(found[i], rows[i].message) << rows[i].fault << " in " << rows[i].test;
    }
}

} // namespace

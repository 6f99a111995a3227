// SPDX-License-Identifier: MIT
//
// The table of known faults is that of this tavor and this reference library: it names all faults,
// and a sample of them shows what it says.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/support/scratch.h"
#include "tests/support/tavor.h"
#include "tools/common/registry.h"
#include "tools/diagnosis/diagnosis.h"
#include "tools/tavor-run/diagnose/log.h"

namespace {

using namespace diagnosis;

std::string on_every_call(const std::string &fault)
{
    const std::size_t colon = fault.find(':');
    return fault.substr(0, colon) + "#1+" + fault.substr(colon);
}

// Those that end by themselves, at once.
bool is_quick(const std::string &name, const std::set<outcome> &ways)
{
    return name.find("_wait_") == std::string::npos && name.find("_sig") == std::string::npos &&
           ways.begin()->ending != ending::hang;
}

TEST(known_faults, are_those_of_the_reference_library)
{
    const table known = read_table(KNOWN_FAULTS);
    std::string listed;
    const auto listing = support::run_tavor({}, {.environment = {"KEL_REFERENCE_LIST=faults"}});
    std::string in_table;
    for (const known_fault &each : known.faults) in_table += each.name + "\t" + each.text + "\n";
    EXPECT_EQ(in_table, listing.output);
    EXPECT_EQ(known.operations.size(), tools::all_cases().size());
    for (const tools::test_case &each : tools::all_cases()) {
        EXPECT_TRUE(known.operations.contains(each.name)) << each.name;
    }
}

// The whole table comes with kel-known-faults; line numbers change with the suites' sources.
TEST(known_faults, show_what_the_table_says)
{
    constexpr std::size_t EVERY = 7;
    const table known = read_table(KNOWN_FAULTS);
    std::size_t compared = 0;
    const support::scratch_folder scratch;
    const std::string path = scratch.file("known_fault.log");
    for (std::size_t i = 0; i < known.faults.size(); i += EVERY) {
        const known_fault &fault = known.faults[i];
        std::vector<std::string> cases;
        for (const auto &[name, ways] : fault.cases) {
            if (is_quick(name, ways) && cases.size() < 10) cases.push_back(name);
        }
        if (cases.empty()) continue;
        std::ofstream(path) << support::run_tavor(cases,
                                                  {.environment = {"KEL_REFERENCE_FAULTS=" +
                                                                   on_every_call(fault.name)}})
                                   .output;
        const evidence told = in_terms_of(known, tavor_run::log_of({path}));
        for (const sighting &each : told.cases) {
            const auto &ways = fault.cases.at(each.case_name);
            outcome first = *ways.begin();
            first.call.clear(); // a log does not tell it
            const bool is_known =
                ways.contains(each.seen) || first == each.seen ||
                (each.seen.ending == ending::stopped && ways.begin()->ending == ending::crash);
            EXPECT_TRUE(is_known) << fault.name << ": " << each.case_name << ": "
                                  << text_of(each.seen) << "; make the table anew";
            compared++;
        }
    }
    EXPECT_GT(compared, 50U);
}

} // namespace

// SPDX-License-Identifier: MIT
//
// All cases: what a right library answers is right.
#include <gtest/gtest.h>

#include <string>

#include "tests/sequence/recording.h"
#include "tools/common/registry.h"
#include "tools/sequence/oracle.h"
#include "tools/sequence/report.h"

namespace {

using namespace sequence;

TEST(all_cases, differ_nowhere_when_they_are_made_again)
{
    for (const tools::test_case &each : tools::all_cases()) {
        const call_sequence made = support::recorded(std::string(each.name));
        const verdict found = judge(made, KEL_REFERENCE_LIBRARY);
        EXPECT_FALSE(found.finding) << each.name << ": " << difference_text(made, found.finding);
    }
}

} // namespace

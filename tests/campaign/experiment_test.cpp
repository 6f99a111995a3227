// SPDX-License-Identifier: MIT
//
// What the reports of shim and library are taken for.
#include "tools/campaign/experiment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/scratch.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A program that writes these reports and nothing else.
class reporting : public testing::Test {
protected:
    campaign::observation observe(const std::string &of_shim, const std::string &of_library)
    {
        namespace fs = std::filesystem;
        where.tavor = folder.file("program");
        std::ofstream(where.tavor)
            << "#!/bin/sh\nprintf '" << of_shim << "' >$KELTRACE_REPORT\nprintf '" << of_library
            << "' >$KEL_REFERENCE_CENSUS\n";
        fs::permissions(where.tavor, fs::perms::owner_all);
        return campaign::observe(where, {"kel_packet_append", ""});
    }

    support::scratch_folder folder;
    campaign::setting where{.tavor = "",
                            .shim = "",
                            .library_path = "",
                            .options = "",
                            .timeout = std::chrono::minutes(10),
                            .has_reference = true};
};

constexpr const char *LEFT_BY_SHIM = "census packet 3 1 1\nswept packet 1\nswept tag 1\n"
                                     "census memory 2 1 1\nend\n";
constexpr const char *LEFT_BY_LIBRARY = "buffers 2\nreleased_by_deregistration 0\n";

TEST_F(reporting, reference_library_tells_of_its_objects_itself)
{
    EXPECT_THAT(observe(LEFT_BY_SHIM, LEFT_BY_LIBRARY).left, ElementsAre("memory 1", "buffers 2"));
}

TEST_F(reporting, of_a_closed_library_the_shim_tells)
{
    where.has_reference = false;
    EXPECT_THAT(observe(LEFT_BY_SHIM, "").left,
                ElementsAre("packet 1", "released_by_deregistration 1", "memory 1"));
    EXPECT_THAT(observe("census packet 3 3 0\nend\n", "").left, IsEmpty());
}

TEST_F(reporting, a_cut_report_is_no_report)
{
    EXPECT_THROW(observe("census packet 3 1 1\n", LEFT_BY_LIBRARY), std::runtime_error);
    EXPECT_THROW(observe(LEFT_BY_SHIM, "buffers 2\n"), std::runtime_error);
}

} // namespace

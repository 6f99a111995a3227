// SPDX-License-Identifier: MIT
//
// What the program files themselves promise: their dependencies, tavor's identification, no
// start-up code of their own, its size.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "tests/support/scratch.h"
#include "tests/support/tavor.h"

namespace {

std::string output_of(const std::vector<std::string> &command)
{
    const auto result = tools::run_process({.arguments = command});
    EXPECT_TRUE(result.exited_with(0)) << result.errors;
    return result.output;
}

class programs : public testing::TestWithParam<const char *> {};

INSTANTIATE_TEST_SUITE_P(all, programs, testing::Values(TAVOR_BINARY, TAVOR_MORE_BINARY));

TEST_P(programs, need_only_libkel_and_libc)
{
    const std::string section = output_of({"readelf", "-d", GetParam()});
    std::set<std::string> needed;
    const std::regex entry(R"(NEEDED\)\s+Shared library: \[(.*)\])");
    for (std::sregex_iterator match(section.begin(), section.end(), entry), end; match != end;
         ++match) {
        needed.insert((*match)[1]);
    }
    EXPECT_EQ(needed, (std::set<std::string>{"libkel.so", "libc.so.6"}));
}

TEST_P(programs, have_no_constructors)
{
    // One entry is the C start-up files' own, 8 bytes on a 64-bit machine.
    const std::string sections = output_of({"readelf", "-SW", GetParam()});
    std::smatch match;
    ASSERT_TRUE(std::regex_search(sections, match,
                                  std::regex(R"(\.init_array\s+INIT_ARRAY\s+\S+\s+\S+\s+(\S+))")));
    EXPECT_EQ(std::stoul(match[1], nullptr, 16), sizeof(void *));
}

TEST(binary, carries_its_identification)
{
    std::ifstream file(TAVOR_BINARY, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    for (const std::string marker : {"@@TGT@@", "@@TREE@@", "@@IMAGE@@"}) {
        const std::size_t at = bytes.find(marker);
        ASSERT_NE(at, std::string::npos) << marker;
        const std::string record = bytes.substr(at, 200);
        const std::size_t end = record.find('\0');
        EXPECT_GT(end, marker.size()) << "empty: " << marker;
        EXPECT_EQ(record.find_first_not_of('\0', end), std::string::npos)
            << marker << " is not padded with zeros";
    }
}

// No code reads them, and neither compiler nor linker may leave them out.
TEST(binary, keeps_the_tables_of_regions)
{
    const support::scratch_folder scratch;
    const std::string stripped = scratch.file("tavor");
    output_of({"strip", "-o", stripped, TAVOR_BINARY});
    std::ifstream file(stripped, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    for (const std::string name : {"KEL_TEST_BPA_MEM", "KEL_TEST_KMALLOC_MEM", "TEST-SUB1",
                                   "TEST-SUB2", "TEST-SUB3", "size=0", "region=0xDEADBEEF",
                                   "ask for 512mb mem", "invalid parent region", "invalid size"}) {
        EXPECT_NE(bytes.find(name + std::string(32 - name.size(), '\0')), std::string::npos)
            << name;
    }
}

// Nearly all of it are the cases and their messages; the C++ run-time library alone would be ten
// times as much.
TEST(binary, is_small)
{
    const support::scratch_folder scratch;
    const std::string stripped = scratch.file("tavor");
    output_of({"strip", "-o", stripped, TAVOR_BINARY});
    EXPECT_LT(std::filesystem::file_size(stripped), 224u * 1024);
}

} // namespace

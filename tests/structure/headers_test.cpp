// SPDX-License-Identifier: MIT
//
// What tavor's sources make the compiler read, as it tells itself: a header of the C++ library,
// even one that a C header's name leads to, costs each file more than its cases do.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tools/common/process.h"

namespace {

struct compilation {
    std::string folder;
    std::string command;
    std::string source; // relative to the root
};

// Of tavor-more the cases only: it shares the rest.
const std::regex OF_TAVOR(R"(CMakeFiles/(tavor\.dir/|tavor-more\.dir/__/more/))");

std::vector<compilation> compilations_of_tavor()
{
    const std::string root = TAVOR_SOURCE_DIR "/";
    std::ifstream file(TAVOR_BUILD_DIR "/compile_commands.json");
    std::vector<compilation> found;
    for (const nlohmann::json &entry : nlohmann::json::parse(file)) {
        const std::string path = entry.at("file");
        if (!path.starts_with(root)) continue;
        const std::string command = entry.at("command");
        if (!std::regex_search(command, OF_TAVOR)) continue;
        found.push_back({entry.at("directory"), command, path.substr(root.size())});
    }
    return found;
}

// All headers, those that others include among them.
std::vector<std::string> headers_of(const compilation &how)
{
    const std::string preprocess =
        std::regex_replace(how.command, std::regex(" -o \\S+ -c "), " -E -H -o /dev/null ");
    const auto result =
        tools::run_process({.arguments = {"sh", "-c", "cd '" + how.folder + "' && " + preprocess}});
    EXPECT_TRUE(result.exited_with(0)) << how.source << ": " << result.errors;
    std::vector<std::string> headers;
    std::istringstream lines(result.errors);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t dots = line.find_first_not_of('.');
        if (dots != 0 && dots != std::string::npos && line[dots] == ' ') {
            headers.push_back(line.substr(dots + 1));
        }
    }
    return headers;
}

TEST(headers, none_is_the_cpp_librarys)
{
    const std::vector<compilation> compilations = compilations_of_tavor();
    EXPECT_GE(compilations.size(), 26U);
    for (const compilation &how : compilations) {
        for (const std::string &header : headers_of(how)) {
            EXPECT_EQ(header.find("/c++/"), std::string::npos)
                << how.source << " includes " << header;
        }
    }
}

// That the compiler's list is read.
TEST(headers, suites_include_the_registry)
{
    for (const compilation &how : compilations_of_tavor()) {
        if (!how.source.starts_with("suites/")) continue;
        const std::vector<std::string> headers = headers_of(how);
        EXPECT_TRUE(std::any_of(headers.begin(), headers.end(), [](const std::string &header) {
            return header.ends_with("runner/test_list.def");
        })) << how.source;
    }
}

} // namespace

// SPDX-License-Identifier: MIT
//
// The source tree's own rules: who may include whom, what every file begins with, and that
// every suite's file is named by its cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tools/common/interface.h"
#include "tools/common/registry.h"

namespace {

namespace fs = std::filesystem;

const fs::path ROOT = TAVOR_SOURCE_DIR;

struct inclusion {
    std::string file; // relative to the root
    std::string included;
};

std::string read_text(const fs::path &path)
{
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<fs::path> sources_in(const std::string &folder)
{
    std::vector<fs::path> sources;
    for (const auto &entry : fs::recursive_directory_iterator(ROOT / folder)) {
        const std::string extension = entry.path().extension();
        if (extension == ".h" || extension == ".cpp" || extension == ".c" || extension == ".def") {
            sources.push_back(entry.path());
        }
    }
    std::sort(sources.begin(), sources.end());
    return sources;
}

std::vector<inclusion> inclusions_in(const std::string &folder)
{
    std::vector<inclusion> found;
    const std::regex include(R"(#\s*include\s*([<"])([^>"]+)[>"])");
    for (const fs::path &source : sources_in(folder)) {
        const std::string text = read_text(source);
        for (std::sregex_iterator match(text.begin(), text.end(), include), end; match != end;
             ++match) {
            const std::string mark = (*match)[1] == "<" ? "<" : "";
            found.push_back({fs::relative(source, ROOT), mark + std::string((*match)[2])});
        }
    }
    return found;
}

// Folders and single files that a folder's sources may include, of our own.
const std::map<std::string, std::vector<std::string>> MAY_INCLUDE = {
    {"kelapi", {"kelapi/"}},
    {"runner", {"kelapi/client.h", "runner/"}},
    {"fixtures", {"kelapi/", "fixtures/", "runner/tests.h"}},
    {"suites", {"kelapi/", "fixtures/", "suites/", "runner/tests.h"}},
    {"more", {"kelapi/", "fixtures/", "more/", "suites/case_helpers.h", "runner/tests.h"}},
    {"reference", {"kelapi/", "reference/"}},
    {"tools/common", {"kelapi/", "more/test_list.def", "runner/test_list.def", "tools/common/"}},
    {"tools/keltrace",
     {"kelapi/", "reference/faults/language.h", "tools/common/", "tools/keltrace/",
      "tools/sequence/"}},
    {"tools/sequence", {"kelapi/", "tools/common/", "tools/sequence/"}},
    {"tools/diagnosis", {"tools/common/", "tools/diagnosis/"}},
    {"tools/explain", {"tools/common/", "tools/explain/", "tools/sequence/"}},
    {"tools/explore",
     {"kelapi/", "tools/common/", "tools/explain/", "tools/explore/", "tools/histories/",
      "tools/sequence/"}},
    {"tools/tavor_output", {"tools/common/", "tools/tavor_output/"}},
    {"tools/campaign", {"tools/campaign/", "tools/common/", "tools/tavor_output/"}},
    {"tools/histories", {"tools/common/", "tools/explain/", "tools/histories/", "tools/sequence/"}},
    {"tools/mutation", {"tools/campaign/", "tools/common/", "tools/mutation/"}},
    {"tools/tavor-run",
     {"tools/common/", "tools/diagnosis/", "tools/explain/", "tools/sequence/", "tools/tavor-run/",
      "tools/tavor_output/"}},
};

TEST(structure, every_folder_of_the_tools_has_its_rule)
{
    for (const auto &entry : fs::directory_iterator(ROOT / "tools")) {
        const std::string folder = fs::relative(entry.path(), ROOT);
        if (!entry.is_directory() || sources_in(folder).empty()) continue;
        EXPECT_TRUE(MAY_INCLUDE.contains(folder)) << folder;
    }
}

TEST(structure, folders_include_only_what_they_may)
{
    for (const auto &[folder, allowed] : MAY_INCLUDE) {
        for (const inclusion &found : inclusions_in(folder)) {
            if (found.included.starts_with("<")) {
                continue;
            }
            EXPECT_TRUE(std::any_of(
                allowed.begin(), allowed.end(),
                [&](const std::string &prefix) { return found.included.starts_with(prefix); }))
                << found.file << " includes " << found.included;
        }
    }
}

// The model knows no faults: they stand beside it. Where one can be asked for only inside, it is
// in one form, at most once in a function, and at few places.
TEST(structure, model_knows_no_faults)
{
    constexpr int MOST_INSIDE = 60;
    const std::regex function_end("^[}]");
    const std::regex named("(^|[^e])fault"); // but "default"
    const std::regex asked(R"(^ *unless\(fault::\w+\)( [^;]*;)?$)");
    const std::set<std::string> may_name = {"reference/entry.cpp", "reference/load.h",
                                            "reference/load.cpp"};
    int inside = 0;
    for (const fs::path &source : sources_in("reference")) {
        const std::string file = fs::relative(source, ROOT);
        if (file.starts_with("reference/faults/") || may_name.contains(file)) continue;
        std::istringstream lines(read_text(source));
        int in_function = 0;
        for (std::string line; std::getline(lines, line);) {
            if (std::regex_search(line, function_end)) in_function = 0;
            if (line == "#include \"reference/faults/inside.h\"") continue;
            if (std::regex_match(line, asked)) {
                inside++;
                EXPECT_EQ(++in_function, 1) << file << ": " << line;
            } else {
                EXPECT_FALSE(std::regex_search(line, named)) << file << ": " << line;
            }
        }
    }
    EXPECT_LE(inside, MOST_INSIDE);
}

// The other way round the compiler looks: what is listed has to be declared.
TEST(structure, every_declared_operation_is_listed)
{
    const std::regex declaration(R"(\nKEL_API [\w ]+ \*?(kel_\w+)\()");
    std::set<std::string> declared;
    for (const fs::path &header : sources_in("kelapi")) {
        const std::string text = read_text(header);
        for (std::sregex_iterator found(text.begin(), text.end(), declaration), end; found != end;
             ++found) {
            declared.insert(found->str(1));
        }
    }
    std::set<std::string> listed;
    for (const interface::operation_info &each : interface::OPERATIONS) {
        listed.insert(each.function);
    }
    EXPECT_EQ(declared, listed);
}

TEST(structure, tavor_includes_c_headers_only)
{
    for (const std::string folder : {"kelapi", "runner", "fixtures", "suites", "more"}) {
        for (const inclusion &found : inclusions_in(folder)) {
            if (found.included.starts_with("<")) {
                EXPECT_TRUE(found.included.ends_with(".h"))
                    << found.file << " includes " << found.included;
            }
        }
    }
}

TEST(structure, every_source_names_its_licence_first)
{
    for (const std::string folder : {"kelapi", "runner", "fixtures", "suites", "more", "reference",
                                     "tools", "tests", "bench"}) {
        for (const fs::path &source : sources_in(folder)) {
            const std::string text = read_text(source);
            const std::string first_line = text.substr(0, text.find('\n'));
            EXPECT_NE(first_line.find("SPDX-License-Identifier: MIT"), std::string::npos) << source;
        }
    }
}

// The public headers have names as guards, for whatever compiler a device's makers use.
TEST(structure, every_header_is_read_once)
{
    for (const auto &[folder, allowed] : MAY_INCLUDE) {
        for (const fs::path &source : sources_in(folder)) {
            if (source.extension() != ".h") continue;
            const std::string guard = folder == "kelapi" ? "\n#ifndef KELAPI_" : "\n#pragma once\n";
            EXPECT_NE(read_text(source).find(guard), std::string::npos) << source;
        }
    }
}

// The cases that a folder's sources define, as "suite_name", with the source.
std::map<std::string, fs::path> cases_defined_in(const std::string &folder)
{
    const std::regex definition(R"((?:^|\n)CASE\((\w+), (\w+), )");
    std::map<std::string, fs::path> defined;
    for (const fs::path &source : sources_in(folder)) {
        const std::string text = read_text(source);
        for (std::sregex_iterator found(text.begin(), text.end(), definition), end; found != end;
             ++found) {
            defined[found->str(1) + "_" + found->str(2)] = source;
        }
    }
    return defined;
}

TEST(structure, every_case_stands_on_a_line_that_a_search_finds)
{
    const auto defined = cases_defined_in("suites");
    for (const tools::test_case &listed : tools::all_cases()) {
        EXPECT_TRUE(defined.contains(std::string(listed.name))) << listed.name;
    }
}

// One family, one name; and the table of verdicts has to tell the names apart.
TEST(structure, cases_of_tavor_more_are_named_after_their_family)
{
    constexpr std::size_t NAME_COLUMN = 40;
    const auto defined = cases_defined_in("more");
    const auto listed = tools::cases_of(tools::TAVOR_MORE);
    EXPECT_EQ(defined.size(), listed.size());
    for (const tools::test_case &each : listed) {
        const auto found = defined.find(std::string(each.name));
        ASSERT_NE(found, defined.end()) << each.name;
        EXPECT_EQ(each.suite, "kel_more_" + found->second.stem().string()) << each.name;
        EXPECT_LE(each.name.size(), NAME_COLUMN) << each.name;
    }
}

} // namespace

// SPDX-License-Identifier: MIT
//
// What the documentation names exists, and what it has to name it does name: links, folders,
// sources, settings of the reference library, environment variables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tools/common/registry.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const fs::path ROOT = TAVOR_SOURCE_DIR;

std::string read_text(const fs::path &path)
{
    std::ifstream stream(path);
    EXPECT_TRUE(stream) << path;
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<fs::path> pages_in(const fs::path &folder)
{
    std::vector<fs::path> pages;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".md") {
            pages.push_back(entry.path());
        }
    }
    return pages;
}

// All pages of the repository.
std::vector<fs::path> all_pages()
{
    std::vector<fs::path> pages;
    std::vector<fs::path> folders = {ROOT, ROOT / "docs", ROOT / "bench", ROOT / "packaging"};
    for (const auto &entry : fs::directory_iterator(ROOT / "tools")) {
        if (entry.is_directory()) folders.push_back(entry.path());
    }
    for (const fs::path &folder : folders) {
        if (!fs::is_directory(folder)) continue;
        for (const fs::path &page : pages_in(folder)) {
            pages.push_back(page);
        }
    }
    std::sort(pages.begin(), pages.end());
    return pages;
}

std::vector<std::string> matches(const std::string &text, const std::string &expression)
{
    std::vector<std::string> found;
    const std::regex wanted(expression);
    for (std::sregex_iterator match(text.begin(), text.end(), wanted), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

// Without what stands in fenced blocks.
std::string prose_of(const fs::path &page)
{
    std::string prose;
    std::string line;
    std::ifstream stream(page);
    for (bool is_fenced = false; std::getline(stream, line);) {
        if (line.starts_with("```")) {
            is_fenced = !is_fenced;
        } else if (!is_fenced) {
            prose += line + "\n";
        }
    }
    return prose;
}

// The anchors of a page's headings, in the usual spelling.
std::set<std::string> anchors_of(const fs::path &page)
{
    std::set<std::string> anchors;
    for (const std::string &heading : matches("\n" + prose_of(page), "\n#+ +([^\n]*)")) {
        std::string anchor;
        for (const char letter : heading) {
            const auto byte = static_cast<unsigned char>(letter);
            if (letter == ' ' || letter == '-') anchor += '-';
            if (std::isalnum(byte) != 0 || letter == '_') {
                anchor += static_cast<char>(std::tolower(byte));
            }
        }
        anchors.insert(anchor);
    }
    return anchors;
}

void expect_link_leads_somewhere(const fs::path &page, const std::string &link)
{
    const std::size_t hash = link.find('#');
    const std::string file = link.substr(0, hash);
    const fs::path target = file.empty() ? page : page.parent_path() / file;

    ASSERT_TRUE(fs::exists(target)) << fs::relative(page, ROOT) << " links to " << link;
    if (hash != std::string::npos) {
        EXPECT_TRUE(anchors_of(target).contains(link.substr(hash + 1)))
            << fs::relative(page, ROOT) << " links to " << link;
    }
}

TEST(docs, links_lead_somewhere)
{
    std::size_t links = 0;
    for (const fs::path &page : all_pages()) {
        for (const std::string &link : matches(prose_of(page), R"(\]\(([^)\s]+)\))")) {
            if (link.find("://") == std::string::npos && !link.starts_with("mailto:")) {
                expect_link_leads_somewhere(page, link);
                links++;
            }
        }
    }
    EXPECT_GT(links, 0U);
}

// What is about all cases tells their number. Samples of shorter runs tell smaller ones.
TEST(docs, all_cases_are_as_many_as_the_list_has)
{
    constexpr unsigned MANY = 400;
    std::size_t told = 0;
    for (const fs::path &page : all_pages()) {
        const std::string text = read_text(page);
        for (const std::string expression :
             {R"((\d+) (?:small )?cases\b)", R"(Number of tests run: +(\d+))",
              R"(Number of tests passed: +(\d+))", R"(Invalid test number (\d+))"}) {
            for (const std::string &number : matches(text, expression)) {
                if (std::stoul(number) < MANY) continue;
                EXPECT_EQ(std::stoul(number), tools::all_cases().size()) << page;
                told++;
            }
        }
    }
    EXPECT_GT(told, 0U);
}

TEST(docs, the_index_names_every_page)
{
    const std::string index = read_text(ROOT / "docs/README.md");
    for (const fs::path &page : pages_in(ROOT / "docs")) {
        const std::string name = page.filename();
        if (name != "README.md") {
            EXPECT_THAT(index, HasSubstr("](" + name + ")"));
        }
    }
}

TEST(docs, folders_that_pages_name_exist)
{
    for (const std::string page : {"README.md", "CONTRIBUTING.md", "docs/architecture.md"}) {
        const std::vector<std::string> folders = matches(
            prose_of(ROOT / page),
            "`((?:kelapi|runner|fixtures|suites|more|reference|tools|tests|bench|docs|cmake|packaging)/"
            "(?:[a-z_-]+/)*)`");
        EXPECT_FALSE(folders.empty()) << page;
        for (const std::string &folder : folders) {
            EXPECT_TRUE(fs::is_directory(ROOT / folder)) << page << " names " << folder;
        }
    }
}

// A section for each folder, in which files go by their names.
TEST(docs, the_tour_names_every_source_of_tavor)
{
    const std::string tour = read_text(ROOT / "docs/architecture.md");
    for (const std::string folder : {"kelapi", "runner", "fixtures", "suites", "more"}) {
        const std::size_t begin = tour.find("### `" + folder + "/`");
        ASSERT_NE(begin, std::string::npos) << folder;
        const std::string section = tour.substr(begin, tour.find("\n### ", begin) - begin);
        for (const auto &entry : fs::directory_iterator(ROOT / folder)) {
            const std::string name = entry.path().filename();
            if (name != "CMakeLists.txt") {
                EXPECT_THAT(section, HasSubstr("`" + name + "`"));
            }
        }
        for (const std::string &name : matches(section, "`([a-z_]+\\.(?:h|cpp|def))`")) {
            EXPECT_TRUE(fs::exists(ROOT / folder / name)) << folder << " has no " << name;
        }
    }
}

struct option_row {
    std::string name;
    std::uint32_t default_value;
};

#define OPTION(name, default_value, other_values, meaning) {#name, default_value},
const std::vector<option_row> OPTIONS = {
#include "reference/options.def"
};
#undef OPTION

TEST(docs, open_choices_stand_in_their_table)
{
    const std::string page = read_text(ROOT / "docs/reference-library.md");
    for (const option_row &row : OPTIONS) {
        EXPECT_THAT(
            page, HasSubstr("| `" + row.name + "` | " + std::to_string(row.default_value) + " |"));
    }
}

TEST(docs, the_table_of_open_choices_names_no_others)
{
    const std::string page = read_text(ROOT / "docs/reference-library.md");
    const std::vector<std::string> documented = matches(page, "\n\\| `([a-z_]+)` \\| [0-9]+ \\|");
    EXPECT_EQ(documented.size(), OPTIONS.size());
}

TEST(docs, environment_variables_are_explained)
{
    std::set<std::string> variables;
    for (const std::string folder : {"reference", "tools/keltrace"}) {
        for (const auto &entry : fs::directory_iterator(ROOT / folder)) {
            const std::string extension = entry.path().extension();
            if (extension != ".cpp" && extension != ".h") continue;
            const std::vector<std::string> found =
                matches(read_text(entry.path()), "\"((?:KELTRACE|KEL_REFERENCE)_[A-Z_]+)\"");
            variables.insert(found.begin(), found.end());
        }
    }
    EXPECT_THAT(variables, testing::IsSupersetOf({"KELTRACE_FAULTS", "KEL_REFERENCE_OPTIONS"}));

    std::string explanations;
    for (const fs::path &page : all_pages()) {
        explanations += read_text(page);
    }
    for (const std::string &variable : variables) {
        EXPECT_TRUE(std::regex_search(explanations, std::regex("\n\\| `" + variable + "\\b")))
            << variable << " begins no row of a table";
    }
}

} // namespace

// SPDX-License-Identifier: MIT
//
// The small errors that kel-mutate-library puts into a library's sources.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/common/process.h"
#include "tools/mutation/code_change.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

const std::string SOURCE = R"(// a < b
constexpr int MOST = 7;

int f(int a, int b) // a == b
{
    if (a < b && ready()) return EINVAL;
    const char *text = "a < b";
    count += g(a, b - 1);
    release(
        b);
    return a;
}
)";

// The lines that differ from the source, each as it is then.
std::vector<std::string> changed_lines()
{
    std::vector<std::string> lines;
    for (const mutation::mutant &each : mutation::code_changes_of("f.cpp", SOURCE)) {
        const std::string text = mutation::mutated(SOURCE, each);
        const std::size_t begin = text.rfind('\n', each.position) + 1;
        lines.push_back(text.substr(begin, text.find('\n', begin) - begin));
    }
    return lines;
}

TEST(code_changes, are_of_every_kind)
{
    const auto lines = changed_lines();
    for (const char *expected :
         {"constexpr int MOST = (7 + 1);", "    if (a <= b && ready()) return EINVAL;",
          "    if (a < b || ready()) return EINVAL;", "    if (!(a < b && ready())) return EINVAL;",
          "    if (a < b && ready()) return ENOENT;", "    if (a < b && ready()) return {};",
          "    count -= g(a, b - 1);", "    count += g(a, b + 1);",
          "    count += g(a, b - (1 + 1));", "    count += g(b - 1, a);", "    ;",
          "    return {};"}) {
        EXPECT_THAT(lines, Contains(expected));
    }
}

TEST(code_changes, leave_comments_texts_and_signatures)
{
    const auto lines = changed_lines();
    EXPECT_THAT(lines, Each(Not(HasSubstr("//"))));
    EXPECT_THAT(lines, Each(Not(HasSubstr("text"))));
    EXPECT_THAT(lines, Each(Not(HasSubstr("int f"))));
}

TEST(code_changes, name_their_lines)
{
    const auto all = mutation::code_changes_of("f.cpp", SOURCE);
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all.front().line, 2);
    EXPECT_EQ(all.back().line, 11);
}

TEST(mutants_of_the_library, need_a_build)
{
    const auto run = tools::run_process(
        {.arguments = {KEL_MUTATE_LIBRARY, "--build", "/nowhere", "--shim", KELTRACE_LIBRARY}});
    EXPECT_TRUE(run.exited_with(2)) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("/nowhere"));
}

} // namespace

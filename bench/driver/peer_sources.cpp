// SPDX-License-Identifier: MIT
#include "bench/driver/peer_sources.h"

#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "tools/common/registry.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

// How a framework has a source file of cases written: @SUITE@, @CASE@ and @SEED@ are replaced.
struct peer_form {
    std::string folder;
    std::string extension;
    std::string file_head;
    std::string case_definition;
    std::string suite_head{};
    std::string suite_row{};
    std::string suite_tail{};
};

const std::vector<peer_form> PEER_FORMS = {
    {"tavor", ".cpp", R"(#include <stdlib.h>

#include "bench/peers/work.h"
#include "runner/tests.h"

TEST_FILE(@SUITE@, @CASE@)
)",
     R"(
TEST_CASE(@SUITE@, @CASE@)
{
    unsigned char *memory = static_cast<unsigned char *>(malloc(WORK_SIZE));

    if (!memory) return "no memory";
    work_fill(memory, WORK_SIZE, @SEED@);
    const int is_filled = work_is_filled(memory, WORK_SIZE, @SEED@);
    free(memory);
    if (!is_filled) return "wrong data";
    return nullptr;
}
)"},
    {"table", ".cpp", R"(#include <stdlib.h>

#include "bench/peers/work.h"
#include "table.h"
)",
     R"(
static const char *@SUITE@_@CASE@()
{
    unsigned char *memory = static_cast<unsigned char *>(malloc(WORK_SIZE));

    if (!memory) return "no memory";
    work_fill(memory, WORK_SIZE, @SEED@);
    const int is_filled = work_is_filled(memory, WORK_SIZE, @SEED@);
    free(memory);
    if (!is_filled) return "wrong data";
    return nullptr;
}
)",
     "\nextern const table_row @SUITE@_rows[] = {\n", "    {\"@SUITE@_@CASE@\", @SUITE@_@CASE@},\n",
     "    {nullptr, nullptr},\n};\n"},
    {"googletest", ".cpp", R"(#include <gtest/gtest.h>
#include <stdlib.h>

#include "bench/peers/work.h"
)",
     R"(
TEST(@SUITE@, @CASE@)
{
    unsigned char *memory = static_cast<unsigned char *>(malloc(WORK_SIZE));

    ASSERT_TRUE(memory);
    work_fill(memory, WORK_SIZE, @SEED@);
    const int is_filled = work_is_filled(memory, WORK_SIZE, @SEED@);
    free(memory);
    EXPECT_TRUE(is_filled);
}
)"},
    {"catch2", ".cpp", R"(#include <stdlib.h>

#include <catch2/catch.hpp>

#include "bench/peers/work.h"
)",
     R"(
TEST_CASE("@SUITE@_@CASE@", "[@SUITE@]")
{
    unsigned char *memory = static_cast<unsigned char *>(malloc(WORK_SIZE));

    REQUIRE(memory);
    work_fill(memory, WORK_SIZE, @SEED@);
    const int is_filled = work_is_filled(memory, WORK_SIZE, @SEED@);
    free(memory);
    CHECK(is_filled);
}
)"},
    {"doctest", ".cpp", R"(#include <stdlib.h>

#include <doctest/doctest.h>

#include "bench/peers/work.h"
)",
     R"(
TEST_CASE("@SUITE@_@CASE@")
{
    unsigned char *memory = static_cast<unsigned char *>(malloc(WORK_SIZE));

    REQUIRE(memory);
    work_fill(memory, WORK_SIZE, @SEED@);
    const int is_filled = work_is_filled(memory, WORK_SIZE, @SEED@);
    free(memory);
    CHECK(is_filled);
}
)"},
    {"check", ".c", R"(#include <stdlib.h>

#include "bench/peers/work.h"
#include "check_suite.h"
)",
     R"(
START_TEST(@SUITE@_@CASE@)
{
    unsigned char *memory = malloc(WORK_SIZE);

    ck_assert(memory);
    work_fill(memory, WORK_SIZE, @SEED@);
    const int is_filled = work_is_filled(memory, WORK_SIZE, @SEED@);
    free(memory);
    ck_assert(is_filled);
}
END_TEST
)",
     R"(
Suite *@SUITE@_suite(void)
{
    Suite *suite = suite_create("@SUITE@");

)",
     "    ADD_CASE(suite, @SUITE@_@CASE@);\n", "    return suite;\n}\n"},
    {"cmocka", ".c", R"(#include <setjmp.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdlib.h>

#include <cmocka.h>

#include "bench/peers/work.h"

#define SUITE(name) int run_##name(void);
#include "suites.def"
#undef SUITE
)",
     R"(
static void @SUITE@_@CASE@(void **state)
{
    unsigned char *memory = malloc(WORK_SIZE);

    (void)state;
    assert_true(memory);
    work_fill(memory, WORK_SIZE, @SEED@);
    const int is_filled = work_is_filled(memory, WORK_SIZE, @SEED@);
    free(memory);
    assert_true(is_filled);
}
)",
     R"(
int run_@SUITE@(void)
{
    static const struct CMUnitTest tests[] = {
)",
     "        cmocka_unit_test(@SUITE@_@CASE@),\n", R"(    };

    return cmocka_run_group_tests_name("@SUITE@", tests, NULL, NULL);
}
)"},
};

// Suites that share a source file, so that files follow each other in table order.
const std::map<std::string_view, std::string_view> FAMILY_OF_SUITE = {
    {"kel_pkt", "kel_packet"},
    {"kel_subregion", "kel_region"},
    {"kel_reg_tag", "kel_reg_client"},
    {"kel_sendrecv", "kel_send"},
};

struct case_name {
    std::string suite;
    std::string name;
    std::size_t row;
};

using cases_by_group = std::map<std::string, std::vector<case_name>>;

cases_by_group cases_by_family()
{
    cases_by_group families;
    std::size_t row = 0;
    for (const tools::test_case &listed : tools::all_cases()) {
        const auto shared = FAMILY_OF_SUITE.find(listed.suite);
        const std::string family(shared == FAMILY_OF_SUITE.end() ? listed.suite : shared->second);
        families[family].push_back({std::string(listed.suite),
                                    std::string(listed.name.substr(listed.suite.size() + 1)),
                                    row++});
    }
    return families;
}

cases_by_group by_suite(const std::vector<case_name> &cases)
{
    cases_by_group suites;
    for (const case_name &listed : cases) {
        suites[listed.suite].push_back(listed);
    }
    return suites;
}

void replace_all(std::string &text, const std::string &mark, const std::string &with)
{
    for (std::size_t at = text.find(mark); at != std::string::npos;
         at = text.find(mark, at + with.size())) {
        text.replace(at, mark.size(), with);
    }
}

std::string filled_in(std::string form, const case_name &listed)
{
    constexpr std::size_t SEEDS = 256;
    replace_all(form, "@SUITE@", listed.suite);
    replace_all(form, "@CASE@", listed.name);
    replace_all(form, "@SEED@", std::to_string(listed.row % SEEDS));
    return form;
}

std::string source_of(const peer_form &form, const std::vector<case_name> &cases)
{
    std::string text = filled_in(form.file_head, cases.front());
    for (const case_name &listed : cases) {
        text += filled_in(form.case_definition, listed);
    }
    for (const auto &[suite, cases_of_suite] : by_suite(cases)) {
        text += filled_in(form.suite_head, cases_of_suite.front());
        for (const case_name &listed : cases_of_suite) {
            text += filled_in(form.suite_row, listed);
        }
        text += filled_in(form.suite_tail, cases_of_suite.front());
    }
    return text;
}

void write_if_changed(const fs::path &path, const std::string &text)
{
    std::ifstream present(path);
    if (present && std::string{std::istreambuf_iterator<char>(present), {}} == text) {
        return;
    }
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

} // namespace

void write_peer_sources(const fs::path &folder)
{
    std::string suites;
    for (const auto &[family, cases] : cases_by_family()) {
        for (const auto &[suite, unused] : by_suite(cases)) {
            suites += "SUITE(" + suite + ")\n";
        }
        for (const peer_form &form : PEER_FORMS) {
            write_if_changed(folder / form.folder / (family + form.extension),
                             source_of(form, cases));
        }
    }
    write_if_changed(folder / "suites.def", suites);
}

} // namespace bench

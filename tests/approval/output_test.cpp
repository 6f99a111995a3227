// SPDX-License-Identifier: MIT
//
// tavor's output to the byte: header, verdict lines, summary, single tests and texts.
#include <gtest/gtest.h>

#include "tests/support/tavor.h"
#include "tools/common/registry.h"

namespace {

using support::padded;
using support::run_tavor;

const std::string HEADER =
    "Name                                     Verdict  Info\n" + std::string(75, '=') + "\n";

const std::string USAGE = "Usage: tavor [-f] [-l] [-r] suitelist\n"
                          "       -f Stop after first failed test.\n"
                          "       -l Run all tests in a loop.\n"
                          "       -r Run all tests in a random order.\n"
                          "suitelist The list of test suites to run.\n"
                          "          An empty list means all test suites\n"
                          "       -t Alternate output format (for ZEB integration)\n";

std::string summary(const std::string &run, const std::string &passed, const std::string &failed)
{
    return std::string(74, '=') + "\n" + "Summary: Number of tests run:    " + run + "\n" +
           "         Number of tests passed: " + passed + "\n" +
           "         Number of tests failed: " + failed + "\n" +
           (failed == "  0" ? "Congratulations!\n" : "");
}

std::string verdict(const std::string &name, const std::string &word)
{
    return padded(name, 40) + " " + word + "\n";
}

std::string failure(const std::string &name, const std::string &message)
{
    return verdict(name, "FAIL : " + padded(message, 83));
}

// The line on which the only check of the suites' source with this literal stands.
std::string located(const std::string &output, const std::string &literal)
{
    const std::string start = "msg='" + literal + "' line=";
    const std::size_t at = output.find(start);
    if (at == std::string::npos) {
        return start + "?";
    }
    const std::size_t digits = at + start.size();
    const std::size_t end = output.find_first_not_of("0123456789", digits);
    EXPECT_GT(end, digits) << "no line number";
    return output.substr(at, end - at);
}

const std::string REG_CLIENT_VERDICTS =
    verdict("kel_reg_client_null_client_handle", "PASS") +
    verdict("kel_reg_client_reg_dereg_client", "PASS") +
    verdict("kel_reg_client_reg_dereg_client_null_name", "PASS") +
    verdict("kel_reg_client_getfd_client", "PASS") +
    verdict("kel_reg_client_getfd_null_client", "PASS") +
    verdict("kel_reg_client_reg_dereg_mul_client", "PASS");

TEST(output, table_of_a_suite)
{
    const auto result = run_tavor({"kel_reg_client"});
    EXPECT_EQ(result.output, HEADER + REG_CLIENT_VERDICTS + summary("  6", "  6", "  0"));
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(result.exited_with(0));
}

TEST(output, name_is_cut_at_40_columns)
{
    const auto result = run_tavor({"kel_reg_client_reg_dereg_client_null_name"});
    EXPECT_EQ(result.output, HEADER + "kel_reg_client_reg_dereg_client_null_nam PASS\n" +
                                 summary("  1", "  1", "  0"));
}

TEST(output, ignored_case_counts_as_passed)
{
    const auto result = run_tavor({"kel_free_send_pkt"});
    EXPECT_EQ(result.output,
              HEADER + verdict("kel_free_send_pkt", "IGNORE") + summary("  1", "  1", "  0"));
}

TEST(output, failure_is_padded_to_83_columns)
{
    const auto result =
        run_tavor({"kel_reg_client_getfd_null_client"}, {.faults = "getfd#1:result=7"});
    EXPECT_EQ(result.output, HEADER +
                                 failure("kel_reg_client_getfd_null_client",
                                         located(result.output, "kel_getfd failed")) +
                                 summary("  1", "  0", "  1"));
    EXPECT_TRUE(result.exited_with(0)) << "verdicts do not change the exit status";
}

// A library that forgets all metadata makes the longest message there is.
const support::run_options FORGETFUL = {.faults = "metadata_set#1:lost"};

std::string long_message()
{
    const auto result = run_tavor({"-s", "281"}, FORGETFUL);
    const std::string line = support::lines_of(result.output).at(2);
    const std::string start = "Executing test Suite: kel_metadata, Test Case "
                              "kel_metadata_group_access_fieldsFAILED : ";
    EXPECT_TRUE(line.starts_with(start)) << line;
    return line.substr(start.size());
}

TEST(output, single_test_prints_a_long_message_whole)
{
    const std::string message = long_message();
    EXPECT_TRUE(message.starts_with("GET errors on one or more fields: ")) << message;
    EXPECT_GT(message.size(), 120u);
}

TEST(output, failure_is_cut_at_83_columns)
{
    const auto result = run_tavor({"kel_metadata_group_access_fields"}, FORGETFUL);
    EXPECT_EQ(result.output, HEADER +
                                 verdict("kel_metadata_group_access_fields",
                                         "FAIL : " + long_message().substr(0, 83)) +
                                 summary("  1", "  0", "  1"));
}

TEST(output, zeb_format_has_neither_header_nor_summary)
{
    const auto result = run_tavor({"-t", "kel_reg_client_getfd_client", "kel_free_recv_pkt"});
    EXPECT_EQ(result.output, padded("kel_free_recv_pkt", 40) + "  0 IGNORE\n" +
                                 padded("kel_reg_client_getfd_client", 40) + "  0 PASS\n");
    EXPECT_TRUE(result.exited_with(0));
}

TEST(output, zeb_format_of_a_failure)
{
    const auto result =
        run_tavor({"kel_reg_client_getfd_null_client", "-t"}, {.faults = "getfd#1:result=7"});
    EXPECT_EQ(result.output, padded("kel_reg_client_getfd_null_client", 40) + "  0 FAIL : " +
                                 padded(located(result.output, "kel_getfd failed"), 83) + "\n");
}

TEST(output, single_test_is_not_counted)
{
    const auto result = run_tavor({"-s", "377"});
    EXPECT_EQ(result.output, HEADER +
                                 "Executing test Suite: kel_reg_client, Test Case "
                                 "kel_reg_client_null_client_handlePASSED \n" +
                                 summary("  0", "  0", "  0"));
    EXPECT_TRUE(result.exited_with(0));
}

TEST(output, single_test_shows_an_ignored_case_as_passed)
{
    const auto result = run_tavor({"-s", "129"});
    EXPECT_EQ(result.output, HEADER +
                                 "Executing test Suite: kel_corrupt, Test Case "
                                 "kel_corrupt_buf_free_chainPASSED \n" +
                                 summary("  0", "  0", "  0"));
}

TEST(output, single_test_that_fails)
{
    const auto result = run_tavor({"-s", "381"}, {.faults = "getfd#1:result=7"});
    EXPECT_EQ(result.output, HEADER +
                                 "Executing test Suite: kel_reg_client, Test Case "
                                 "kel_reg_client_getfd_null_clientFAILED : " +
                                 located(result.output, "kel_getfd failed") + "\n" +
                                 summary("  0", "  0", "  0"));
    EXPECT_TRUE(result.exited_with(0));
}

TEST(output, single_test_in_zeb_format)
{
    const auto result = run_tavor({"-t", "-s", "377"});
    EXPECT_EQ(result.output, "Executing test Suite: kel_reg_client, Test Case "
                             "kel_reg_client_null_client_handlePASSED \n");
}

TEST(output, single_test_ignores_names_and_modes)
{
    const auto result = run_tavor({"-l", "-r", "-s", "377", "kel_reg_tag"});
    EXPECT_EQ(result.output, HEADER +
                                 "Executing test Suite: kel_reg_client, Test Case "
                                 "kel_reg_client_null_client_handlePASSED \n" +
                                 summary("  0", "  0", "  0"));
}

TEST(output, single_test_number_out_of_range)
{
    for (const std::string &number :
         {std::string("-1"), std::to_string(tools::all_cases().size()), std::string("99999")}) {
        const auto result = run_tavor({"-s", number});
        EXPECT_EQ(result.output,
                  HEADER + "Invalid test number " + number + " \n" + summary("  0", "  0", "  0"));
        EXPECT_TRUE(result.exited_with(0));
    }
}

TEST(output, single_test_that_is_no_number_is_test_0)
{
    const auto result = run_tavor({"-s", "abc"});
    EXPECT_EQ(result.output, HEADER +
                                 "Executing test Suite: kel_buf, Test Case "
                                 "kel_buf_get_tag_null_bufPASSED \n" +
                                 summary("  0", "  0", "  0"));
}

TEST(output, help)
{
    const auto result = run_tavor({"-h"});
    EXPECT_EQ(result.output, USAGE);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(result.exited_with(0));
}

TEST(output, bad_option)
{
    const auto result = run_tavor({"-x"});
    EXPECT_EQ(result.output, USAGE);
    EXPECT_NE(result.errors.find("invalid option -- 'x'"), std::string::npos) << result.errors;
    EXPECT_TRUE(result.exited_with(1));
}

TEST(output, missing_argument)
{
    const auto result = run_tavor({"-s"});
    EXPECT_EQ(result.output, USAGE);
    EXPECT_NE(result.errors.find("requires an argument -- 's'"), std::string::npos)
        << result.errors;
    EXPECT_TRUE(result.exited_with(1));
}

// Messages of a library that is wrong.

struct faulty_library {
    std::string test;
    std::string faults;
    std::string literal;
};

TEST(output, located_messages_of_a_faulty_library)
{
    const std::vector<faulty_library> libraries = {
        {"kel_reg_client_null_client_handle", "register_client#1:result=0",
         "register_client failed"},
        {"kel_reg_client_null_client_handle", "deregister_client#1:result=0",
         "deregister_client failed"},
        {"kel_reg_client_getfd_client", "getfd#1:result=0", "get_fd_failed"},
        {"kel_reg_client_reg_dereg_mul_client", "deregister_client#50:error=EIO",
         "kel_reg_dereg_mul_client_failed"},
        {"kel_reg_tag_reg_dereg_multi_tags", "deregister_tag#10:error=EIO",
         "kel_register_tag failed"},
        {"kel_reg_tag_dereg_someone_tag", "deregister_tag#1:error=EPERM",
         "de-register someone's tag succeed"},
        {"kel_reg_tag_is_tag_registered", "is_tag_registered#4:result=0", "valid tag test"},
        {"kel_reg_tag_invalid_client", "register_tag#2:result=0",
         "invalid kel client reg-tag succedd"},
    };
    for (const faulty_library &library : libraries) {
        const auto result = run_tavor({library.test}, {.faults = library.faults});
        EXPECT_EQ(result.output,
                  HEADER + failure(library.test, located(result.output, library.literal)) +
                      summary("  1", "  0", "  1"));
    }
}

TEST(output, no_client_at_all_is_ignored)
{
    const auto result = run_tavor({"kel_reg_client_reg_dereg_mul_client"},
                                  {.faults = "register_client#1+:error=ENOMEM"});
    EXPECT_EQ(result.output, HEADER + verdict("kel_reg_client_reg_dereg_mul_client", "IGNORE") +
                                 summary("  1", "  1", "  0"));
}

TEST(output, fewer_clients_than_wanted_pass)
{
    const auto result = run_tavor({"kel_reg_client_reg_dereg_mul_client"},
                                  {.faults = "register_client#21+:error=ENOMEM"});
    EXPECT_EQ(result.output, HEADER + verdict("kel_reg_client_reg_dereg_mul_client", "PASS") +
                                 summary("  1", "  1", "  0"));
}

} // namespace

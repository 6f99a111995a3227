// SPDX-License-Identifier: MIT
#include "tests/sequence/recording.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>

#include "tests/support/scratch.h"
#include "tests/support/tavor.h"
#include "tools/common/registry.h"
#include "tools/sequence/parser.h"

namespace support {

std::string recorded_text(const std::string &case_name, const std::vector<std::string> &environment,
                          std::chrono::seconds limit)
{
    EXPECT_GE(tools::case_number(case_name), 0) << case_name;
    const scratch_folder scratch;
    const std::string path = scratch.file("recorded.seq");
    tools::process_options process;
    process.arguments = {TAVOR_BINARY, "-t", case_name};
    process.environment = environment;
    process.environment.push_back("KELTRACE_RECORD=" + path);
    process.environment.emplace_back("LD_PRELOAD=" KELTRACE_LIBRARY);
    process.timeout = limit;
    process.timeout_signal = SIGTERM;
    tools::run_process(process);
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

sequence::call_sequence recorded(const std::string &case_name,
                                 const std::vector<std::string> &environment,
                                 std::chrono::seconds limit)
{
    return sequence::from_text(recorded_text(case_name, environment, limit));
}

} // namespace support

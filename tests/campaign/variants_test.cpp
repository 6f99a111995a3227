// SPDX-License-Identifier: MIT
//
// tavor accepts every legal library: each open choice of the reference library taken the
// other way, all of them at once, and random combinations.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

#include "tools/common/process.h"
#include "tools/common/registry.h"

namespace {

struct open_choice {
    std::string name;
    std::vector<unsigned> others;
};

// Without the switch that takes the device away: that is no choice of the contract.
std::vector<open_choice> open_choices()
{
    const auto values = [](std::initializer_list<unsigned> list) {
        return std::vector<unsigned>(list);
    };
    std::vector<open_choice> choices = {
#define PARENTHESES_TO_BRACES(...) values({__VA_ARGS__})
#define OPTION(name, default_value, other_values, meaning)                                         \
    {#name, PARENTHESES_TO_BRACES other_values},
#include "reference/options.def"
#undef OPTION
#undef PARENTHESES_TO_BRACES
    };
    std::erase_if(choices, [](const open_choice &choice) { return choice.name == "device"; });
    return choices;
}

std::string setting(const open_choice &choice, unsigned value)
{
    return choice.name + "=" + std::to_string(value) + " ";
}

tools::process_result run_with(const std::string &library, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), TAVOR_BINARY);
    return tools::run_process(
        {.arguments = std::move(arguments), .environment = {"KEL_REFERENCE_OPTIONS=" + library}});
}

// The lines that keep a table from being all green: failures, and a summary that is not as it must
// be; also the last line, which tells where tavor ended before its time.
std::string lines_that_matter(const tools::process_result &run)
{
    std::string text = run.errors;
    std::string last;
    std::istringstream table(run.output);
    for (std::string line; std::getline(table, line); last = line) {
        if (line.find("FAIL : ") != std::string::npos || line.find("Number of") == 9) {
            text += line + '\n';
        }
    }
    return text + "last line: " + last + '\n';
}

bool is_green(const tools::process_result &run, const std::string &cases)
{
    return run.exited_with(0) &&
           run.output.find(
               "Number of tests run:    " + cases + "\n         Number of tests passed: " + cases +
               "\n         Number of tests failed:   0\nCongratulations!\n") != std::string::npos;
}

// Cases that give the library's thread 30 ms, or a moment without it: on a busy machine it loses
// the processor for as long.
bool depends_on_the_clock(const std::string &test)
{
    return test.starts_with("kel_sendrecv_recv_no_sig") ||
           test.starts_with("kel_event_wait_interrupt") ||
           test.starts_with("kel_event_wait_unregis");
}

// The names of the cases that failed; empty if tavor did not come to its end.
std::vector<std::string> failed_cases(const tools::process_result &run)
{
    std::vector<std::string> failed;
    if (!run.exited_with(0) ||
        run.output.find("Number of tests run:    " + std::to_string(tools::all_cases().size()) +
                        "\n") == std::string::npos) {
        return failed;
    }
    std::istringstream table(run.output);
    for (std::string line; std::getline(table, line);) {
        if (line.find(" FAIL : ") != std::string::npos) {
            failed.push_back(line.substr(0, line.find(' ')));
        }
    }
    return failed;
}

// Whether a run is red by the clock only: each case that failed is one of those, and passes when it
// is repeated alone.
bool passes_alone(const std::string &library, const tools::process_result &run)
{
    constexpr int TRIES = 3;
    const std::vector<std::string> failed = failed_cases(run);
    return !failed.empty() && std::all_of(failed.begin(), failed.end(), [&](const auto &test) {
        for (int attempt = 1; depends_on_the_clock(test) && attempt <= TRIES; attempt++) {
            if (is_green(run_with(library, {test}), "  1")) {
                std::cout << test << " failed beside other runs and passed alone, at try "
                          << attempt << " of " << TRIES << ", with " << library << '\n';
                return true;
            }
        }
        return false;
    });
}

// Runs of the whole registry, one a library. Most of their time they wait, so all do so at the
// same time.
void expect_all_accepted(const std::vector<std::string> &libraries)
{
    constexpr std::chrono::milliseconds APART{150};
    std::vector<tools::process_result> results(libraries.size());
    {
        std::vector<std::jthread> runs;
        for (std::size_t i = 0; i < libraries.size(); i++) {
            runs.emplace_back([&result = results[i], &library = libraries[i]] {
                result = run_with(library, {});
            });
            std::this_thread::sleep_for(APART);
        }
    }
    for (std::size_t i = 0; i < libraries.size(); i++) {
        EXPECT_TRUE(is_green(results[i], std::to_string(tools::all_cases().size())) ||
                    passes_alone(libraries[i], results[i]))
            << libraries[i] << '\n'
            << lines_that_matter(results[i]);
    }
}

std::vector<std::string> each_choice_the_other_way()
{
    std::vector<std::string> libraries;
    for (const open_choice &choice : open_choices()) {
        for (const unsigned value : choice.others) {
            libraries.push_back(setting(choice, value));
        }
    }
    return libraries;
}

std::vector<std::string> all_choices_the_other_way()
{
    std::string first;
    std::string last;
    for (const open_choice &choice : open_choices()) {
        first += setting(choice, choice.others.front());
        last += setting(choice, choice.others.back());
    }
    return {first, last};
}

std::vector<std::string> random_combinations()
{
    constexpr int COMBINATIONS = 20;
    std::mt19937 generator(20);
    std::vector<std::string> libraries(COMBINATIONS);
    for (std::string &library : libraries) {
        for (const open_choice &choice : open_choices()) {
            const std::size_t pick = generator() % (choice.others.size() + 1);
            if (pick < choice.others.size()) {
                library += setting(choice, choice.others[pick]);
            }
        }
    }
    return libraries;
}

TEST(variants, are_all_accepted)
{
    std::vector<std::string> libraries = each_choice_the_other_way();
    EXPECT_GE(libraries.size(), 20u);
    for (const auto &others : {all_choices_the_other_way(), random_combinations()}) {
        libraries.insert(libraries.end(), others.begin(), others.end());
    }
    expect_all_accepted(libraries);
}

} // namespace

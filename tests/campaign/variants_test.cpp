// SPDX-License-Identifier: MIT
//
// tavor accepts every legal library: each open choice of the reference library taken the
// other way, all of them at once, and random combinations.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

#include "tools/common/process.h"

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

// Runs of the whole registry, one a library. Most of their time they wait, so all do so at the
// same time; some of what they wait for has limits, so they do not start at the same time.
void expect_all_accepted(const std::vector<std::string> &libraries)
{
    constexpr std::chrono::milliseconds APART{150};
    std::vector<tools::process_result> results(libraries.size());
    {
        std::vector<std::jthread> runs;
        for (std::size_t i = 0; i < libraries.size(); i++) {
            runs.emplace_back([&result = results[i], &library = libraries[i]] {
                result = tools::run_process({.arguments = {TAVOR_BINARY},
                                             .environment = {"KEL_REFERENCE_OPTIONS=" + library}});
            });
            std::this_thread::sleep_for(APART);
        }
    }
    for (std::size_t i = 0; i < libraries.size(); i++) {
        EXPECT_NE(results[i].output.find("Number of tests run:    458\n"
                                         "         Number of tests passed: 458\n"
                                         "         Number of tests failed:   0\n"
                                         "Congratulations!\n"),
                  std::string::npos)
            << libraries[i] << '\n'
            << results[i].errors << results[i].output;
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

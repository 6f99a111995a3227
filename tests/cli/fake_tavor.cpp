// SPDX-License-Identifier: MIT
//
// A stand-in for tavor: the same options and the same bytes, without a library, and it does with
// its cases what it is told to in FAKE_TAVOR, words separated by blanks:
//
//   fail=CASE:text    ignore=CASE    crash=CASE    hang=CASE    exit=CASE    print=CASE:text
//   flood=CASE:lines  prints 100 MB, in lines or without their ends; "ever" is without end
//   poison=CASE:BEFORE[+BEFORE...]   fails when all these ran before it in the same process
//   flaky=CASE:file                  fails when the file is there, and else makes it
//   fail_from=CASE:folder            fails with a library from this folder on, by name
//   end=status                       exit status behind the summary
//   refuse                           ends at once
//   env=NAME                         prints that variable before it begins
//
// In texts an underscore stands for a blank.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tools/common/registry.h"

namespace {

struct script {
    std::map<std::string, std::pair<std::string, std::string>> cases; // action and its text
    int end_status = 0;
    bool refuse = false;
};

script read_script()
{
    script read;
    const char *const text = std::getenv("FAKE_TAVOR");
    std::istringstream words(text ? text : "");
    for (std::string word; words >> word;) {
        const std::size_t equals = word.find('=');
        const std::string action = word.substr(0, equals);
        const std::string rest = equals == std::string::npos ? "" : word.substr(equals + 1);
        const std::size_t colon = rest.find(':');
        if (action == "refuse") {
            read.refuse = true;
        } else if (action == "env") {
            const char *const value = std::getenv(rest.c_str());
            std::printf("%s=%s\n", rest.c_str(), value ? value : "");
        } else if (action == "end") {
            read.end_status = std::stoi(rest);
        } else {
            read.cases[rest.substr(0, colon)] = {
                action, colon == std::string::npos ? "" : rest.substr(colon + 1)};
        }
    }
    return read;
}

std::string with_blanks(std::string text)
{
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

struct verdict {
    bool ignored = false;
    std::string message{};
};

std::set<std::string> ran_before;

bool all_ran(const std::string &names)
{
    std::istringstream list(names);
    for (std::string name; std::getline(list, name, '+');) {
        if (!ran_before.contains(name)) {
            return false;
        }
    }
    return true;
}

bool came_back(const std::string &file)
{
    const bool there = access(file.c_str(), F_OK) == 0;
    std::ofstream(file).put('\n');
    return there;
}

verdict run_case(const script &how, const std::string &name)
{
    const auto found = how.cases.find(name);
    if (found == how.cases.end()) {
        return {};
    }
    const auto &[action, text] = found->second;
    if (action == "fail") {
        return {false, with_blanks(text)};
    }
    if (action == "fail_from") {
        const char *const folder = std::getenv("LD_LIBRARY_PATH");
        return {false, folder && std::string(folder).substr(0, text.size()) >= text ? "bad" : ""};
    }
    if (action == "ignore") {
        return {true, ""};
    }
    if (action == "crash") {
        std::signal(SIGSEGV, SIG_DFL);
        std::raise(SIGSEGV);
    } else if (action == "hang") {
        for (;;) {
            pause();
        }
    } else if (action == "exit") {
        _exit(7);
    } else if (action == "print") {
        std::puts(with_blanks(text).c_str());
    } else if (action == "flood") {
        const std::string line = std::string(9'999, 'x') + (text == "one" ? 'x' : '\n');
        for (int i = 0; i < 10'000 || text == "ever"; i++) {
            std::fputs(line.c_str(), stdout);
        }
    } else if (action == "poison" && all_ran(text)) {
        return {false, "poisoned"};
    } else if (action == "flaky" && came_back(text)) {
        return {false, "this time"};
    }
    return {};
}

int run_single(const script &how, int number)
{
    const tools::test_case &one = tools::all_cases()[static_cast<std::size_t>(number)];
    std::printf("Executing test Suite: %s, Test Case %s", std::string(one.suite).c_str(),
                std::string(one.name).c_str());
    const verdict seen = run_case(how, std::string(one.name));
    if (seen.message.empty()) {
        std::puts("PASSED ");
    } else {
        std::printf("FAILED : %s\n", seen.message.c_str());
    }
    return 0;
}

volatile std::sig_atomic_t is_interrupted = 0;

struct counts {
    unsigned run = 0;
    unsigned passed = 0;
    unsigned failed = 0;
};

void run_row(const script &how, const std::string &name, bool zeb, counts &all)
{
    std::printf("%-40.40s %s", name.c_str(), zeb ? " 0 " : "");
    std::fflush(stdout);
    const verdict seen = run_case(how, name);
    ran_before.insert(name);
    if (seen.message.empty()) {
        std::puts(seen.ignored ? "IGNORE" : "PASS");
        all.passed++;
    } else {
        std::printf("FAIL : %-83.83s\n", seen.message.c_str());
        all.failed++;
    }
    all.run++;
}

} // namespace

int main(int argc, char *argv[])
{
    std::signal(SIGINT, [](int) { is_interrupted = 1; });
    const script how = read_script();
    if (how.refuse) {
        std::fputs("no library\n", stderr);
        return 127;
    }
    bool stop_at_failure = false;
    bool zeb = false;
    int single = -1;
    for (int option; (option = getopt(argc, argv, "hfts:")) != -1;) {
        stop_at_failure |= option == 'f';
        zeb |= option == 't';
        single = option == 's' ? std::atoi(optarg) : single;
        if (option == 'h') {
            return 0;
        }
    }
    const std::set<std::string> names(argv + optind, argv + argc);
    if (!zeb) {
        std::printf("%-41s%-9s%s\n%s\n", "Name", "Verdict", "Info", std::string(75, '=').c_str());
    }
    counts all;
    if (single >= 0) {
        run_single(how, single);
    }
    for (const tools::test_case &each : tools::all_cases()) {
        const bool selected = names.empty() || names.contains(std::string(each.name)) ||
                              names.contains(std::string(each.suite));
        if (single < 0 && selected && !(stop_at_failure && all.failed > 0) && !is_interrupted) {
            run_row(how, std::string(each.name), zeb, all);
        }
    }
    if (!zeb) {
        std::printf("%s\nSummary: Number of tests run:    %3u\n", std::string(74, '=').c_str(),
                    all.run);
        std::printf("         Number of tests passed: %3u\n", all.passed);
        std::printf("         Number of tests failed: %3u\n", all.failed);
        std::printf("%s", all.failed == 0 ? "Congratulations!\n" : "");
    }
    return how.end_status;
}

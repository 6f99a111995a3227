// SPDX-License-Identifier: MIT
//
// Every fault of the reference library that a case notices: the call that explain names, the
// reduced sequence, and the program made of it. Prints a line for each, and the figures.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "tests/sequence/recording.h"
#include "tests/support/scratch.h"
#include "tests/support/tavor.h"
#include "tools/diagnosis/table.h"
#include "tools/sequence/export_c.h"
#include "tools/sequence/oracle.h"
#include "tools/sequence/reduction.h"

namespace {

using namespace sequence;
using diagnosis::ending;
using support::run;
namespace fs = std::filesystem;

double seconds_of(const auto &work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// In the order of what it takes to look at them: those that end, those that wait, those that hang.
std::vector<std::string> failing_cases(const diagnosis::known_fault &fault)
{
    std::vector<std::pair<int, std::string>> found;
    for (const auto &[name, ways] : fault.cases) {
        const ending end = ways.begin()->ending;
        if (end == ending::good) continue;
        const bool waits = name.find("_wait_") != name.npos || name.find("_sig") != name.npos;
        found.emplace_back(end == ending::hang ? 2 : waits ? 1 : 0, name);
    }
    std::ranges::sort(found);
    std::vector<std::string> names;
    for (auto &[rank, name] : found) names.push_back(std::move(name));
    return names;
}

struct result {
    bool is_named = false;
    bool is_reduced = false;
    bool is_compiled = false;
    bool has_same_verdict = false;
    std::string case_name{};
    std::size_t calls = 0;
    double reducing = 0;
    double explaining = 0; // beside the case's own time; of a case that ends
};

class every_fault : public testing::Test {
protected:
    static std::string setting_of(const diagnosis::known_fault &fault)
    {
        const std::size_t colon = fault.name.find(':');
        return "KEL_REFERENCE_FAULTS=" + fault.name.substr(0, colon) + "#1+" +
               fault.name.substr(colon);
    }

    void try_program(result &one, const call_sequence &made, const std::string &setting) const
    {
        const std::string folder = fs::path(KEL_REFERENCE_LIBRARY).parent_path();
        const support::scratch_folder scratch;
        const std::string program = scratch.file("reduced");
        std::ofstream(program + ".c") << to_c(made);
        const auto compiled =
            run(C_COMPILER,
                {"-std=c11", "-Wall", "-Wextra", "-Werror", "-I" TAVOR_SOURCE_DIR, program + ".c",
                 "-o", program, "-L" + folder, "-lkel", "-lpthread", "-Wl,-rpath," + folder});
        one.is_compiled = compiled.exited_with(0);
        if (!one.is_compiled) std::cout << compiled.errors;
        one.has_same_verdict = one.is_compiled && run(program, {}, {setting}).exited_with(1) &&
                               run(program, {}).exited_with(0);
    }

    static double time_to_explain(const std::string &case_name, const std::string &setting)
    {
        const double own = seconds_of([&] { run(TAVOR_BINARY, {"-t", case_name}, {setting}); });
        const double whole = seconds_of([&] { run(TAVOR_RUN, {"explain", case_name}, {setting}); });
        return whole - own;
    }

    // False when nothing more can be learned of the fault.
    bool try_case(result &one, const std::string &case_name, const std::string &setting,
                  bool hangs) const
    {
        const std::chrono::seconds limit(hangs ? 10 : 60);
        const call_sequence made = support::recorded(case_name, {setting}, limit);
        const verdict judged = judge(made, KEL_REFERENCE_LIBRARY);
        if (!judged.finding) return true;
        if (!one.is_named) one.case_name = case_name;
        one.is_named = true;
        std::optional<reduced> smallest;
        one.reducing = seconds_of([&] {
            smallest = reduce(made, *judged.finding,
                              {{KEL_REFERENCE_LIBRARY, {setting}},
                               KEL_REFERENCE_LIBRARY,
                               judged.profile.front()});
        });
        if (!smallest) return true;
        one.is_reduced = true;
        one.case_name = case_name;
        one.calls = smallest->made.calls.size();
        try_program(one, smallest->made, setting);
        return false;
    }

    result look_at(const diagnosis::known_fault &fault) const
    {
        constexpr std::size_t MOST = 5;
        result one;
        std::vector<std::string> names = failing_cases(fault);
        if (names.size() > MOST) names.resize(MOST);
        for (const std::string &each : names) {
            const bool hangs = fault.cases.at(each).begin()->ending == ending::hang;
            if (!try_case(one, each, setting_of(fault), hangs)) break;
        }
        const std::string &timed = one.is_named ? one.case_name : names.front();
        const bool ends = fault.cases.at(timed).begin()->ending != ending::hang;
        if (ends) one.explaining = time_to_explain(timed, setting_of(fault));
        return one;
    }
};

template <typename number> number median(std::vector<number> all)
{
    if (all.empty()) return {};
    std::ranges::sort(all);
    return all[all.size() / 2];
}

void print_spread(const char *what, const std::vector<double> &seconds, double goal)
{
    const auto over = std::ranges::count_if(seconds, [goal](double each) { return each > goal; });
    std::cout << what << ": median " << median(seconds) << " s, longest "
              << (seconds.empty() ? 0 : std::ranges::max(seconds)) << " s, over " << goal
              << " s: " << over << "\n";
}

TEST_F(every_fault, is_named_reduced_and_exported)
{
    std::vector<result> all;
    std::cout << std::fixed << std::setprecision(2);
    for (const auto &fault : diagnosis::read_table(KNOWN_FAULTS).faults) {
        if (failing_cases(fault).empty()) continue;
        all.push_back(look_at(fault));
        const result &one = all.back();
        std::cout << fault.name << " " << (one.is_named ? one.case_name : "not named") << " "
                  << (one.is_reduced ? std::to_string(one.calls) + " calls" : "not reduced") << " "
                  << one.reducing << " s, explained in " << one.explaining << " s"
                  << (one.is_reduced && !one.has_same_verdict ? ", the program says otherwise" : "")
                  << std::endl;
        EXPECT_EQ(one.is_compiled, one.is_reduced) << fault.name;
        EXPECT_EQ(one.has_same_verdict, one.is_reduced) << fault.name;
    }
    const auto count = [&](bool result::*what) { return std::ranges::count(all, true, what); };
    std::vector<std::size_t> calls;
    std::vector<double> reducing;
    std::vector<double> explaining;
    for (const result &each : all) {
        if (each.is_reduced) calls.push_back(each.calls);
        if (each.is_reduced) reducing.push_back(each.reducing);
        if (each.explaining != 0) explaining.push_back(each.explaining);
    }
    std::cout << all.size() << " faults show: " << count(&result::is_named) << " named, "
              << count(&result::is_reduced) << " reduced, " << count(&result::is_compiled)
              << " programs compiled, " << count(&result::has_same_verdict)
              << " with the same verdict\n"
              << "calls: median " << median(calls) << ", longest "
              << (calls.empty() ? 0 : std::ranges::max(calls)) << "\n";
    print_spread("reducing", reducing, 10);
    print_spread("explaining, beside the case", explaining, 1);
    EXPECT_GE(count(&result::is_named) * 100, static_cast<std::ptrdiff_t>(all.size()) * 95);
    EXPECT_LE(median(calls), 8U);
}

} // namespace

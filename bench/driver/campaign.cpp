// SPDX-License-Identifier: MIT
//
// Runs of the fault campaign a second, beside bare starts of processes by as many jobs.
#include <time.h>

#include <iostream>
#include <stdexcept>
#include <thread>

#include "bench/driver/cost.h"
#include "bench/driver/parts.h"
#include "bench/driver/table.h"

namespace bench {

namespace {

// Suites without waits.
const std::vector<std::string> SUITES = {"kel_buf", "kel_metadata", "kel_packet", "kel_tlv"};
const std::string ONE_CASE = "kel_packet_append";
const std::string PAIRS = TAVOR_SOURCE_DIR "/tests/campaign/pairs";
constexpr unsigned STARTS = 1000; // of a bare process

struct rate {
    double a_second = 0;
    double cpu = 0; // seconds a run
};

struct rated {
    std::string name;
    std::vector<rate> rates{};
};

command campaign_command(const settings &how)
{
    command line = {
        KEL_CAMPAIGN, "--tavor", TAVOR_BINARY,   "--shim", KELTRACE_LIBRARY,        "--pairs",
        PAIRS,        "--quiet", "--skip-green", "--jobs", std::to_string(how.jobs)};
    line.insert(line.end(), SUITES.begin(), SUITES.end());
    return line;
}

std::size_t count_of_runs(const settings &how)
{
    command line = campaign_command(how);
    line.emplace_back("--results");
    line.push_back(how.folder / "campaign.jsonl");
    const std::string output = output_of(line);
    const std::size_t end = output.rfind(" runs, ");
    const std::size_t line_start = output.rfind('\n', end) + 1;
    if (end == std::string::npos) throw std::runtime_error("the campaign tells no count");
    return std::stoul(output.substr(line_start, end - line_start));
}

double thread_time()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

rate rate_of_campaign(const settings &how, std::size_t runs)
{
    const cost all = cost_of_success(campaign_command(how));
    const auto count = static_cast<double>(runs);
    return {count / all.wall, all.cpu / count};
}

// A job: starts one after the other. The time of its own thread counts, as the campaign's does.
cost cost_of_job(const command &program, unsigned starts,
                 const std::vector<std::string> &environment)
{
    const double begin = thread_time();
    cost of_start = cost_of(program, starts, environment);
    of_start.cpu += (thread_time() - begin) / starts;
    return of_start;
}

rate rate_of_starts(const command &program, const settings &how,
                    const std::vector<std::string> &environment)
{
    std::vector<cost> costs(how.jobs);
    std::vector<std::jthread> jobs;
    jobs.reserve(costs.size());
    for (cost &of_job : costs) {
        jobs.emplace_back([&] { of_job = cost_of_job(program, STARTS / how.jobs, environment); });
    }
    jobs.clear();
    rate all;
    for (const cost &of_job : costs) {
        all.a_second += 1 / of_job.wall;
        all.cpu += of_job.cpu / how.jobs;
    }
    return all;
}

std::vector<double> ratios(const std::vector<rate> &rates, const std::vector<rate> &base,
                           double rate::*which)
{
    std::vector<double> values;
    for (std::size_t i = 0; i < rates.size(); i++) {
        values.push_back(rates[i].*which / (base[i].*which));
    }
    return values;
}

void print_rates(std::ostream &out, const std::vector<rated> &programs)
{
    constexpr double US = 1e6;
    const std::vector<rate> &base = programs.front().rates;
    table rows({"run", "a second", "/ true", "CPU, µs", "CPU of true / CPU"});
    for (const rated &program : programs) {
        std::vector<double> a_second;
        std::vector<double> cpu;
        for (const rate &measured_rate : program.rates) {
            a_second.push_back(measured_rate.a_second);
            cpu.push_back(measured_rate.cpu * US);
        }
        rows.add({program.name, figures(a_second),
                  figures(ratios(program.rates, base, &rate::a_second)), figures(cpu),
                  figures(ratios(base, program.rates, &rate::cpu))});
    }
    out << "## Campaign\n\n";
    rows.print(out);
}

} // namespace

void measure_campaign(std::ostream &out, const settings &how)
{
    const std::size_t runs = count_of_runs(how);
    const std::string shim = "LD_PRELOAD=" KELTRACE_LIBRARY;
    std::vector<rated> programs = {
        {"`true`"}, {"one case of tavor"}, {"the same with the shim"}, {"run of the campaign"}};
    for (unsigned repetition = 0; repetition < how.repetitions; repetition++) {
        std::cerr << "campaign: repetition " << repetition + 1 << " of " << how.repetitions << '\n';
        programs[0].rates.push_back(rate_of_starts({"true"}, how, {}));
        programs[1].rates.push_back(rate_of_starts({TAVOR_BINARY, ONE_CASE}, how, {}));
        programs[2].rates.push_back(rate_of_starts({TAVOR_BINARY, ONE_CASE}, how, {shim}));
        programs[3].rates.push_back(rate_of_campaign(how, runs));
    }
    print_rates(out, programs);
}

} // namespace bench

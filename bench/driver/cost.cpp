// SPDX-License-Identifier: MIT
#include "bench/driver/cost.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "tools/common/process.h"

namespace bench {

namespace {

// A program that can be started many times with nothing to do in between.
class starter {
public:
    starter(command what, const std::vector<std::string> &variables)
        : program(std::move(what)), environment(variables)
    {
        for (char **variable = environ; *variable; variable++) {
            environment.emplace_back(*variable);
        }
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    }
    starter(const starter &) = delete;
    starter &operator=(const starter &) = delete;
    ~starter() { posix_spawn_file_actions_destroy(&actions); }

    // Its CPU time in seconds.
    double run()
    {
        pid_t pid = 0;
        const int error = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(),
                                       variables_of_program.data());
        if (error != 0) throw std::runtime_error(program[0] + ": " + std::strerror(error));
        int status = 0;
        rusage used{};
        if (wait4(pid, &status, 0, &used) != pid || !WIFEXITED(status)) {
            throw std::runtime_error("failed: " + tools::shell_line({}, program));
        }
        const auto seconds = [](const timeval &time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(used.ru_utime) + seconds(used.ru_stime);
    }

private:
    command program;
    std::vector<std::string> environment;
    std::vector<char *> arguments = tools::pointers_to(program);
    std::vector<char *> variables_of_program = tools::pointers_to(environment);
    posix_spawn_file_actions_t actions{};
};

[[noreturn]] void become_traced(std::vector<char *> &arguments)
{
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

double peak_in_status_of(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") {
            double kib = 0;
            status >> kib;
            return kib;
        }
    }
    throw std::runtime_error("no VmHWM in /proc/<pid>/status");
}

tools::process_result success_of(const command &program,
                                 const std::vector<std::string> &environment)
{
    constexpr std::size_t SHOWN = 2000;
    tools::process_result result =
        tools::run_process({.arguments = program, .environment = environment});
    if (!result.exited_with(0)) {
        throw std::runtime_error("failed: " + tools::shell_line(environment, program) + "\n" +
                                 result.errors + result.output.substr(0, SHOWN));
    }
    return result;
}

} // namespace

cost cost_of(const command &program, unsigned starts, const std::vector<std::string> &environment)
{
    starter started(program, environment);
    const auto begin = std::chrono::steady_clock::now();
    double cpu = 0;
    for (unsigned i = 0; i < starts; i++) {
        cpu += started.run();
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    return {cpu / starts, wall.count() / starts};
}

namespace {

// What the preloaded clock notes, without the beginning.
std::vector<cost> clocked(const command &program, const std::filesystem::path &scratch,
                          std::vector<std::string> environment)
{
    constexpr double NS = 1e-9;
    const std::string path = scratch / "clock";
    environment.emplace_back("LD_PRELOAD=" BENCH_CLOCK_LIBRARY);
    environment.push_back("BENCH_CLOCK=" + path);
    cost_of(program, 1, environment);
    std::ifstream noted(path);
    std::vector<cost> instants;
    for (double cpu = 0, wall = 0; noted >> cpu >> wall;) {
        instants.push_back({cpu * NS, wall * NS});
    }
    if (instants.size() < 2) throw std::runtime_error("no clock in " + program[0]);
    instants.erase(instants.begin());
    return instants;
}

} // namespace

std::vector<cost> cost_at_flushes(const command &program, const std::filesystem::path &scratch)
{
    return clocked(program, scratch, {"BENCH_CLOCK_FLUSHES=1"});
}

cost cost_of_main(const command &program, unsigned starts, const std::filesystem::path &scratch)
{
    std::vector<double> cpu;
    std::vector<double> wall;
    for (unsigned i = 0; i < starts; i++) {
        const cost end = clocked(program, scratch, {}).back();
        cpu.push_back(end.cpu);
        wall.push_back(end.wall);
    }
    return {summary_of(cpu).median, summary_of(wall).median};
}

// ru_maxrss will not do: the new process takes it over from this one, which is larger than most
// programs that are measured here. So the process is stopped at its end and looked at.
double peak_memory_of(const command &program)
{
    command texts = program;
    std::vector<char *> arguments = tools::pointers_to(texts);
    const pid_t pid = fork();
    if (pid == 0) become_traced(arguments);

    int status = 0;
    double peak = 0;
    bool is_set_up = false;
    while (waitpid(pid, &status, 0) == pid && WIFSTOPPED(status)) {
        const bool is_ending = status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXIT << 8));
        if (is_ending) peak = peak_in_status_of(pid);
        if (!is_set_up) ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACEEXIT);
        const bool is_signal = is_set_up && !is_ending;
        ptrace(PTRACE_CONT, pid, nullptr, is_signal ? WSTOPSIG(status) : 0);
        is_set_up = true;
    }
    if (!WIFEXITED(status) || peak == 0) {
        throw std::runtime_error("failed under trace: " + tools::shell_line({}, program));
    }
    return peak;
}

std::string output_of(const command &program, const std::vector<std::string> &environment)
{
    return success_of(program, environment).output;
}

cost cost_of_success(const command &program)
{
    const tools::process_result built = success_of(program, {});
    const std::chrono::duration<double> cpu = built.cpu_time;
    const std::chrono::duration<double> wall = built.wall_time;
    return {cpu.count(), wall.count()};
}

summary summary_of(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    const double median =
        values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {median, values.front(), values.back()};
}

} // namespace bench

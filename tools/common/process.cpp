// SPDX-License-Identifier: MIT
//
// Starting a process and following it to its end.
#include "tools/common/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tools/common/interrupt.h"
#include "tools/common/kept_text.h"
#include "tools/common/unique_fd.h"

namespace tools {

namespace {

using steady = std::chrono::steady_clock;

// How long a process may take to end after it was asked politely.
constexpr std::chrono::milliseconds GRACE{500};

struct pipe_ends {
    unique_fd reading;
    unique_fd writing;
};

bool open_pipe(pipe_ends &ends)
{
    std::array<int, 2> fds{};
    if (pipe2(fds.data(), O_CLOEXEC) != 0) {
        return false;
    }
    ends.reading = unique_fd(fds[0]);
    ends.writing = unique_fd(fds[1]);
    return true;
}

std::string variable_name(const std::string &assignment)
{
    return assignment.substr(0, assignment.find('=') + 1);
}

// This process's environment with `added` in place of variables of the same name.
std::vector<std::string> merged_environment(const std::vector<std::string> &added)
{
    std::vector<std::string> merged;
    for (char **variable = environ; *variable; variable++) {
        bool replaced = false;
        for (const std::string &assignment : added) {
            replaced |= std::string_view(*variable).starts_with(variable_name(assignment));
        }
        if (!replaced) {
            merged.emplace_back(*variable);
        }
    }
    merged.insert(merged.end(), added.begin(), added.end());
    return merged;
}

// Readable when the process has ended; none under kernels that have no such thing.
unique_fd end_of(pid_t pid)
{
    return unique_fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

// All that a child needs; made before, as it shares its parent's memory and may allocate nothing.
struct start {
    char *const *arguments;
    char *const *environment;
    int input;
    int output;
    int errors;
    pid_t parent;
    volatile int error = 0; // set by a child that could not become the program
};

[[noreturn]] void become(start &what)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXFSZ}) {
        ::signal(signal, SIG_DFL);
    }
    sigset_t nothing;
    sigemptyset(&nothing);
    const bool ready =
        setpgid(0, 0) == 0 && dup2(what.input, STDIN_FILENO) >= 0 &&
        dup2(what.output, STDOUT_FILENO) >= 0 && dup2(what.errors, STDERR_FILENO) >= 0 &&
        prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && sigprocmask(SIG_SETMASK, &nothing, nullptr) == 0;
    // A parent that died before it was bound to it ends the child, too.
    if (ready && getppid() == what.parent) {
        execvpe(what.arguments[0], what.arguments, what.environment);
    }
    what.error = errno;
    _exit(127);
}

// Starts the program in a process group of its own, and ends it with the thread that calls this;
// returns 0 or an error number.
int spawn(const process_options &options, int output, int errors, pid_t *pid)
{
    std::vector<std::string> arguments = options.arguments;
    std::vector<std::string> environment = merged_environment(options.environment);
    const std::vector<char *> argument_pointers = pointers_to(arguments);
    const std::vector<char *> environment_pointers = pointers_to(environment);
    const unique_fd input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    start what{argument_pointers.data(),
               environment_pointers.data(),
               input.get(),
               output,
               errors,
               getpid()};
    // None of this program's handlers may run in the child.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    *pid =
        vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork): fork takes a tenth of a run
    if (*pid == 0) {
        become(what); // NOLINT(clang-analyzer-unix.Vfork): it does not return
    }
    const int error = *pid < 0 ? errno : what.error;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (*pid > 0 && error != 0) {
        waitpid(*pid, nullptr, 0);
    }
    return error;
}

// Follows a started process to its end.
class follower {
public:
    follower(const process_options &how, pid_t process, steady::time_point its_start,
             unique_fd its_output, unique_fd its_errors)
        : options(how), pid(process), output{std::move(its_output), kept_text(how.kept)},
          errors{std::move(its_errors), kept_text(how.kept)}, end(end_of(process)),
          started(its_start)
    {
    }

    process_result follow()
    {
        result.started = true;
        while (!ended()) {
            heed_interrupts();
            end_when_late();
            poll_streams();
        }
        // What it started itself and left behind goes with it, as long as its number is its own.
        kill(-pid, SIGKILL);
        reap();
        drain(output);
        drain(errors);
        result.output = output.text.take();
        result.errors = errors.text.take();
        result.wall_time =
            std::chrono::duration_cast<std::chrono::microseconds>(steady::now() - started);
        return std::move(result);
    }

private:
    struct stream {
        unique_fd fd;
        kept_text text;
    };

    void poll_streams()
    {
        std::array<pollfd, 3> streams{
            {{output.fd.get(), POLLIN, 0}, {errors.fd.get(), POLLIN, 0}, {end.get(), POLLIN, 0}}};
        const int slice_ms = end.get() >= 0 ? 20 : 1;
        if (poll(streams.data(), streams.size(), slice_ms) <= 0) {
            return;
        }
        if (streams[0].revents) {
            read_some(output);
        }
        if (streams[1].revents) {
            read_some(errors);
        }
    }

    // Reads what is there; false when that is nothing.
    bool read_some(stream &from)
    {
        std::array<char, 65536> chunk;
        const ssize_t count = read(from.fd.get(), chunk.data(), chunk.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            return errno == EINTR;
        }
        if (count <= 0) {
            from.fd.reset();
            return false;
        }
        const std::string_view piece(chunk.data(), static_cast<std::size_t>(count));
        from.text.append(piece);
        if (&from == &output && options.on_output && options.on_output(piece)) {
            kill(pid, options.stop_signal);
        }
        return true;
    }

    // What is in the pipe when the process has ended.
    void drain(stream &from)
    {
        fcntl(from.fd.get(), F_SETFL, O_NONBLOCK);
        while (from.fd.get() >= 0 && read_some(from)) {
        }
    }

    // It keeps its number until it is reaped.
    bool ended() const
    {
        siginfo_t about = {};
        return waitid(P_PID, static_cast<id_t>(pid), &about, WEXITED | WNOHANG | WNOWAIT) != 0 ||
               about.si_pid == pid;
    }

    void reap()
    {
        int status = 0;
        rusage used{};
        if (wait4(pid, &status, 0, &used) != pid) {
            return;
        }
        if (WIFSIGNALED(status)) {
            result.signal = WTERMSIG(status);
        } else {
            result.exit_status = WEXITSTATUS(status);
        }
        const auto microseconds = [](const timeval &time) {
            return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
        };
        result.cpu_time = microseconds(used.ru_utime) + microseconds(used.ru_stime);
        result.peak_memory_kib = used.ru_maxrss;
    }

    void heed_interrupts()
    {
        const stop asked = asked_to_stop();
        if (asked == stop::no) {
            return;
        }
        if (asked == stop::soon && options.stop_signal != 0) {
            if (!std::exchange(told_to_stop, true)) {
                kill(pid, options.stop_signal);
            }
        } else if (!is_ending) {
            result.interrupted = true;
            begin_ending();
        }
    }

    void end_when_late()
    {
        if (!is_ending && is_late()) {
            result.timed_out = true;
            begin_ending();
        }
        if (is_ending && steady::now() >= killing_time) {
            kill(-pid, SIGKILL);
        }
    }

    void begin_ending()
    {
        is_ending = true;
        killing_time = steady::now();
        if (options.timeout_signal != 0) {
            kill(-pid, options.timeout_signal);
            killing_time += GRACE;
        }
    }

    bool is_late() const
    {
        const steady::time_point deadline =
            options.deadline ? options.deadline() : steady::time_point::max();
        const steady::time_point now = steady::now();
        return now >= deadline ||
               (options.timeout.count() != 0 && now >= started + options.timeout) ||
               (options.is_over && options.is_over(pid));
    }

    const process_options &options;
    pid_t pid;
    stream output;
    stream errors;
    unique_fd end;
    steady::time_point started;
    bool told_to_stop = false;
    bool is_ending = false;
    steady::time_point killing_time;
    process_result result;
};

} // namespace

process_result run_process(const process_options &options)
{
    process_result failed;
    pipe_ends output;
    pipe_ends errors;
    if (!open_pipe(output) || !open_pipe(errors)) {
        failed.errors = std::strerror(errno);
        return failed;
    }
    pid_t pid = 0;
    const steady::time_point start = steady::now();
    const int error = spawn(options, output.writing.get(), errors.writing.get(), &pid);
    if (error != 0) {
        failed.errors = options.arguments[0] + ": " + std::strerror(error);
        return failed;
    }
    output.writing.reset();
    errors.writing.reset();
    return follower(options, pid, start, std::move(output.reading), std::move(errors.reading))
        .follow();
}

process_result required_process(const process_options &options)
{
    process_result result = run_process(options);
    if (result.interrupted) {
        throw interrupted{};
    }
    if (!result.started) {
        throw std::runtime_error("cannot start " + result.errors);
    }
    return result;
}

std::vector<char *> pointers_to(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::string signal_name(int signal)
{
    const char *abbreviation = sigabbrev_np(signal);
    return abbreviation ? std::string("SIG") + abbreviation : "signal " + std::to_string(signal);
}

std::string shell_line(const std::vector<std::string> &environment,
                       const std::vector<std::string> &arguments)
{
    const auto quoted = [](const std::string &text) {
        constexpr std::string_view PLAIN = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                           "0123456789_-+=./:,@%";
        if (!text.empty() && text.find_first_not_of(PLAIN) == std::string::npos) {
            return text;
        }
        std::string result = "'";
        for (const char character : text) {
            result += character == '\'' ? std::string("'\\''") : std::string(1, character);
        }
        return result + "'";
    };
    std::string line;
    for (const std::string &assignment : environment) {
        const std::string name = variable_name(assignment);
        line += name + quoted(assignment.substr(name.size())) + " ";
    }
    for (const std::string &argument : arguments) {
        line += quoted(argument) + " ";
    }
    line.pop_back();
    return line;
}

} // namespace tools

// SPDX-License-Identifier: MIT
//
// Starting a process with posix_spawn and following it to its end.
#include "tools/common/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tools {

namespace {

using steady = std::chrono::steady_clock;

// How long a process may take to end after it was asked politely.
constexpr std::chrono::milliseconds GRACE{500};

class unique_fd {
public:
    explicit unique_fd(int fd = -1) : value(fd) {}
    unique_fd(unique_fd &&other) noexcept : value(std::exchange(other.value, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset();
        value = std::exchange(other.value, -1);
        return *this;
    }
    ~unique_fd() { reset(); }
    int get() const { return value; }
    void reset()
    {
        if (value >= 0) {
            close(value);
        }
        value = -1;
    }

private:
    int value;
};

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

// Starts the program in a process group of its own; returns 0 or an error number.
int spawn(const process_options &options, int output, int errors, pid_t *pid)
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    posix_spawnattr_init(&attributes);
    sigset_t nothing;
    sigset_t defaults;
    sigemptyset(&nothing);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &nothing);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                              POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> arguments = options.arguments;
    std::vector<std::string> environment = merged_environment(options.environment);
    const int error = posix_spawnp(pid, arguments[0].c_str(), &actions, &attributes,
                                   pointers_to(arguments).data(), pointers_to(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

// Reads what is there into `text`; false at the end of the stream.
bool read_some(int fd, std::string &text, std::string_view &piece)
{
    std::array<char, 16384> chunk{};
    const ssize_t count = read(fd, chunk.data(), chunk.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
        return true;
    }
    if (count <= 0) {
        return false;
    }
    const std::size_t before = text.size();
    text.append(chunk.data(), static_cast<std::size_t>(count));
    piece = std::string_view(text).substr(before);
    return true;
}

// Follows a started process to its end.
class follower {
public:
    follower(const process_options &how, pid_t process, steady::time_point its_start,
             unique_fd its_output, unique_fd its_errors)
        : options(how), pid(process), output(std::move(its_output)), errors(std::move(its_errors)),
          end(end_of(process)), started(its_start)
    {
    }

    process_result follow()
    {
        result.started = true;
        while (!ended()) {
            enforce_timeout();
            poll_streams();
        }
        drain();
        // What it started itself and left behind goes with it.
        kill(-pid, SIGKILL);
        result.wall_time =
            std::chrono::duration_cast<std::chrono::microseconds>(steady::now() - started);
        return std::move(result);
    }

private:
    void poll_streams()
    {
        std::array<pollfd, 3> streams{
            {{output.get(), POLLIN, 0}, {errors.get(), POLLIN, 0}, {end.get(), POLLIN, 0}}};
        const int slice_ms = end.get() >= 0 ? 20 : 1;
        if (poll(streams.data(), streams.size(), slice_ms) <= 0) {
            return;
        }
        std::string_view piece;
        if (streams[0].revents && !read_some(output.get(), result.output, piece)) {
            output.reset();
        }
        if (!piece.empty() && options.on_output && options.on_output(piece)) {
            kill(pid, options.stop_signal);
        }
        if (streams[1].revents && !read_some(errors.get(), result.errors, piece)) {
            errors.reset();
        }
    }

    // What stands in the pipes when the process has ended.
    void drain()
    {
        for (auto [stream, text] :
             {std::pair{&output, &result.output}, std::pair{&errors, &result.errors}}) {
            if (stream->get() < 0) {
                continue;
            }
            fcntl(stream->get(), F_SETFL, O_NONBLOCK);
            for (;;) {
                std::string_view piece;
                const std::size_t before = text->size();
                if (!read_some(stream->get(), *text, piece) || text->size() == before) {
                    break;
                }
                if (stream == &output && options.on_output) {
                    options.on_output(piece);
                }
            }
        }
    }

    bool ended()
    {
        if (reaped) {
            return true;
        }
        int status = 0;
        rusage used{};
        if (wait4(pid, &status, WNOHANG, &used) != pid) {
            return false;
        }
        reaped = true;
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
        return true;
    }

    void enforce_timeout()
    {
        if (!result.timed_out) {
            if (!is_late()) {
                return;
            }
            result.timed_out = true;
            killing_time = steady::now();
            if (options.timeout_signal != 0) {
                kill(-pid, options.timeout_signal);
                killing_time += GRACE;
            }
        }
        if (steady::now() >= killing_time) {
            kill(-pid, SIGKILL);
        }
    }

    bool is_late() const
    {
        const auto now = steady::now();
        return (options.timeout.count() != 0 && now >= started + options.timeout) ||
               (options.deadline && now >= options.deadline());
    }

    const process_options &options;
    pid_t pid;
    unique_fd output;
    unique_fd errors;
    unique_fd end;
    steady::time_point started;
    steady::time_point killing_time;
    process_result result;
    bool reaped = false;
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

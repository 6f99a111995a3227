// SPDX-License-Identifier: MIT
//
// A child for each job, which sends its answers as they come. They are objects of the same program
// on both sides, so their numbers are sent as they stand in memory.
#include "tools/sequence/worker.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "tools/common/hang_watch.h"
#include "tools/common/usage_error.h"
#include "tools/sequence/executor.h"
#include "tools/sequence/library.h"

namespace sequence {

namespace {

using std::chrono::milliseconds;

// So many children at a time, and as many more whenever none of them has had anything to say for a
// while: they wait, each for itself, and cost nothing.
constexpr std::size_t AT_ONCE = 16;
constexpr std::size_t MOST_AT_ONCE = 256;
constexpr milliseconds QUIET{20};
// Opening a library on a busy machine.
constexpr milliseconds START{20000};

// A call that prints so much floods, whether it would return or not; so does one that does not
// return when it has printed the lesser number. Bytes.
constexpr std::size_t FLOOD = std::size_t{1} << 20;
constexpr std::size_t UNRETURNED_FLOOD = std::size_t{128} << 10;

// What a message is about, in place of a call's number.
constexpr std::uint32_t REFUSED = ~std::uint32_t{0};

template <typename number> void put(std::string &bytes, const number &one)
{
    bytes.append(reinterpret_cast<const char *>(&one), sizeof one);
}

void put_value(std::string &bytes, const value &one)
{
    put(bytes, one.kind);
    put(bytes, static_cast<std::uint32_t>(one.scalars.size()));
    for (const scalar &each : one.scalars) put(bytes, each);
    put(bytes, static_cast<std::uint32_t>(one.bytes.size()));
    bytes += one.bytes;
}

std::string message_of(std::uint32_t index, const answer &given)
{
    std::string bytes;
    put(bytes, index);
    put_value(bytes, given.result);
    put(bytes, static_cast<std::uint32_t>(given.stored.size()));
    for (const value &each : given.stored) put_value(bytes, each);
    return bytes;
}

class message_reader {
public:
    explicit message_reader(std::string_view bytes) : bytes_(bytes) {}

    template <typename number> number take()
    {
        number one;
        std::memcpy(&one, bytes_.data(), sizeof one);
        bytes_.remove_prefix(sizeof one);
        return one;
    }

    std::string take_bytes(std::size_t count)
    {
        std::string taken(bytes_.substr(0, count));
        bytes_.remove_prefix(count);
        return taken;
    }

    value take_value()
    {
        value one;
        one.kind = take<value_kind>();
        one.scalars.resize(take<std::uint32_t>());
        for (scalar &each : one.scalars) each = take<scalar>();
        one.bytes = take_bytes(take<std::uint32_t>());
        return one;
    }

    answer take_answer()
    {
        answer given;
        given.result = take_value();
        given.stored.resize(take<std::uint32_t>());
        for (value &each : given.stored) each = take_value();
        return given;
    }

    std::string rest() const { return std::string(bytes_); }

private:
    std::string_view bytes_;
};

void send(int pipe, const std::string &message)
{
    std::string bytes;
    put(bytes, static_cast<std::uint32_t>(message.size()));
    bytes += message;
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t written = write(pipe, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) _exit(1);
        done += static_cast<std::size_t>(written);
    }
}

[[noreturn]] void be_child(int pipe, int printed, const call_sequence &made, const job &what)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGINT, SIGTERM, SIGPIPE}) signal(number, SIG_DFL);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    for (const int standard : {STDOUT_FILENO, STDERR_FILENO}) dup2(printed, standard);
    set_environment(what.setup);
    try {
        const library tested(what.setup.path);
        // The first message says that the calls begin.
        send(pipe, message_of(REFUSED - 1, {}));
        const bool is_part = what.end < made.calls.size();
        execute(tested, made, what.end, [&](std::size_t index, answer &&given) {
            send(pipe, message_of(static_cast<std::uint32_t>(index), given));
            // What waits for a call that is not wanted any more would wait in vain.
            if (is_part && index + 1 == what.end) _exit(0);
        });
    } catch (const std::exception &error) {
        std::string message;
        put(message, REFUSED);
        send(pipe, message + error.what());
    }
    _exit(0);
}

milliseconds record_time(const value &timeout)
{
    if (timeout.kind != value_kind::record) return milliseconds{0};
    return milliseconds(timeout.scalars[0].number * 1000 + timeout.scalars[1].number / 1000);
}

std::array<int, 2> new_pipe()
{
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    return ends;
}

class child {
public:
    child(const call_sequence &made, const job &what, const limits &allowed)
        : made_(made), allowed_(allowed), watch_(START)
    {
        end_ = std::min(what.end, made.calls.size());
        given_.resize(end_);
        const auto [answers_read, answers_written] = new_pipe();
        const auto [printed_read, printed_written] = new_pipe();
        id_ = fork();
        if (id_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (id_ == 0) be_child(answers_written, printed_written, made, what);
        close(answers_written);
        close(printed_written);
        pipe_ = answers_read;
        printed_ = printed_read;
    }
    child(const child &) = delete;
    child &operator=(const child &) = delete;
    ~child()
    {
        if (id_ > 0) finish();
    }

    int pipe() const { return pipe_; }
    bool is_hang() { return watch_.is_hang(id_); }
    // What the library prints: no answer, but too much of it is one. -1 when it prints no more.
    int printed() const { return printed_; }

    // Takes what has come; false when nothing more will.
    bool read_on()
    {
        char piece[65536];
        const ssize_t count = read(pipe_, piece, sizeof piece);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) return true;
        if (count <= 0) return false;
        received_.append(piece, static_cast<std::size_t>(count));
        std::size_t at = 0;
        std::uint32_t size = 0;
        while (received_.size() - at >= sizeof size) {
            std::memcpy(&size, received_.data() + at, sizeof size);
            if (received_.size() - at - sizeof size < size) break;
            take(std::string_view(received_).substr(at + sizeof size, size));
            at += sizeof size + size;
        }
        received_.erase(0, at);
        return true;
    }

    // Counts what has been printed since the last answer.
    void read_printed()
    {
        char piece[65536];
        const ssize_t count = read(printed_, piece, sizeof piece);
        if (count > 0) printed_bytes_ += static_cast<std::size_t>(count);
        if (count == 0) close_printed();
    }

    bool is_flooding() const { return printed_bytes_ > FLOOD; }

    // Ends the process; what has no answer flooded, hung, or crashed.
    answers end(bool is_late)
    {
        if (is_late) kill(id_, SIGKILL);
        const int status = finish();
        if (!refusal_.empty()) throw tools::usage_error(refusal_);
        const bool was_cut = !is_late && end_ < made_.calls.size() && given_[end_ - 1];
        const auto [blocked, begun] = was_cut ? std::pair(end_, end_) : progress();
        for (std::size_t i = 0; i < begun; i++) {
            if (given_[i]) {
                result_.push_back(std::move(*given_[i]));
                continue;
            }
            answer missing{.outcome = outcome::unreturned};
            missing.stored.resize(made_.calls[i].arguments.size());
            if (i == blocked) {
                missing.outcome = !is_late                            ? outcome::crash
                                  : printed_bytes_ > UNRETURNED_FLOOD ? outcome::flood
                                                                      : outcome::hang;
                if (!is_late && WIFSIGNALED(status)) missing.signal = WTERMSIG(status);
            }
            result_.push_back(std::move(missing));
        }
        return std::move(result_);
    }

private:
    void take(std::string_view message)
    {
        message_reader reader(message);
        const auto index = reader.take<std::uint32_t>();
        if (index == REFUSED) {
            refusal_ = reader.rest();
            return;
        }
        if (index < given_.size()) given_[index] = reader.take_answer();
        printed_bytes_ = 0;
        // The time that the calls which follow may take; several may be under way.
        while (first_missing_ < end_ && given_[first_missing_]) first_missing_++;
        const milliseconds told =
            first_missing_ < end_ ? told_time(made_.calls[first_missing_]) : milliseconds{0};
        watch_ = tools::hang_watch(allowed_.call + told);
    }

    // The call whose answer is waited for, and how many calls have begun.
    std::pair<std::size_t, std::size_t> progress() const
    {
        std::size_t begun = 0;
        std::size_t open = end_;
        for (const step &each : made_.steps) {
            if (each.call >= end_) continue;
            begun = std::max<std::size_t>(begun, each.call + 1);
            if (given_[each.call]) continue;
            open = each.call;
            if (each.phase != phase::begin) break;
        }
        return {open, begun};
    }

    int finish()
    {
        int status = 0;
        close(pipe_);
        close_printed();
        kill(id_, SIGKILL);
        while (waitpid(id_, &status, 0) < 0 && errno == EINTR) continue;
        id_ = -1;
        return status;
    }

    void close_printed()
    {
        if (printed_ >= 0) close(printed_);
        printed_ = -1;
    }

    const call_sequence &made_;
    limits allowed_;
    std::size_t end_ = 0;
    pid_t id_ = -1;
    int pipe_ = -1;
    int printed_ = -1;
    std::size_t printed_bytes_ = 0;
    std::string received_;
    std::string refusal_;
    std::vector<std::optional<answer>> given_;
    std::size_t first_missing_ = 0;
    answers result_;
    tools::hang_watch watch_;
};

} // namespace

milliseconds told_time(const call &made)
{
    if (made.operation == SLEEP) return std::chrono::seconds(made.arguments[0].one().number);
    const operation_schema &which = schema_of(made.operation);
    milliseconds told{0};
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        if (which.parameters[i].name == "timeout") told = record_time(made.arguments[i]);
    }
    return told;
}

void set_environment(const library_setup &setup)
{
    for (const std::string &each : setup.environment) {
        const std::size_t equals = each.find('=');
        if (equals == std::string::npos) {
            unsetenv(each.c_str());
        } else {
            setenv(each.substr(0, equals).c_str(), each.c_str() + equals + 1, 1);
        }
    }
}

std::vector<answers> run_all(const call_sequence &made, const std::vector<job> &jobs,
                             const limits &allowed)
{
    std::vector<job> all = jobs;
    for (job &each : all) {
        if (each.made == nullptr) each.made = &made;
    }
    return run_all(all, allowed);
}

std::vector<answers> run_all(const std::vector<job> &jobs, const limits &allowed)
{
    std::vector<answers> all(jobs.size());
    std::vector<std::pair<std::size_t, std::unique_ptr<child>>> running;
    std::size_t next = 0;
    std::size_t at_once = AT_ONCE;
    while (next < jobs.size() || !running.empty()) {
        while (next < jobs.size() && running.size() < at_once) {
            running.emplace_back(next,
                                 std::make_unique<child>(*jobs[next].made, jobs[next], allowed));
            next++;
        }
        std::vector<pollfd> watched;
        for (const auto &[index, each] : running) {
            watched.push_back({each->pipe(), POLLIN, 0});
            watched.push_back({each->printed(), POLLIN, 0});
        }
        const int count = poll(watched.data(), watched.size(), static_cast<int>(QUIET.count()));
        if (count == 0) at_once = std::min(at_once + AT_ONCE, MOST_AT_ONCE);
        for (std::size_t i = running.size(); i-- > 0;) {
            auto &[index, each] = running[i];
            // Answers first: what is left in the pipe of before one is less than a flood.
            const bool has_more = watched[2 * i].revents == 0 || each->read_on();
            if (watched[2 * i + 1].revents != 0) each->read_printed();
            const bool is_late = has_more && (each->is_flooding() || each->is_hang());
            if (has_more && !is_late) continue;
            all[index] = each->end(is_late);
            running.erase(running.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    return all;
}

std::string printed_when_loaded(const library_setup &setup)
{
    const auto ends = new_pipe();
    const pid_t id = fork();
    if (id < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (id == 0) {
        dup2(ends[1], STDOUT_FILENO);
        set_environment(setup);
        dlopen(library_file(setup.path).c_str(), RTLD_NOW | RTLD_LOCAL);
        _exit(0);
    }
    close(ends[1]);
    std::string text;
    char piece[4096];
    for (ssize_t count = 0; (count = read(ends[0], piece, sizeof piece)) != 0;) {
        if (count > 0) text.append(piece, static_cast<std::size_t>(count));
        if (count < 0 && errno != EINTR) break;
    }
    close(ends[0]);
    while (waitpid(id, nullptr, 0) < 0 && errno == EINTR) continue;
    return text;
}

answers run_one(const call_sequence &made, const job &what, const limits &allowed)
{
    return std::move(run_all(made, {what}, allowed).front());
}

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// What the program takes from the system. Calls of others, by far the most of them, cost a range
// check. The allocator's functions stand here before anything can be looked up: they begin as the C
// library's own and become the next ones in line when the shim is set up.
#include "tools/keltrace/system_calls.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

#include "tools/keltrace/call_faults.h"
#include "tools/keltrace/call_trace.h"
#include "tools/keltrace/census.h"
#include "tools/keltrace/own_code.h"
#include "tools/keltrace/record.h"
#include "tools/keltrace/state.h"

// NOLINTBEGIN(cert-dcl37-c): the names that the C library gives them
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void __libc_free(void *memory);
}
// NOLINTEND(cert-dcl37-c)

namespace keltrace {

namespace {

using malloc_function = void *(std::size_t);
using calloc_function = void *(std::size_t, std::size_t);
using free_function = void(void *);

constinit std::atomic<malloc_function *> next_malloc{__libc_malloc};
constinit std::atomic<calloc_function *> next_calloc{__libc_calloc};
constinit std::atomic<free_function *> next_free{__libc_free};

template <typename Function> void look_up(std::atomic<Function *> &next, const char *name)
{
    std::atomic<void *> found{nullptr};
    next.store(reinterpret_cast<Function *>(next_function(found, name)));
}

template <typename Function> Function *next_as(std::atomic<void *> &found, const char *name)
{
    return reinterpret_cast<Function *>(next_function(found, name));
}

// One call of the system's by the program: its number, its faults, its line.
class system_call {
public:
    explicit system_call(operation which) : which_(which), number_(count_call(which)) {}

    // Whether the call is made; otherwise `stand_in` says what comes of it.
    template <typename StandIn> bool before(StandIn stand_in)
    {
        bool work = true;
        for (fault *each : faults_of(which_)) {
            if (!each->matches(number_)) continue;
            each->hits.fetch_add(1, std::memory_order_relaxed);
            if (each->what == action::nothing || each->what == action::add) continue;
            if (each->what == action::delay) {
                pause_for(each->value);
            } else {
                stand_in(*each);
                work = false;
            }
            count_fired(*each);
        }
        return work;
    }

    // What is added to the time of day.
    std::int64_t added()
    {
        std::int64_t sum = 0;
        for (fault *each : faults_of(which_)) {
            if (!each->matches(number_) || each->what != action::add) continue;
            sum += each->signed_value();
            count_fired(*each);
        }
        return sum;
    }

    // `show` adds the arguments to the line.
    template <typename Show> void begin(Show show)
    {
        if (!trace::wanted()) return;
        trace::begin(line_, which_);
        show(line_);
        trace::started(line_, which_);
    }

    // `show` adds the result.
    template <typename Show> void end(Show show)
    {
        if (!trace::wanted()) return;
        const int error = errno;
        show(line_);
        show_faults(line_, which_, number_);
        trace::returned(line_);
        errno = error;
    }

    // The result of calls that say -1 with an error number.
    void end_with(int result)
    {
        const int error = errno;
        end([=](trace_line &line) {
            line.add(" = %d", result);
            if (result < 0) {
                line.add(" ");
                show_number(line, form::error, widened(error));
            }
        });
    }

private:
    operation which_;
    std::uint64_t number_;
    trace_line line_;
};

void take_account(census::kind kind, std::uint64_t number, bool obtained)
{
    if (!census::wanted()) return;
    const int error = errno;
    if (obtained) {
        census::obtain({kind, 0, number, 0}, 0);
    } else {
        census::release({kind, 0, number, 0});
    }
    errno = error;
}

// error= and result= of calls that say -1 with an error number.
int stand_in_result(const fault &each)
{
    if (each.what == action::result) return static_cast<int>(each.value);
    errno = static_cast<int>(each.value);
    return -1;
}

// As sequences have it: what failed is its error number, negative.
std::uint64_t negative_or(int result)
{
    return widened(result < 0 ? -static_cast<std::int64_t>(errno) : result);
}

template <typename Allocate> void *allocate(operation which, std::size_t size, Allocate next)
{
    system_call call(which);
    call.begin([&](trace_line &line) { line.add("(%zu)", size); });
    void *memory = nullptr;
    if (call.before([](const fault &) { errno = ENOMEM; })) memory = next();
    if (memory != nullptr) take_account(census::kind::memory, widened(memory), true);
    call.end([&](trace_line &line) { line.add(" = %p", memory); });
    return memory;
}

template <typename Open> int open_file(const char *path, int flags, Open next)
{
    system_call call(operation::system_open);
    call.begin([&](trace_line &line) {
        line.add("(\"%.60s\", 0x%x)", path, static_cast<unsigned>(flags));
    });
    std::optional<record::call> recorded;
    if (record::wanted() && strcmp(path, KEL_DEVICE) == 0) {
        recorded.emplace(sequence::OPEN_DEVICE, record::raw_arguments{});
    }
    int result = -1;
    if (call.before([&](const fault &each) { result = stand_in_result(each); })) {
        result = next();
        if (result >= 0) {
            take_account(census::kind::descriptor, static_cast<std::uint64_t>(result), true);
        }
    }
    if (recorded) recorded->returned(negative_or(result));
    call.end_with(result);
    return result;
}

bool has_mode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

void show_select(trace_line &line, int count, const fd_set *readable, const fd_set *exceptional,
                 const timeval *timeout)
{
    line.open_list("(");
    line.next_item();
    line.add("%d", count);
    if (readable != nullptr) {
        line.next_item();
        line.add("readable");
    }
    if (exceptional != nullptr) {
        line.next_item();
        line.add("exceptional");
    }
    line.next_item();
    if (timeout != nullptr) {
        show_target(line, timeout);
    } else {
        line.add("no limit");
    }
    line.close_list(")");
}

// The one descriptor of a set; 0: none, -1: several, or one that is no client's.
int only_descriptor(const fd_set *set, int count)
{
    int found = 0;
    for (int i = 0; set != nullptr && i < count; ++i) {
        if (!FD_ISSET(i, set)) continue;
        if (found != 0 || !record::is_known_descriptor(i)) return -1;
        found = i;
    }
    return found;
}

// A select on a client's descriptor, in the sequence that is recorded.
class recorded_select {
public:
    recorded_select(int count, const fd_set *readable, const fd_set *writable,
                    const fd_set *exceptional, timeval *timeout)
        : readable_(only_descriptor(readable, count)),
          exceptional_(only_descriptor(exceptional, count))
    {
        if (readable_ < 0 || exceptional_ < 0 || only_descriptor(writable, count) != 0 ||
            (readable_ == 0 && exceptional_ == 0)) {
            record::comment("a select on other descriptors is no part of this sequence");
            return;
        }
        recorded_.emplace(sequence::SELECT,
                          record::raw_arguments{widened(readable_), widened(exceptional_),
                                                widened(timeout), widened(&is_readable_),
                                                widened(&is_exceptional_)});
    }

    void returned(int result, const fd_set *readable, const fd_set *exceptional)
    {
        if (!recorded_) return;
        is_readable_ = result > 0 && readable_ > 0 && FD_ISSET(readable_, readable);
        is_exceptional_ = result > 0 && exceptional_ > 0 && FD_ISSET(exceptional_, exceptional);
        recorded_->returned(negative_or(result));
    }

private:
    int readable_;
    int exceptional_;
    std::uint32_t is_readable_ = 0;
    std::uint32_t is_exceptional_ = 0;
    std::optional<record::call> recorded_;
};

void clear(fd_set *set)
{
    if (set != nullptr) FD_ZERO(set);
}

} // namespace

void look_up_allocator()
{
    look_up(next_malloc, "malloc");
    look_up(next_calloc, "calloc");
    look_up(next_free, "free");
}

} // namespace keltrace

using namespace keltrace;

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved

#define KELTRACE_EXPORTED extern "C" __attribute__((visibility("default")))
#define KELTRACE_OWN_CALL is_own_code(__builtin_return_address(0))

KELTRACE_EXPORTED void *malloc(std::size_t size) noexcept
{
    auto *next = next_malloc.load(std::memory_order_relaxed);
    if (!KELTRACE_OWN_CALL) return next(size);
    return allocate(operation::system_malloc, size, [=] { return next(size); });
}

KELTRACE_EXPORTED void *calloc(std::size_t count, std::size_t size) noexcept
{
    auto *next = next_calloc.load(std::memory_order_relaxed);
    if (!KELTRACE_OWN_CALL) return next(count, size);
    return allocate(operation::system_calloc, count * size, [=] { return next(count, size); });
}

KELTRACE_EXPORTED void free(void *memory) noexcept
{
    if (KELTRACE_OWN_CALL && memory != nullptr) {
        take_account(census::kind::memory, widened(memory), false);
    }
    next_free.load(std::memory_order_relaxed)(memory);
}

KELTRACE_EXPORTED int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                                     void *(*routine)(void *), void *argument) noexcept
{
    static constinit std::atomic<void *> found{nullptr};
    auto *next = next_as<decltype(pthread_create)>(found, "pthread_create");
    if (!KELTRACE_OWN_CALL) return next(thread, attributes, routine, argument);

    system_call call(operation::system_pthread_create);
    call.begin([&](trace_line &line) { line.add("()"); });
    int result = 0;
    if (call.before([&](const fault &each) { result = static_cast<int>(each.value); })) {
        result = next(thread, attributes, routine, argument);
        if (result == 0) take_account(census::kind::thread, widened(*thread), true);
    }
    call.end([&](trace_line &line) {
        line.add(" = ");
        show_number(line, form::error, widened(result));
    });
    return result;
}

KELTRACE_EXPORTED int pthread_join(pthread_t thread, void **value)
{
    static constinit std::atomic<void *> found{nullptr};
    auto *next = next_as<int(pthread_t, void **)>(found, "pthread_join");
    const bool own = KELTRACE_OWN_CALL;
    const int result = next(thread, value);
    if (own && result == 0) take_account(census::kind::thread, widened(thread), false);
    return result;
}

KELTRACE_EXPORTED int select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional,
                             timeval *timeout)
{
    static constinit std::atomic<void *> found{nullptr};
    auto *next = next_as<decltype(select)>(found, "select");
    if (!KELTRACE_OWN_CALL) return next(count, readable, writable, exceptional, timeout);

    system_call call(operation::system_select);
    call.begin([&](trace_line &line) { show_select(line, count, readable, exceptional, timeout); });
    int result = -1;
    const auto stand_in = [&](const fault &each) {
        result = stand_in_result(each);
        if (result != 0) return;
        clear(readable);
        clear(writable);
        clear(exceptional);
    };
    std::optional<recorded_select> recorded;
    if (record::wanted()) recorded.emplace(count, readable, writable, exceptional, timeout);
    if (call.before(stand_in)) result = next(count, readable, writable, exceptional, timeout);
    if (recorded) recorded->returned(result, readable, exceptional);
    call.end_with(result);
    return result;
}

// The forms of open differ in their names and in where they begin to look.
#define KELTRACE_OPEN(function)                                                                    \
    KELTRACE_EXPORTED int function(const char *path, int flags, ...)                               \
    {                                                                                              \
        static constinit std::atomic<void *> found{nullptr};                                       \
        auto *next = next_as<int(const char *, int, ...)>(found, #function);                       \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        const mode_t mode = has_mode(flags) ? va_arg(rest, mode_t) : 0;                            \
        va_end(rest);                                                                              \
        if (!KELTRACE_OWN_CALL) return next(path, flags, mode);                                    \
        return open_file(path, flags, [=] { return next(path, flags, mode); });                    \
    }

#define KELTRACE_OPENAT(function)                                                                  \
    KELTRACE_EXPORTED int function(int folder, const char *path, int flags, ...)                   \
    {                                                                                              \
        static constinit std::atomic<void *> found{nullptr};                                       \
        auto *next = next_as<int(int, const char *, int, ...)>(found, #function);                  \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        const mode_t mode = has_mode(flags) ? va_arg(rest, mode_t) : 0;                            \
        va_end(rest);                                                                              \
        if (!KELTRACE_OWN_CALL) return next(folder, path, flags, mode);                            \
        return open_file(path, flags, [=] { return next(folder, path, flags, mode); });            \
    }

KELTRACE_OPEN(open)
KELTRACE_OPEN(open64)
KELTRACE_OPENAT(openat)
KELTRACE_OPENAT(openat64)

KELTRACE_EXPORTED int close(int descriptor)
{
    static constinit std::atomic<void *> found{nullptr};
    auto *next = next_as<int(int)>(found, "close");
    if (!KELTRACE_OWN_CALL || descriptor < 0) return next(descriptor);
    take_account(census::kind::descriptor, static_cast<std::uint64_t>(descriptor), false);
    std::optional<record::call> recorded;
    if (record::wanted() && record::is_known_descriptor(descriptor)) {
        recorded.emplace(sequence::CLOSE_DEVICE, record::raw_arguments{widened(descriptor)});
    }
    const int result = next(descriptor);
    if (recorded) recorded->returned(widened(result < 0 ? errno : 0));
    return result;
}

KELTRACE_EXPORTED int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    static constinit std::atomic<void *> found{nullptr};
    auto *next = next_as<int(int, unsigned long, ...)>(found, "ioctl");
    va_list rest;
    va_start(rest, request);
    void *argument = va_arg(rest, void *);
    va_end(rest);
    if (!KELTRACE_OWN_CALL) return next(descriptor, request, argument);

    system_call call(operation::system_ioctl);
    call.begin(
        [&](trace_line &line) { line.add("(%d, 0x%lx, %p)", descriptor, request, argument); });
    std::optional<record::call> recorded;
    if (record::wanted() && record::is_known_descriptor(descriptor)) {
        recorded.emplace(sequence::IOCTL,
                         record::raw_arguments{widened(descriptor), request, widened(argument)});
    }
    int result = -1;
    if (call.before([&](const fault &each) { result = stand_in_result(each); })) {
        result = next(descriptor, request, argument);
    }
    if (recorded) recorded->returned(widened(result < 0 ? errno : 0));
    call.end_with(result);
    return result;
}

KELTRACE_EXPORTED unsigned sleep(unsigned seconds)
{
    static constinit std::atomic<void *> found{nullptr};
    auto *next = next_as<unsigned(unsigned)>(found, "sleep");
    if (!KELTRACE_OWN_CALL) return next(seconds);

    system_call call(operation::system_sleep);
    call.begin([&](trace_line &line) { line.add("(%u)", seconds); });
    std::optional<record::call> recorded;
    if (record::wanted()) recorded.emplace(sequence::SLEEP, record::raw_arguments{seconds});
    unsigned left = 0;
    if (call.before([](const fault &) {})) left = next(seconds);
    if (recorded) recorded->returned(left);
    call.end([&](trace_line &line) { line.add(" = %u", left); });
    return left;
}

KELTRACE_EXPORTED int gettimeofday(timeval *now, void *zone) noexcept
{
    static constinit std::atomic<void *> found{nullptr};
    auto *next = next_as<int(timeval *, void *)>(found, "gettimeofday");
    if (!KELTRACE_OWN_CALL) return next(now, zone);

    constexpr std::int64_t SECOND = 1000000;
    system_call call(operation::system_gettimeofday);
    call.begin([&](trace_line &line) { line.add("()"); });
    call.before([](const fault &) {});
    const int result = next(now, zone);
    if (const std::int64_t added = call.added(); added != 0 && result == 0) {
        std::int64_t fraction = now->tv_usec + added % SECOND;
        now->tv_sec += added / SECOND + (fraction < 0 ? -1 : fraction / SECOND);
        now->tv_usec = (fraction + SECOND) % SECOND;
    }
    call.end_with(result);
    return result;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

// SPDX-License-Identifier: MIT
//
// Setting up from the environment before main, and what is written when the process ends, of
// itself or by a signal. Without settings nothing is installed and nothing is written.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <initializer_list>
#include <string>
#include <unistd.h>

#include "tools/keltrace/census.h"
#include "tools/keltrace/fault_list.h"
#include "tools/keltrace/fault_plan.h"
#include "tools/keltrace/numbers.h"
#include "tools/keltrace/own_code.h"
#include "tools/keltrace/record.h"
#include "tools/keltrace/report.h"
#include "tools/keltrace/state.h"
#include "tools/keltrace/system_calls.h"
#include "tools/keltrace/trace.h"

namespace keltrace {

namespace {

constexpr std::size_t RING_CALLS = 32;
constexpr std::size_t RING_MAX = 1000000;

// Only the process that was set up writes; a child that it forks does not.
constinit pid_t self = 0;

[[noreturn]] void refuse(const char *variable, const std::string &why)
{
    dprintf(STDERR_FILENO, "keltrace: %s: %s\n", variable, why.c_str());
    _exit(2);
}

// A variable that is set and not empty; else null.
const char *setting(const char *variable)
{
    const char *value = getenv(variable);
    return value != nullptr && *value != 0 ? value : nullptr;
}

// What goes there is appended; "-" or "2" is standard error.
int file_of(const char *variable, const char *path)
{
    if (strcmp(path, "-") == 0 || strcmp(path, "2") == 0) return STDERR_FILENO;
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0) refuse(variable, std::string(path) + ": " + strerror(errno));
    return file;
}

void write_all_of_it()
{
    if (getpid() != self) return;
    trace::write_unreturned();
    trace::write_ring();
    report::write();
}

void on_request(int)
{
    const int error = errno;
    write_all_of_it();
    errno = error;
}

// The action has been reset: the signal ends the process as it would have without the shim.
void on_end(int signal)
{
    write_all_of_it();
    raise(signal);
}

void set_handler(int signal, void (*handler)(int), int flags)
{
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

void catch_signals()
{
    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTERM}) {
        set_handler(signal, on_end, static_cast<int>(SA_RESETHAND));
    }
    set_handler(SIGUSR1, on_request, SA_RESTART);
}

void read_list()
{
    const char *what = setting("KELTRACE_LIST");
    if (what == nullptr) return;
    if (strcmp(what, "faults") != 0) refuse("KELTRACE_LIST", "not faults");
    list_faults();
    _exit(0);
}

void read_faults()
{
    const char *list = setting("KELTRACE_FAULTS");
    if (list == nullptr) return;
    auto *parsed = new fault_plan;
    // What the reference library is asked for; others have nothing of that name.
    auto *offer =
        reinterpret_cast<offer_to_library *>(dlsym(RTLD_NEXT, "kel_reference_choose_fault"));
    report::set_library_counts(dlsym(RTLD_NEXT, "kel_reference_count_fault"));
    if (auto wrong = parse_plan(list, *parsed, offer); !wrong.empty()) {
        refuse("KELTRACE_FAULTS", wrong);
    }
    plan = parsed;
}

void read_ring()
{
    const char *calls = setting("KELTRACE_RING");
    const char *path = setting("KELTRACE_RING_FILE");
    if (calls == nullptr && path == nullptr) return;

    std::size_t count = RING_CALLS;
    if (calls != nullptr) {
        const auto parsed = parse_number(calls);
        if (!parsed || parsed->negative || parsed->magnitude == 0 || parsed->magnitude > RING_MAX) {
            refuse("KELTRACE_RING", "bad number of calls '" + std::string(calls) + "'");
        }
        count = static_cast<std::size_t>(parsed->magnitude);
    }
    trace::keep_ring(count, file_of("KELTRACE_RING_FILE", path == nullptr ? "2" : path));
}

[[gnu::constructor]] void set_up()
{
    self = getpid();
    look_up_allocator();
    read_list();
    read_faults();
    read_ring();
    if (const char *path = setting("KELTRACE_TRACE")) {
        trace::write_to(file_of("KELTRACE_TRACE", path));
    }
    if (const char *path = setting("KELTRACE_LEFT")) {
        census::keep_calls(file_of("KELTRACE_LEFT", path));
    }
    const char *path = setting("KELTRACE_REPORT");
    if (path != nullptr) {
        report::start(path);
        census::start();
    }
    if (path != nullptr || trace::wanted()) catch_signals();
    if (const char *record_path = setting("KELTRACE_RECORD")) {
        if (auto wrong = record::open_file(record_path); !wrong.empty()) {
            refuse("KELTRACE_RECORD", wrong);
        }
    }
    own_code::find();
}

[[gnu::destructor]] void finish()
{
    write_all_of_it();
    if (getpid() == self) census::write_left();
}

} // namespace

} // namespace keltrace

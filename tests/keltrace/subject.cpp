// SPDX-License-Identifier: MIT
//
// The program that the shim is tried on. Each word of its command line is a call: the name of an
// operation, called with values that tell their place, or with null for its K-th argument
// ("get_packet~5"); or one of the other words of words(). It prints what came of each.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <pthread.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <tuple>
#include <type_traits>
#include <unistd.h>
#include <utility>

#include "tools/keltrace/operations.h"
#include "tools/keltrace/widths.h"

namespace {

using namespace keltrace;
using call_word = void (*)(std::size_t null_argument);

// An argument and what it names. Numbers are 0x100 and its place, from 1.
template <argument_kind Kind, std::size_t Place> struct held {
    using type = argument_type<Kind>;
    using target =
        std::conditional_t<std::is_pointer_v<type>, std::remove_cv_t<std::remove_pointer_t<type>>,
                           std::remove_cv_t<type>>;
    using storage = std::conditional_t<std::is_void_v<target>, char[8], target>;

    static constexpr bool COPIED = info(Kind).form == form::bytes;

    held()
    {
        if constexpr (Kind == argument_kind::source) {
            memcpy(storage_, "ABCDEFGH", sizeof storage_);
        } else if constexpr (Kind == argument_kind::source_length ||
                             Kind == argument_kind::destination_length) {
            storage_ = 8;
        } else if constexpr (Kind == argument_kind::head) {
            storage_ = 0x200;
        } else if constexpr (Kind == argument_kind::packet_list) {
            storage_.count = 1;
        } else if constexpr (std::is_integral_v<storage>) {
            storage_ = static_cast<storage>(Kind == argument_kind::flag ? 1 : 0x100 + Place);
        }
    }

    type value()
    {
        if constexpr (!std::is_pointer_v<type>) {
            return storage_;
        } else if constexpr (info(Kind).form == form::text) {
            return "name";
        } else {
            return &storage_;
        }
    }

    void print() const
    {
        if constexpr (std::is_pointer_v<type> && info(Kind).direction != direction::in) {
            printf(" %zu:", Place);
            if constexpr (COPIED) {
                printf("%.8s", storage_);
            } else if constexpr (std::is_scalar_v<storage>) {
                printf("%lld", static_cast<long long>(widened(storage_)));
            } else {
                std::uint32_t words[3];
                memcpy(words, &storage_, sizeof words);
                printf("%u,%u,%u", words[0], words[1], words[2]);
            }
        }
    }

    storage storage_{};
};

template <operation Id, auto Function> void invoke(std::size_t null_argument)
{
    [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        std::tuple<held<info(Id).arguments[I].kind, I + 1>...> arguments;
        [[maybe_unused]] const auto pass = [&](auto &argument, std::size_t place) {
            using type = decltype(argument.value());
            return place == null_argument ? type{} : argument.value();
        };
        if constexpr (info(info(Id).result).form == form::none) {
            Function(pass(std::get<I>(arguments), I + 1)...);
            printf("%s", info(Id).name);
        } else {
            const auto result = Function(pass(std::get<I>(arguments), I + 1)...);
            printf("%s = %lld", info(Id).name, static_cast<long long>(result));
        }
        (std::get<I>(arguments).print(), ...);
        printf("\n");
    }
    (std::make_index_sequence<info(Id).argument_count>());
}

void print_result(const char *name, int result)
{
    printf("%s = %d%s%s\n", name, result, result < 0 ? " " : "",
           result < 0 ? strerrorname_np(errno) : "");
}

// The compiler must not leave the allocations out.
void *volatile kept;

void call_malloc(std::size_t)
{
    kept = malloc(10);
    printf("malloc %s\n", kept == nullptr ? "failed" : "done");
    free(kept);
}

void call_malloc_kept(std::size_t)
{
    kept = malloc(10);
    printf("malloc kept\n");
}

void call_calloc(std::size_t)
{
    kept = calloc(2, 5);
    printf("calloc %s\n", kept == nullptr ? "failed" : "done");
    free(kept);
}

void *thread_body(void *)
{
    invoke<operation::kel_recv, &kel_recv>(0);
    return nullptr;
}

void call_pthread_create(std::size_t)
{
    pthread_t thread;
    const int error = pthread_create(&thread, nullptr, thread_body, nullptr);
    if (error == 0) pthread_join(thread, nullptr);
    printf("pthread_create = %d\n", error);
}

void call_select(std::size_t)
{
    int ends[2];
    if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1) abort();
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(ends[0], &readable);
    timeval timeout{0, 0};
    const int result = select(ends[0] + 1, &readable, nullptr, nullptr, &timeout);
    const bool set = FD_ISSET(ends[0], &readable);
    print_result("select", result);
    printf("select set %d\n", set);
}

void call_open(std::size_t)
{
    const int file = open("/dev/null", O_RDWR);
    print_result("open", file < 0 ? file : 1);
    if (file >= 0) close(file);
}

void call_open64(std::size_t)
{
    const int file = openat64(AT_FDCWD, "/dev/null", O_RDWR);
    print_result("open", file < 0 ? file : 1);
}

void call_ioctl(std::size_t)
{
    int waiting = 0;
    int ends[2];
    if (pipe(ends) != 0 || write(ends[1], "xyz", 3) != 3) abort();
    print_result("ioctl", ioctl(ends[0], FIONREAD, &waiting));
    printf("ioctl waiting %d\n", waiting);
}

void call_sleep(std::size_t)
{
    printf("sleep = %u\n", sleep(1));
}

void call_gettimeofday(std::size_t)
{
    timeval now;
    print_result("gettimeofday", gettimeofday(&now, nullptr));
    const time_t clock = time(nullptr);
    const time_t ahead = now.tv_sec - clock;
    // The two clocks may be a second apart.
    printf("gettimeofday %s, %s\n",
           ahead > 50    ? "ahead"
           : ahead < -50 ? "behind"
                         : "right",
           now.tv_usec >= 0 && now.tv_usec < 1000000 ? "sound" : "broken");
}

void crash(std::size_t)
{
    fflush(stdout);
    raise(SIGSEGV);
}

void hang(std::size_t)
{
    fflush(stdout);
    select(0, nullptr, nullptr, nullptr, nullptr);
}

const std::map<std::string_view, call_word> &words()
{
    static const std::map<std::string_view, call_word> known = {
#define OPERATION(f, ...) {info(operation::f).name, invoke<operation::f, &f>},
#include "kelapi/operations.def"
        {"malloc", call_malloc}, {"malloc_kept", call_malloc_kept},
        {"calloc", call_calloc}, {"pthread_create", call_pthread_create},
        {"select", call_select}, {"open", call_open},
        {"open64", call_open64}, {"ioctl", call_ioctl},
        {"sleep", call_sleep},   {"gettimeofday", call_gettimeofday},
        {"crash", crash},        {"hang", hang},
    };
    return known;
}

} // namespace

int main(int count, char **arguments)
{
    for (int i = 1; i < count; ++i) {
        std::string_view word = arguments[i];
        std::size_t null_argument = 0;
        if (const auto mark = word.find('~'); mark != word.npos) {
            null_argument = static_cast<std::size_t>(word[mark + 1] - '0');
            word = word.substr(0, mark);
        }
        const auto found = words().find(word);
        if (found == words().end()) return 3;
        found->second(null_argument);
    }
    return 0;
}

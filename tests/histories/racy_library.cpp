// SPDX-License-Identifier: MIT
//
// A libkel that is right for one thread and wrong for several: it hands each call to the library
// that RACY_LIBRARY names and, as RACY_FAULT says, has a window in which a second call does harm. A
// thread sleeps in the window, so that others come into it on every machine. Some faults need one
// thread only.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "kelapi/kel.h"

namespace {

constexpr useconds_t WINDOW = 300;

const char *setting(const char *name)
{
    const char *value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool is_fault(const char *name)
{
    static const std::string CHOSEN = setting("RACY_FAULT");
    return CHOSEN == name;
}

void *symbol(const char *name)
{
    static void *const LIBRARY = dlopen(setting("RACY_LIBRARY"), RTLD_NOW | RTLD_LOCAL);
    void *found = LIBRARY == nullptr ? nullptr : dlsym(LIBRARY, name);
    if (found == nullptr) std::abort();
    return found;
}

// One call in a window, and whether another was in it at the same time.
class window {
public:
    explicit window(std::atomic<int> &inside) : inside_(inside)
    {
        is_crossed_ = inside_.fetch_add(1) > 0;
        usleep(WINDOW);
    }
    ~window() { inside_.fetch_sub(1); }
    window(const window &) = delete;
    window &operator=(const window &) = delete;
    bool is_crossed() const { return is_crossed_; }

private:
    std::atomic<int> &inside_;
    bool is_crossed_ = false;
};

#define RESULT_KIND(kind, type, ...) using result_##kind = type;
#define ARGUMENT_KIND(kind, type, ...) using argument_##kind = type;
#include "kelapi/operations.def"

struct right {

#define PARAMETER(kind, name) argument_##kind name
#define NAME(kind, name) name
#define OPERATION(function, result, ...)                                                           \
    static result_##result function(FOR_EACH_ARGUMENT(PARAMETER, __VA_ARGS__))                     \
    {                                                                                              \
        static const auto CALLED = reinterpret_cast<decltype(&::function)>(symbol(#function));     \
        return CALLED(FOR_EACH_ARGUMENT(NAME, __VA_ARGS__));                                       \
    }
#include "kelapi/operations.def"
};

std::atomic<int> in_send, in_receive, in_count;
std::atomic<kel_packet> kept_back, given;
int counted;                // without a lock
std::atomic<int> allocated; // as it is

// Its own operations stand before the right ones.
struct racy : right {
    // The queue's end is read before another packet is put there.
    static std::uint32_t send_out_of_order(kel_client client, kel_packet packet)
    {
        const std::uint32_t error = right::kel_send(client, packet);
        if (const kel_packet late = kept_back.exchange(0)) right::kel_send(client, late);
        return error;
    }

    static std::uint32_t kel_send(kel_client client, kel_packet packet)
    {
        if (is_fault("none") || right::kel_get_length(packet) == 0) {
            return right::kel_send(client, packet);
        }
        const window now(in_send);
        if (now.is_crossed() && is_fault("loses")) return 0;
        if (now.is_crossed() && is_fault("hangs")) pause();
        if (now.is_crossed() && is_fault("crashes")) std::abort();
        if (!is_fault("reorders")) return right::kel_send(client, packet);
        kel_packet nothing = 0;
        if (now.is_crossed() && kept_back.compare_exchange_strong(nothing, packet)) return 0;
        return send_out_of_order(client, packet);
    }

    static kel_packet kel_recv(kel_client client)
    {
        if (const kel_packet late = kept_back.exchange(0)) right::kel_send(client, late);
        if (!is_fault("gives_twice")) return right::kel_recv(client);
        const kel_packet received = right::kel_recv(client);
        if (received != 0) given = received;
        const window now(in_receive);
        return received == 0 && now.is_crossed() ? given.load() : received;
    }

    static void count(int more)
    {
        if (!is_fault("miscounts")) return;
        allocated += more;
        const int before = counted;
        const window now(in_count);
        counted = before + more;
    }

    static kel_packet kel_get_packet(kel_client client, kel_bufgroup group, std::uint32_t size,
                                     std::uint8_t contiguous, std::uint32_t *error)
    {
        const kel_packet got = right::kel_get_packet(client, group, size, contiguous, error);
        if (got != 0) count(1);
        return got;
    }

    static std::uint32_t kel_free_packet(kel_packet packet)
    {
        const std::uint32_t error = right::kel_free_packet(packet);
        if (error == 0 || error == KEL_LOW_THRESHOLD_REACHED) count(-1);
        return error;
    }

    // What the contract leaves open, answered in two ways.
    static std::uint32_t kel_deregister_tag(kel_client client, kel_tag tag)
    {
        constexpr kel_tag LATER = 50;
        const std::uint32_t error = right::kel_deregister_tag(client, tag);
        const bool is_other = is_fault("changes_its_mind") && error == ENOENT && tag > LATER;
        return is_other ? EINVAL : error;
    }

    static std::uint32_t kel_set_cause(kel_packet packet, std::uint32_t cause)
    {
        if (is_fault("stops") && cause > 500) pause();
        return right::kel_set_cause(packet, cause);
    }

    static std::uint32_t kel_get_bufcount_byclient(kel_client client, std::uint32_t *buffers,
                                                   std::uint32_t *bytes)
    {
        const std::uint32_t error = right::kel_get_bufcount_byclient(client, buffers, bytes);
        if (error == 0) *buffers += static_cast<std::uint32_t>(counted - allocated);
        return error;
    }
};

// A library that is right and takes its time, so that nearly all calls overlap.
class slowness {
public:
    slowness() { wait(); }
    ~slowness() { wait(); }
    slowness(const slowness &) = delete;
    slowness &operator=(const slowness &) = delete;

private:
    static void wait()
    {
        static std::atomic<useconds_t> calls;
        if (is_fault("is_slow")) usleep(calls.fetch_add(37) % WINDOW);
    }
};

} // namespace

#define OPERATION(function, result, ...)                                                           \
    result_##result function(FOR_EACH_ARGUMENT(PARAMETER, __VA_ARGS__))                            \
    {                                                                                              \
        const slowness around;                                                                     \
        return racy::function(FOR_EACH_ARGUMENT(NAME, __VA_ARGS__));                               \
    }
#include "kelapi/operations.def"

// SPDX-License-Identifier: MIT
#include "tools/sequence/library.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <type_traits>
#include <utility>

#include "tools/common/hang_watch.h"
#include "tools/common/usage_error.h"

namespace sequence {

namespace {

using caller = std::uint64_t (*)(void *, const raw_arguments &);

template <typename type> type narrowed(std::uint64_t raw)
{
    if constexpr (std::is_pointer_v<type>) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<type>(static_cast<std::uintptr_t>(raw));
    } else {
        return static_cast<type>(raw);
    }
}

template <typename function> struct caller_of;

template <typename result, typename... arguments> struct caller_of<result (*)(arguments...)> {
    static std::uint64_t call(void *function, const raw_arguments &raw)
    {
        return call(function, raw, std::index_sequence_for<arguments...>());
    }

    template <std::size_t... index>
    static std::uint64_t call(void *function, [[maybe_unused]] const raw_arguments &raw,
                              std::index_sequence<index...>)
    {
        auto *typed = reinterpret_cast<result (*)(arguments...)>(function);
        if constexpr (std::is_void_v<result>) {
            typed(narrowed<arguments>(raw[index])...);
            return 0;
        } else {
            return static_cast<std::uint64_t>(typed(narrowed<arguments>(raw[index])...));
        }
    }
};

constexpr caller CALLERS[] = {
#define OPERATION(name, ...) caller_of<decltype(&(name))>::call,
#include "kelapi/operations.def"
};

template <typename function> function *typed(void *symbol)
{
    return reinterpret_cast<function *>(symbol);
}

std::uint64_t negative_error()
{
    return static_cast<std::uint64_t>(-static_cast<std::int64_t>(errno));
}

struct watched {
    explicit watched(std::uint64_t descriptor) : number(static_cast<int>(descriptor))
    {
        set_again();
    }
    void set_again()
    {
        FD_ZERO(&set);
        if (is_watched()) FD_SET(number, &set);
    }
    bool is_watched() const { return number > 0 && number < FD_SETSIZE; }
    fd_set *for_select() { return is_watched() ? &set : nullptr; }
    std::uint32_t is_set() const { return is_watched() && FD_ISSET(number, &set) ? 1 : 0; }

    int number;
    fd_set set;
};

std::uint64_t call_select(const raw_arguments &arguments)
{
    watched readable(arguments[0]);
    watched exceptional(arguments[1]);
    auto *timeout = narrowed<timeval *>(arguments[2]);
    const int count = std::max(readable.number, exceptional.number) + 1;
    const bool waits = timeout != nullptr && (timeout->tv_sec != 0 || timeout->tv_usec != 0);
    int result = ::select(count, readable.for_select(), nullptr, exceptional.for_select(), timeout);
    // On a busy machine a thread of the library may be due and have got no processor.
    const tools::other_threads others;
    while (result == 0 && waits && others.are_busy()) {
        readable.set_again();
        exceptional.set_again();
        timeval moment{0, 1000};
        result = ::select(count, readable.for_select(), nullptr, exceptional.for_select(), &moment);
    }
    if (result < 0) return negative_error();
    if (arguments[3] != 0) {
        *narrowed<std::uint32_t *>(arguments[3]) = result ? readable.is_set() : 0;
    }
    if (arguments[4] != 0) {
        *narrowed<std::uint32_t *>(arguments[4]) = result ? exceptional.is_set() : 0;
    }
    return static_cast<std::uint64_t>(result);
}

} // namespace

std::string library_file(const std::string &path)
{
    return std::filesystem::is_directory(path) ? path + "/libkel.so" : path;
}

library::library(const std::string &path)
{
    const std::string file = library_file(path);
    void *handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) throw tools::usage_error(dlerror());
    for (const operation_schema &each : operations()) {
        if (each.is_system()) break;
        functions_.push_back(dlsym(handle, std::string(each.function).c_str()));
        if (functions_.back() == nullptr) {
            throw tools::usage_error(file + " has no " + std::string(each.function));
        }
    }
    // The library may stand before the device; else these are the system's.
    open_ = dlsym(handle, "open");
    close_ = dlsym(handle, "close");
    ioctl_ = dlsym(handle, "ioctl");
}

std::uint64_t library::call(operation which, const raw_arguments &arguments) const
{
    if (which >= functions_.size()) return call_system(which, arguments);
    return CALLERS[which](functions_[which], arguments);
}

std::uint64_t library::call_system(operation which, const raw_arguments &arguments) const
{
    if (which == SELECT) return call_select(arguments);
    if (which == SLEEP) return ::sleep(static_cast<unsigned>(arguments[0]));
    std::int64_t result = 0;
    const int descriptor = static_cast<int>(arguments[0]);
    if (which == OPEN_DEVICE) {
        result = typed<int(const char *, int, ...)>(open_)(KEL_DEVICE, O_RDWR);
    } else if (which == CLOSE_DEVICE) {
        result = typed<int(int)>(close_)(descriptor);
    } else {
        result = typed<int(int, unsigned long, ...)>(ioctl_)(descriptor, arguments[1],
                                                             narrowed<void *>(arguments[2]));
    }
    if (result >= 0) return static_cast<std::uint64_t>(result);
    return which == OPEN_DEVICE ? negative_error() : static_cast<std::uint64_t>(errno);
}

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// The device node where the machine has none: this library stands before the C library in
// the search for the functions that open, drive and close files, takes what concerns the
// device and hands everything else on. The device's descriptor is a real one, an empty file
// in memory.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>

#include "kelapi/region.h"
#include "reference/options.h"
#include "reference/region.h"

// The functions bear names of their own here, so that the system's headers may declare or
// define theirs as they like.
#define INTERPOSED(symbol) __asm__(#symbol) __attribute__((visibility("default")))

extern "C" {
int device_open(const char *path, int flags, ...) INTERPOSED(open);
int device_open64(const char *path, int flags, ...) INTERPOSED(open64);
int device_openat(int folder, const char *path, int flags, ...) INTERPOSED(openat);
int device_openat64(int folder, const char *path, int flags, ...) INTERPOSED(openat64);
int device_open_2(const char *path, int flags) INTERPOSED(__open_2);
int device_open64_2(const char *path, int flags) INTERPOSED(__open64_2);
int device_openat_2(int folder, const char *path, int flags) INTERPOSED(__openat_2);
int device_openat64_2(int folder, const char *path, int flags) INTERPOSED(__openat64_2);
int device_ioctl(int descriptor, unsigned long request, ...) INTERPOSED(ioctl);
int device_close(int descriptor) INTERPOSED(close);
}

namespace kel_reference {

namespace {

using open_function = int(const char *, int, ...);
using openat_function = int(int, const char *, int, ...);
using open_2_function = int(const char *, int);
using openat_2_function = int(int, const char *, int);
using ioctl_function = int(int, unsigned long, ...);
using close_function = int(int);

// The function that would have been called without this library; looked up once.
template <typename function> class next_function {
public:
    constexpr explicit next_function(const char *symbol) : name(symbol) {}

    template <typename... arguments> int operator()(arguments... values)
    {
        function *found = address.load(std::memory_order_acquire);
        if (!found) {
            found = reinterpret_cast<function *>(dlsym(RTLD_NEXT, name));
            address.store(found, std::memory_order_release);
        }
        if (found) return found(values...);
        errno = ENOSYS;
        return -1;
    }

private:
    const char *name;
    std::atomic<function *> address = nullptr;
};

// All of these work before this library's own initialisation.
constinit next_function<open_function> next_open{"open"};
constinit next_function<open_function> next_open64{"open64"};
constinit next_function<openat_function> next_openat{"openat"};
constinit next_function<openat_function> next_openat64{"openat64"};
constinit next_function<open_2_function> next_open_2{"__open_2"};
constinit next_function<open_2_function> next_open64_2{"__open64_2"};
constinit next_function<openat_2_function> next_openat_2{"__openat_2"};
constinit next_function<openat_2_function> next_openat64_2{"__openat64_2"};
constinit next_function<ioctl_function> next_ioctl{"ioctl"};
constinit next_function<close_function> next_close{"close"};

// What is open on the device. Descriptors may be closed or replaced without this library's
// knowledge, so each is known by its file, too. The lock is taken after the library's own,
// which may be held where a descriptor is closed.
class open_devices {
public:
    int open(int flags)
    {
        const unsigned close_on_exec = flags & O_CLOEXEC ? MFD_CLOEXEC : 0;
        const int descriptor = memfd_create("kel", close_on_exec);
        if (descriptor < 0) return -1;
        const std::lock_guard guard(lock);
        files()[descriptor] = file_of(descriptor);
        count.store(files().size());
        return descriptor;
    }

    bool contains(int descriptor)
    {
        if (count.load() == 0) return false;
        const std::lock_guard guard(lock);
        const auto found = files().find(descriptor);
        return found != files().end() && found->second == file_of(descriptor);
    }

    void forget(int descriptor)
    {
        if (count.load() == 0) return;
        const std::lock_guard guard(lock);
        files().erase(descriptor);
        count.store(files().size());
    }

private:
    using file = std::pair<dev_t, ino_t>;

    static file file_of(int descriptor)
    {
        const int error = errno;
        struct stat status {};
        fstat(descriptor, &status);
        errno = error;
        return {status.st_dev, status.st_ino};
    }

    // Never destroyed: files are closed until the very end of the process.
    static std::map<int, file> &files()
    {
        static auto &instance = *new std::map<int, file>;
        return instance;
    }

    std::mutex lock;
    std::atomic<std::size_t> count = 0;
};

constinit open_devices devices;

bool names_device(const char *path)
{
    return path && std::strcmp(path, KEL_DEVICE) == 0;
}

// Opens the machine's device by `open_real(flags)`, or this library's where there is none.
template <typename open_function> int open_device(int flags, open_function open_real)
{
    const int opened = open_real(flags & ~(O_CREAT | O_EXCL)); // never makes an ordinary file
    const bool is_missing = opened < 0 && errno == ENOENT;
    return is_missing && chosen_options().device ? devices.open(flags) : opened;
}

// The mode argument, which is there only where a file may be created.
mode_t mode_of(int flags, va_list arguments)
{
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

} // namespace

} // namespace kel_reference

using namespace kel_reference;

#define MODE_AFTER(last_argument, mode)                                                            \
    va_list arguments;                                                                             \
    va_start(arguments, last_argument);                                                            \
    const mode_t mode = mode_of(last_argument, arguments);                                         \
    va_end(arguments)

int device_open(const char *path, int flags, ...)
{
    MODE_AFTER(flags, mode);
    const auto open_real = [=](int with) { return next_open(path, with, mode); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_open64(const char *path, int flags, ...)
{
    MODE_AFTER(flags, mode);
    const auto open_real = [=](int with) { return next_open64(path, with, mode); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_openat(int folder, const char *path, int flags, ...)
{
    MODE_AFTER(flags, mode);
    const auto open_real = [=](int with) { return next_openat(folder, path, with, mode); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_openat64(int folder, const char *path, int flags, ...)
{
    MODE_AFTER(flags, mode);
    const auto open_real = [=](int with) { return next_openat64(folder, path, with, mode); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_open_2(const char *path, int flags)
{
    const auto open_real = [=](int with) { return next_open_2(path, with); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_open64_2(const char *path, int flags)
{
    const auto open_real = [=](int with) { return next_open64_2(path, with); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_openat_2(int folder, const char *path, int flags)
{
    const auto open_real = [=](int with) { return next_openat_2(folder, path, with); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_openat64_2(int folder, const char *path, int flags)
{
    const auto open_real = [=](int with) { return next_openat64_2(folder, path, with); };
    return names_device(path) ? open_device(flags, open_real) : open_real(flags);
}

int device_ioctl(int descriptor, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (!devices.contains(descriptor)) return next_ioctl(descriptor, request, argument);
    const int error = region_request(request, argument);
    if (error == 0) return 0;
    errno = error;
    return -1;
}

int device_close(int descriptor)
{
    devices.forget(descriptor);
    return next_close(descriptor);
}

// SPDX-License-Identifier: MIT
//
// The kernel does the copying, as a device's driver would have it: between the process and
// itself, or through a pipe where that is not permitted.

#include "reference/caller_memory.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

#include "reference/signal.h"

namespace kel_reference {

namespace {

bool is_not_permitted(ssize_t copied)
{
    return copied < 0 && (errno == EPERM || errno == ENOSYS);
}

bool copy_through_pipe(const void *source, void *destination, std::size_t size)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    const unique_descriptor read_end(ends[0]);
    const unique_descriptor write_end(ends[1]);
    const auto wanted = static_cast<ssize_t>(size);
    return write(write_end.get(), source, size) == wanted &&
           read(read_end.get(), destination, size) == wanted;
}

} // namespace

bool read_caller_memory(const void *address, void *destination, std::size_t size)
{
    const iovec local{destination, size};
    const iovec remote{const_cast<void *>(address), size};
    const ssize_t copied = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
    if (is_not_permitted(copied)) return copy_through_pipe(address, destination, size);
    return copied == static_cast<ssize_t>(size);
}

bool write_caller_memory(void *address, const void *source, std::size_t size)
{
    const iovec local{const_cast<void *>(source), size};
    const iovec remote{address, size};
    const ssize_t copied = process_vm_writev(getpid(), &local, 1, &remote, 1, 0);
    if (is_not_permitted(copied)) return copy_through_pipe(source, address, size);
    return copied == static_cast<ssize_t>(size);
}

} // namespace kel_reference

// SPDX-License-Identifier: MIT
#include "tools/common/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "tools/common/usage_error.h"

namespace tools {

namespace {

std::string cannot_write(const std::string &path)
{
    return "cannot write " + (path == "-" ? "to standard output" : path) + ": " +
           std::strerror(errno);
}

} // namespace

bool write_all(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}

output_file::output_file(std::string where) : path(std::move(where))
{
    if (path == "-") {
        descriptor = STDOUT_FILENO;
        return;
    }
    opened.reset(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    if (opened.get() < 0) {
        throw usage_error(cannot_write(path));
    }
    descriptor = opened.get();
    struct stat about = {};
    is_regular = fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
    if (is_regular) {
        path = std::filesystem::canonical(path);
    }
}

void output_file::append(std::string_view text)
{
    const bool ready = !is_regular || is_begun || ftruncate(descriptor, 0) == 0;
    is_begun = true;
    if ((!ready || !write_all(descriptor, text)) && errno != EPIPE) {
        throw std::runtime_error(cannot_write(path));
    }
}

void output_file::replace(std::string_view text)
{
    if (is_regular && replace_by_draft(text)) {
        return;
    }
    if (is_regular) { // an earlier draft may have made it another file
        opened.reset(open(path.c_str(), O_WRONLY | O_CLOEXEC));
        descriptor = opened.get();
        is_begun = false;
    }
    append(text);
}

// False when none can be made here, or may not take the place of the file.
bool output_file::replace_by_draft(std::string_view text)
{
    std::string draft = path + ".XXXXXX";
    const unique_fd file(mkostemp(draft.data(), O_CLOEXEC));
    if (file.get() < 0 && errno != ENOSPC) {
        return false;
    }
    struct stat about = {};
    if (fstat(descriptor, &about) == 0) {
        fchmod(file.get(), about.st_mode);
    }
    const bool written = write_all(file.get(), text);
    const int error = errno;
    if (written && std::rename(draft.c_str(), path.c_str()) == 0) {
        return true;
    }
    unlink(draft.c_str());
    if (!written) { // the file keeps what it has
        errno = error;
        throw std::runtime_error(cannot_write(path));
    }
    return false;
}

} // namespace tools

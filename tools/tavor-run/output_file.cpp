// SPDX-License-Identifier: MIT
#include "tools/tavor-run/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/tavor-run/selection.h"

namespace tavor_run {

namespace {

constexpr mode_t FILE_MODE = 0644;

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

std::runtime_error cannot_write(const std::string &path)
{
    return std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

} // namespace

output_file::output_file(std::string where) : path(std::move(where))
{
    if (path == "-") {
        descriptor = STDOUT_FILENO;
        return;
    }
    descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, FILE_MODE);
    if (descriptor < 0) {
        throw usage_error(cannot_write(path).what());
    }
    struct stat about = {};
    replaceable = fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
}

output_file::~output_file()
{
    if (descriptor > STDERR_FILENO) {
        close(descriptor);
    }
}

void output_file::append(std::string_view text)
{
    if (!write_all(descriptor, text) && errno != EPIPE) {
        throw cannot_write(path);
    }
}

void output_file::replace(std::string_view text)
{
    if (!replaceable) {
        append(text);
        return;
    }
    const std::string draft = path + ".part";
    const int file = open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, FILE_MODE);
    const bool written = file >= 0 && write_all(file, text);
    if (file >= 0) {
        close(file);
    }
    if (!written || std::rename(draft.c_str(), path.c_str()) != 0) {
        throw cannot_write(path);
    }
}

} // namespace tavor_run

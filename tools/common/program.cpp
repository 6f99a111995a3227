// SPDX-License-Identifier: MIT
#include "tools/common/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>

#include "tools/common/interrupt.h"
#include "tools/common/printable.h"

namespace tools {

namespace {

// Else a file that is opened gets such a number, and what is printed lands in it. What stands in
// for a closed stream cannot be written to: printing there stays an error.
void occupy_standard_streams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; stream++) {
        if (fcntl(stream, F_GETFD) < 0) {
            open("/dev/null", O_RDONLY); // the lowest free number
        }
    }
}

int fail(const char *name, int status, const std::string &why)
{
    std::cerr << name << ": " << printable(why) << '\n';
    return status;
}

} // namespace

int run_program(const char *name, int failed, const std::function<int()> &work)
{
    occupy_standard_streams();
    std::signal(SIGCHLD, SIG_DFL); // ignored, it would lose the exit statuses
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is an error of writing
    int status = failed;
    try {
        status = work();
    } catch (const interrupted &) {
        std::cout.flush();
        fail(name, failed, "interrupted");
        end_by_interrupt();
    } catch (const std::exception &error) {
        status = fail(name, failed, error.what());
    }
    if (!std::cout.flush()) {
        return fail(name, failed, "cannot write to standard output");
    }
    return status;
}

} // namespace tools

// SPDX-License-Identifier: MIT
#include "tools/tavor-run/interrupt.h"

#include <csignal>

namespace tavor_run {

namespace {

volatile std::sig_atomic_t asked = 0;

void on_interrupt(int)
{
    asked = asked + 1;
}

} // namespace

void catch_interrupts()
{
    std::signal(SIGINT, on_interrupt);
    std::signal(SIGTERM, on_interrupt);
    std::signal(SIGPIPE, SIG_IGN);
}

int interrupts()
{
    return asked;
}

} // namespace tavor_run

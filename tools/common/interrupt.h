// SPDX-License-Identifier: MIT
//
// Being asked to stop: once by Ctrl-C the work may end by itself; by a second one, or by SIGTERM,
// SIGHUP or SIGQUIT, it is ended at once.
#pragma once

namespace tools {

// From now on these signals are counted and do nothing else; one that is ignored stays so. Output
// that nobody reads is an error and no signal.
void catch_interrupts();

enum class stop { no, soon, now };

stop asked_to_stop();

// Thrown when work was given up for that reason.
struct interrupted {};

// Ends this program by the signal that asked first: whoever started it sees why.
[[noreturn]] void end_by_interrupt();

} // namespace tools

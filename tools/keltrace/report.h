// SPDX-License-Identifier: MIT
//
// The report: counts of calls, what became of the faults, the census. One line each:
//   calls <operation> <count>
//   fault <text> hits <n> fired <n>
//   census <kind> <obtained> <released> <left>
//   swept <kind> <count>
#pragma once

namespace keltrace {

namespace report {

// Where to; kept, not copied.
void start(const char *path);

// The reference library's function that counts its own faults; null where there is none.
void set_library_counts(void *function);

// Writes the report, replacing one written before. Safe in a signal handler.
void write();

} // namespace report

} // namespace keltrace

// SPDX-License-Identifier: MIT
//
// Ctrl-C: the first time tavor is asked to stop behind its case, the second time it is ended.
#pragma once

namespace tavor_run {

void catch_interrupts();

// How often it was asked for.
int interrupts();

} // namespace tavor_run

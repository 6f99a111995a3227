// SPDX-License-Identifier: MIT
//
// Makes a sequence's calls on a library in this process.
#pragma once

#include <functional>

#include "tools/sequence/library.h"
#include "tools/sequence/sequence.h"

namespace sequence {

// Makes the calls in their order, each on its thread, up to `end`; `answered` gets each answer as
// it comes. A call that began before another ended is begun, and the next one waits until it
// sleeps or has returned. Whether all goes well is the library's business: whoever fears crashes
// and hangs calls this in another process (worker.h). Variables that the calls define are bound
// anew; those of objects that are still there when it returns are the caller's to release.
void execute(const library &tested, const call_sequence &made, std::size_t end,
             const std::function<void(std::size_t call, answer &&)> &answered);

} // namespace sequence

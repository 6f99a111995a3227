// SPDX-License-Identifier: MIT
//
// A maker and the library under test, each in a process of its own. Crashes and hangs cost one
// sequence; the process is replaced.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/common/hang_watch.h"
#include "tools/explore/exchange.h"
#include "tools/explore/maker.h"
#include "tools/sequence/sequence.h"

namespace explore {

// A sequence that did not come out as it should.
struct suspect {
    sequence::call_sequence made;
    std::uint64_t index = 0; // of the sequence in the run
    std::uint32_t call = 0;  // the one that differed
    bool has_ended = false;  // the process with it, by a crash or a hang
    bool waits = false;      // it takes long: others come first
    bool is_known = false;   // nothing has been seen in it: it is one of those made in every run
};

class lane {
public:
    lane(std::string library, making what, std::chrono::milliseconds limit);
    ~lane();
    lane(const lane &) = delete;
    lane &operator=(const lane &) = delete;

    // What has happened since the last time; asked often. Throws tools::usage_error when the
    // library cannot be loaded.
    std::optional<suspect> look();

    // No more batches than those that have been begun.
    void stop();
    bool is_done() const { return is_done_; }

    const exchange &state() const { return shared_; }

private:
    void start_maker();
    void start_tested();
    void look_after_maker();
    std::optional<suspect> look_after_tested();
    suspect current(std::uint32_t call) const;
    std::optional<suspect> replace();

    exchange &shared_;
    std::string library_;
    making what_;
    std::chrono::milliseconds limit_;
    pid_t maker_ = -1;
    pid_t tested_ = -1;
    bool is_done_ = false;
    std::uint64_t moves_ = 0;
    tools::hang_watch watch_;
};

} // namespace explore

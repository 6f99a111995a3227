// SPDX-License-Identifier: MIT
//
// Examines suspects one after the other, in a process beside the lanes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "tools/explore/examination.h"
#include "tools/explore/lane.h"

namespace explore {

class examiner {
public:
    explicit examiner(examination_setup how) : how_(std::move(how)) {}
    ~examiner();
    examiner(const examiner &) = delete;
    examiner &operator=(const examiner &) = delete;

    // Of each operation's first few only.
    void add(suspect one);

    // What is finished since the last time.
    std::optional<examined> look();
    // Ends what is looked into: a finding that is only left to be reduced.
    std::optional<examined> give_up();

    bool is_idle() const { return child_ < 0 && waiting_.empty(); }
    std::size_t left() const { return waiting_.size() + (child_ < 0 ? 0 : 1); }
    void change_profile(const sequence::configuration &chosen) { how_.learned.chosen = chosen; }
    const examination_setup &setup() const { return how_; }

private:
    void start();
    examined take();
    // Crashes and hangs of an operation are counted apart from its answers.
    using kind = std::pair<sequence::operation, bool>;
    static kind kind_of(const suspect &one)
    {
        return {one.made.calls[one.call].operation, one.has_ended};
    }
    std::size_t times(const suspect &one) const;

    examination_setup how_;
    std::deque<suspect> waiting_;
    // How many of the same operation were examined: rarer ones come first.
    std::map<kind, std::size_t> examined_;
    pid_t child_ = -1;
    int pipe_ = -1;
    std::string received_;
    std::uint64_t index_ = 0;
    bool was_known_ = false;
};

} // namespace explore

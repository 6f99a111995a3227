// SPDX-License-Identifier: MIT
#include "tools/explore/exploration.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "tools/common/interrupt.h"
#include "tools/common/output_file.h"
#include "tools/common/usage_error.h"
#include "tools/explore/corpus.h"
#include "tools/explore/examiner.h"
#include "tools/explore/lane.h"
#include "tools/explore/questions.h"
#include "tools/explore/report.h"

namespace explore {

namespace {

using steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How long suspects are looked into after the last sequence.
constexpr std::chrono::seconds AFTERWARDS{30};

double seconds_since(steady::time_point start)
{
    return std::chrono::duration<double>(steady::now() - start).count();
}

class run {
public:
    explicit run(const settings &asked)
        : asked_(asked), start_(steady::now()), kept_(asked.corpus, asked.output)
    {
        if (!asked.json.empty()) json_.emplace(asked.json);
        const sequence::configuration given = asked.profile.empty()
                                                  ? sequence::configuration{}
                                                  : read_profile(asked.profile, asked.reference);
        learned_ = learn(asked.library, asked.reference, given, {asked.limit});
        examiner_.emplace(
            examination_setup{asked.library, asked.reference, learned_, {asked.limit}});
        std::cout << profile_text(learned_) << std::flush;
    }

    bool carry_out()
    {
        for (auto &each : learned_.unexplained) add(std::move(each)).is_known = false;
        for (const char *each : probes()) add(sequence_of(each)).waits = true;
        for (auto &each : kept_.sequences()) add(std::move(each));
        for (suspect &each : first_) examiner_->add(std::move(each));
        start_ = steady::now();
        start_lanes(0);
        while (!is_over()) {
            look();
            show_progress();
            std::this_thread::sleep_for(milliseconds(2));
        }
        for (auto &each : lanes_) each->stop();
        finish();
        clear_progress();
        conclude();
        return !findings_.empty();
    }

private:
    suspect &add(sequence::call_sequence made)
    {
        suspect &one = first_.emplace_back();
        one.call = static_cast<std::uint32_t>(made.calls.size() - 1);
        one.made = std::move(made);
        one.is_known = true;
        return one;
    }

    void start_lanes(std::uint64_t first)
    {
        for (unsigned i = 0; i < asked_.jobs; i++) {
            making what{asked_.reference, learned_.chosen, learned_.has_device, asked_.seed};
            const std::uint64_t number = first + i;
            what.first = number * asked_.part.count + asked_.part.index - 1;
            what.step = std::uint64_t{asked_.jobs} * asked_.part.count;
            if (asked_.sequences) what.end = *asked_.sequences;
            what.corpus = asked_.corpus;
            lanes_.push_back(std::make_unique<lane>(asked_.library, what, asked_.limit));
        }
    }

    bool is_over() const
    {
        if (tools::asked_to_stop() != tools::stop::no) return true;
        if (asked_.seconds && seconds_since(start_) >= *asked_.seconds) return true;
        if (has_enough()) return true;
        return std::ranges::all_of(lanes_, [](const auto &each) { return each->is_done(); });
    }

    bool has_enough() const { return asked_.fails_fast && !findings_.empty(); }

    void look()
    {
        for (auto &each : lanes_) {
            while (auto told = each->look()) examiner_->add(std::move(*told));
        }
        if (const auto done = examiner_->look()) note(*done);
    }

    void note(const examined &done)
    {
        switch (done.outcome) {
        case outcome::finding:
            note_finding(done.finding);
            break;
        case outcome::choice:
            change_profile(done.profile);
            break;
        case outcome::not_again:
            if (!done.was_known) not_again_++;
            break;
        }
    }

    // Of equal ones the shortest stays, else the first.
    void note_finding(const found &one)
    {
        const auto [place, is_new] = findings_.emplace(key_of(one), one);
        if (is_new) {
            clear_progress();
            std::cout << to_text(one, findings_.size()) << std::flush;
        } else if (std::pair(one.calls, one.index) <
                   std::pair(place->second.calls, place->second.index)) {
            place->second = one;
        }
    }

    // The model starts anew, with what is known now.
    void change_profile(const sequence::configuration &chosen)
    {
        if (chosen == learned_.chosen) return;
        learned_.chosen = chosen;
        examiner_->change_profile(chosen);
        std::uint64_t done = 0;
        for (const auto &each : lanes_) {
            done =
                std::max<std::uint64_t>(done, each->state().sequences_done / BATCH_SEQUENCES + 1);
        }
        retire_lanes();
        first_number_ += done * asked_.jobs;
        start_lanes(first_number_);
    }

    void retire_lanes()
    {
        for (const auto &each : lanes_) add_to(totals_, each->state());
        lanes_.clear();
    }

    static void add_to(totals &all, const exchange &state)
    {
        all.sequences += state.sequences_done;
        all.calls += state.calls_done;
        all.differences += state.differences;
        const std::size_t count = state.reached_count;
        all.reached.insert(state.reached.begin(),
                           state.reached.begin() + static_cast<std::ptrdiff_t>(count));
    }

    void finish()
    {
        const auto limit = steady::now() + AFTERWARDS;
        const auto is_idle = [this] {
            return examiner_->is_idle() &&
                   std::ranges::all_of(lanes_, [](const auto &each) { return each->is_done(); });
        };
        explored_ = seconds_since(start_);
        const bool was_asked = tools::asked_to_stop() != tools::stop::no;
        while (!is_idle() && steady::now() < limit) {
            if (tools::asked_to_stop() == tools::stop::now) break;
            if (has_enough() || (was_asked && !findings_.empty())) break;
            look();
            show_progress();
            std::this_thread::sleep_for(milliseconds(2));
        }
        const std::size_t left = examiner_->left();
        const auto half_done = examiner_->give_up();
        if (half_done) note(*half_done);
        retire_lanes();
        totals_.seconds = explored_;
        totals_.not_again = not_again_;
        totals_.not_looked_into = left - (half_done ? 1 : 0);
    }

    void conclude()
    {
        std::vector<found> all;
        for (const auto &[key, each] : findings_) all.push_back(each);
        std::ranges::stable_sort(all, {}, &found::index);
        for (std::size_t i = 0; i < all.size(); i++) kept_.keep(all[i], i + 1);
        std::string lines;
        for (const found &each : all) lines += to_json(each);
        if (json_) json_->append(lines + to_json(totals_, learned_));
        std::cout << to_text(totals_, all.size()) << std::flush;
        if (!std::cout) throw tools::usage_error("standard output cannot be written");
    }

    void show_progress()
    {
        static const bool is_terminal = isatty(STDERR_FILENO) != 0;
        const auto now = steady::now();
        if (!is_terminal || now < shown_at_ + milliseconds(500)) return;
        shown_at_ = now;
        totals so_far = totals_;
        for (const auto &each : lanes_) add_to(so_far, each->state());
        const double time = seconds_since(start_);
        std::fprintf(
            stderr,
            "\r\033[K%.0f s, %llu sequences, %.0f a second, %zu findings, %zu to look into, %zu answers met",
            time, static_cast<unsigned long long>(so_far.sequences),
            static_cast<double>(so_far.sequences) / time, findings_.size(), examiner_->left(),
            so_far.reached.size());
        is_shown_ = true;
    }

    void clear_progress()
    {
        if (is_shown_) std::fputs("\r\033[K", stderr);
        is_shown_ = false;
    }

    const settings &asked_;
    steady::time_point start_;
    corpus kept_;
    std::optional<tools::output_file> json_;
    library_profile learned_;
    std::optional<examiner> examiner_;
    std::vector<std::unique_ptr<lane>> lanes_;
    std::vector<suspect> first_; // before what the lanes come to
    std::uint64_t first_number_ = 0;
    std::map<std::string, found> findings_;
    std::size_t not_again_ = 0;
    totals totals_;
    double explored_ = 0;
    steady::time_point shown_at_{};
    bool is_shown_ = false;
};

} // namespace

bool explore_library(const settings &asked)
{
    return run(asked).carry_out();
}

} // namespace explore

// SPDX-License-Identifier: MIT
#include "tools/histories/exploration.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/common/hang_watch.h"
#include "tools/common/interrupt.h"
#include "tools/common/output_file.h"
#include "tools/common/usage_error.h"
#include "tools/histories/checker.h"
#include "tools/histories/child.h"
#include "tools/histories/finding.h"
#include "tools/histories/recorder.h"
#include "tools/histories/reduction.h"

namespace histories {

namespace {

using json = nlohmann::ordered_json;
using steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

// An undecided history gets so much time at the end, as long as all are not too many.
constexpr milliseconds SECOND_DECISION{20000};
constexpr std::size_t DECIDED_AGAIN = 10;

// Findings that are alike: the shortest of a few is shown.
constexpr int REDUCED_OF_A_KIND = 3;

constexpr char LEGAL = 'l', ILLEGAL = 'i', UNDECIDED = 'u';

template <typename number> number taken(std::string_view &message)
{
    number one;
    if (message.size() < sizeof one) throw std::runtime_error("a message was cut off");
    std::memcpy(&one, message.data(), sizeof one);
    message.remove_prefix(sizeof one);
    return one;
}

template <typename number> std::string bytes_of(number one)
{
    return {reinterpret_cast<const char *>(&one), sizeof one};
}

double seconds_since(steady::time_point start)
{
    return std::chrono::duration<double>(steady::now() - start).count();
}

progress &shared_progress()
{
    void *memory =
        mmap(nullptr, sizeof(progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    return *new (memory) progress{};
}

// All that a plan depends on.
struct plan_number {
    std::uint64_t seed = 0;
    std::uint64_t index = 0;
    shape size{};

    plan made() const { return make_plan(seed, index, size); }
};

// In the process of the library under test: a plan's number, and the history.
answering tested_side(const settings &asked, progress &shown)
{
    auto tested = std::make_shared<sequence::library>(asked.library);
    return [tested, &shown](std::string_view message) {
        return to_message(record(*tested, taken<plan_number>(message).made(), shown));
    };
}

// In the model's process: how long, and a history; what it is.
answering model_side(const settings &asked)
{
    const auto setup = sequence::reference_setup(asked.reference, asked.profile);
    set_environment(setup);
    auto model = std::make_shared<sequence::library>(setup.path);
    auto by = std::make_shared<checker>(*model);
    auto reduced = std::make_shared<std::map<std::string, int>>();
    return [model, by, reduced](std::string_view message) -> std::string {
        const milliseconds limit(taken<std::uint32_t>(message));
        const history whole = from_message(message);
        verdict judged = by->check(whole, limit);
        if (judged.outcome == outcome::legal) return std::string(1, LEGAL);
        if (judged.outcome == outcome::undecided) return std::string(1, UNDECIDED);
        found told = finding_of(whole, judged);
        if ((*reduced)[told.kind()]++ < REDUCED_OF_A_KIND) {
            const history smaller = without_needless_calls(whole, *by);
            judged = by->check(smaller, limit);
            if (judged.outcome == outcome::illegal) told = finding_of(smaller, judged);
        }
        return ILLEGAL + to_message(told);
    };
}

class run {
public:
    explicit run(const settings &asked)
        : asked_(asked), shown_(shared_progress()), start_(steady::now())
    {
        if (!asked.json.empty()) json_.emplace(asked.json);
        if (!asked.corpus.empty()) open_corpus();
        model_ = std::make_unique<child>([this] { return model_side(asked_); });
    }
    ~run() { munmap(&shown_, sizeof shown_); }
    run(const run &) = delete;
    run &operator=(const run &) = delete;

    totals carry_out()
    {
        for (const plan_number &each : kept_) {
            if (!is_over(0)) make(each);
        }
        for (std::uint64_t i = 0; !is_over(i); i++) {
            make({asked_.seed, i * asked_.part.count + asked_.part.index - 1, asked_.size});
            show_progress();
        }
        decide_again();
        totals_.seconds = seconds_since(start_);
        totals_.undecided = undecided_.size();
        for (const auto &[kind, each] : findings_) totals_.findings.push_back(each);
        if (is_shown_) std::fputs("\r\033[K", stderr);
        conclude();
        return totals_;
    }

private:
    // A line a plan: seed, index, threads, calls.
    void open_corpus()
    {
        std::filesystem::create_directories(asked_.corpus);
        const std::string path = asked_.corpus + "/histories.txt";
        std::ifstream before(path);
        for (plan_number one;
             before >> one.seed >> one.index >> one.size.threads >> one.size.calls;) {
            const bool is_plan = one.size.threads <= THREADS_MAX && one.size.calls <= CALLS_MAX;
            if (!is_plan) throw tools::usage_error(path + ": no number of a history");
            kept_.push_back(one);
        }
        corpus_.open(path, std::ios::app);
        if (!corpus_) throw tools::usage_error("cannot write " + path);
    }

    bool is_over(std::uint64_t made) const
    {
        if (tools::asked_to_stop() != tools::stop::no) return true;
        if (asked_.histories && made >= *asked_.histories) return true;
        return asked_.seconds && seconds_since(start_) >= *asked_.seconds;
    }

    void make(const plan_number &number)
    {
        if (!tested_) {
            tested_ = std::make_unique<child>([this] { return tested_side(asked_, shown_); });
        }
        bool is_still = false;
        std::uint64_t moves = shown_.moves;
        tools::hang_watch watch(asked_.stillness);
        const auto given = tested_->ask(bytes_of(number), [&] {
            if (tools::asked_to_stop() == tools::stop::now) return true;
            const std::uint64_t now = shown_.moves;
            if (std::exchange(moves, now) != now) watch = tools::hang_watch(asked_.stillness);
            return is_still = watch.is_hang(tested_->id());
        });
        if (!given) {
            if (tools::asked_to_stop() == tools::stop::now) return;
            return note_end(number, is_still);
        }
        judge(number, *given, asked_.decision);
    }

    // The library's process has ended, or is still.
    void note_end(const plan_number &number, bool is_hang)
    {
        const int signal = tested_->end();
        tested_.reset();
        note(finding_of(number.made(), shown_, is_hang, signal), number);
    }

    void judge(const plan_number &number, const std::string &given, milliseconds limit)
    {
        const auto milliseconds_given = static_cast<std::uint32_t>(limit.count());
        const auto told = model_->ask(bytes_of(milliseconds_given) + given,
                                      [] { return tools::asked_to_stop() == tools::stop::now; });
        if (!told) {
            if (tools::asked_to_stop() == tools::stop::now) return;
            throw std::runtime_error("the reference library's process ended");
        }
        if (limit == asked_.decision) totals_.calls += calls_of(given);
        if (told->front() == UNDECIDED) {
            undecided_.emplace_back(number, given);
        } else if (told->front() == LEGAL) {
            totals_.legal++;
        } else {
            tested_.reset(); // it may hold something that nothing accounts for
            note(found_from_message(std::string_view(*told).substr(1)), number);
        }
    }

    static std::uint64_t calls_of(std::string_view given) { return taken<std::uint64_t>(given); }

    void note(found one, const plan_number &number)
    {
        totals_.illegal++;
        one.index = number.index;
        const auto [known, is_new] = findings_.try_emplace(one.kind(), one);
        if (is_new && corpus_.is_open()) keep(number);
        if (!is_new && one.calls < known->second.calls) known->second = std::move(one);
    }

    void keep(const plan_number &number)
    {
        const auto is_same = [&](const plan_number &each) {
            return each.seed == number.seed && each.index == number.index;
        };
        if (std::ranges::any_of(kept_, is_same)) return;
        corpus_ << number.seed << ' ' << number.index << ' ' << number.size.threads << ' '
                << number.size.calls << std::endl;
        if (!corpus_) throw tools::usage_error("cannot write to " + asked_.corpus);
    }

    void decide_again()
    {
        if (undecided_.size() > DECIDED_AGAIN) return;
        for (auto &[number, given] : std::exchange(undecided_, {})) {
            const std::size_t before = undecided_.size();
            judge(number, given, SECOND_DECISION);
            if (undecided_.size() == before) totals_.late++;
        }
    }

    // What the first thread called after the others is not in the sequence of a crash or a hang.
    static std::string call_text(std::size_t n)
    {
        return n == 0 ? " after the threads" : ", call " + std::to_string(n) + " of it";
    }

    static std::string line_of(const json &object)
    {
        return object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    }

    void conclude()
    {
        std::string lines;
        std::size_t number = 0;
        for (const auto &[kind, each] : findings_) {
            std::cout << "finding " << ++number << ": kel_" << each.operation << call_text(each.n)
                      << ": expected " << each.expected << ", got " << each.got << " (history "
                      << each.index << ")\n"
                      << each.text << "the contract: " << each.clause << "\n\n";
            lines += line_of({{"operation", each.operation},
                              {"n", each.n},
                              {"expected", each.expected},
                              {"got", each.got},
                              {"clause", each.clause},
                              {"calls", each.calls},
                              {"sequence", each.text}});
        }
        for (const auto &[number_of, given] : undecided_) {
            std::cout << "history " << number_of.index << " is undecided\n";
        }
        const std::uint64_t all = totals_.legal + totals_.illegal + totals_.undecided;
        lines += line_of({{"sequences", all},
                          {"calls", totals_.calls},
                          {"seconds", totals_.seconds},
                          {"profile", sequence::text_of(asked_.profile)},
                          {"legal", totals_.legal},
                          {"illegal", totals_.illegal},
                          {"undecided", totals_.undecided},
                          {"late", totals_.late}});
        if (json_) json_->append(lines);
        std::cout << all << " histories of " << asked_.size.threads << " threads, " << totals_.calls
                  << " calls in " << totals_.seconds << " s: " << totals_.legal << " legal, "
                  << totals_.illegal << " illegal, " << totals_.undecided << " undecided, "
                  << totals_.late << " decided late; findings: " << findings_.size() << "\n"
                  << std::flush;
    }

    void show_progress()
    {
        const auto now = steady::now();
        if (!is_terminal_ || now < shown_at_ + milliseconds(500)) return;
        shown_at_ = now;
        is_shown_ = true;
        std::fprintf(
            stderr, "\r\033[K%.0f s, %llu legal, %llu illegal, %zu undecided, %zu findings",
            seconds_since(start_), static_cast<unsigned long long>(totals_.legal),
            static_cast<unsigned long long>(totals_.illegal), undecided_.size(), findings_.size());
    }

    const settings &asked_;
    progress &shown_;
    steady::time_point start_;
    std::optional<tools::output_file> json_;
    std::unique_ptr<child> model_;
    std::unique_ptr<child> tested_;
    std::map<std::string, found> findings_;
    std::vector<std::pair<plan_number, std::string>> undecided_; // and its message
    std::vector<plan_number> kept_;
    std::ofstream corpus_;
    totals totals_;
    const bool is_terminal_ = isatty(STDERR_FILENO) != 0;
    bool is_shown_ = false;
    steady::time_point shown_at_{};
};

} // namespace

totals explore(const settings &asked)
{
    return run(asked).carry_out();
}

} // namespace histories

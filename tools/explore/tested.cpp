// SPDX-License-Identifier: MIT
#include "tools/explore/tested.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <vector>

#include "tools/explore/call_memory.h"
#include "tools/sequence/library.h"

namespace explore {

namespace {

// After so many batches the library gets a fresh process: what it leaks stays small.
constexpr int BATCHES = 100;

void wait_for(sem_t &given)
{
    while (sem_wait(&given) != 0 && errno == EINTR) continue;
}

// Holds an answer to the expected one, and binds what is new.
class comparison {
public:
    comparison(const batch &whole, const flat_call &made, handle_numbers &known,
               std::vector<std::uint64_t> &bases)
        : whole_(whole), at_(made.expected), end_(made.expected + made.expected_count),
          known_(known), bases_(bases)
    {
    }

    void number(const output_plan &output, role what, bool may_name, bool is_compared,
                std::uint64_t number)
    {
        if (const scalar *expected = next()) {
            check(is_same(*expected, output, what, may_name, is_compared, number));
        }
    }

    void data(const output_plan &, const std::byte *bytes, std::uint64_t count)
    {
        const scalar *expected = next();
        if (!expected) return;
        const std::uint64_t length = expected->number & ~HAS_MASK;
        const std::uint8_t *right = &whole_.bytes.items[static_cast<std::size_t>(expected->name)];
        if (count != length) return check(false);
        if ((expected->number & HAS_MASK) == 0) {
            return check(std::memcmp(bytes, right, length) == 0);
        }
        bool is_same = true;
        for (std::uint64_t i = 0; i < length; i++) {
            const bool means_nothing = right[length + i] != 0;
            is_same = is_same && (means_nothing || static_cast<std::uint8_t>(bytes[i]) == right[i]);
        }
        check(is_same);
    }

    void pass_over() {}

    bool has_differed() const { return differs_at_ != 0 || at_ != end_; }
    // Which part of the answer it was.
    std::size_t part() const { return differs_at_; }

private:
    const scalar *next()
    {
        if (differs_at_ != 0) return nullptr;
        part_++;
        if (at_ != end_) return &whole_.scalars.items[at_++];
        check(false);
        return nullptr;
    }

    void check(bool is_same)
    {
        if (!is_same && differs_at_ == 0) differs_at_ = part_;
    }

    bool is_same(const scalar &expected, const output_plan &output, role what, bool may_name,
                 bool is_compared, std::uint64_t number)
    {
        if (what == role::process) {
            return (number == static_cast<std::uint64_t>(getpid())) == (expected.number == 1);
        }
        if (!is_compared || what == role::program_address) {
            return (number != 0) == (expected.number != 0);
        }
        if (what == role::address) return is_same_address(expected, number);
        if (expected.name < 0) return number == expected.number;
        if (expected.number != IS_NEW) return number == known_.of({0, expected.name});
        if (number == 0 || (what == role::descriptor && static_cast<std::int32_t>(number) < 0)) {
            return false;
        }
        if (!output.gives_new && may_name && known_.name_of(what, number) >= 0) return false;
        known_.bind(expected.name, what, number);
        return true;
    }

    bool is_same_address(const scalar &expected, std::uint64_t address)
    {
        if (expected.name < 0 || address == 0) return address == expected.number;
        const auto space = static_cast<std::size_t>(expected.name);
        if (space >= bases_.size()) bases_.resize(space + 1);
        if (bases_[space] == 0) bases_[space] = address - expected.number;
        return address - bases_[space] == expected.number;
    }

    const batch &whole_;
    std::uint32_t at_;
    std::uint32_t end_;
    handle_numbers &known_;
    std::vector<std::uint64_t> &bases_;
    std::size_t part_ = 0;
    std::size_t differs_at_ = 0;
};

class tested {
public:
    tested(exchange &shared, const std::string &path) : shared_(shared), library_(path)
    {
        library_.call(static_cast<sequence::operation>(op::kel_nocrash_set), {});
        register_keeper();
    }

    void run()
    {
        shared_.is_started = true;
        int batches = 0;
        for (std::uint32_t slot = shared_.slot;; slot = (slot + 1) % exchange::SLOTS) {
            if (!shared_.is_in_batch) {
                wait_for(shared_.filled_slots);
                shared_.slot = slot;
                shared_.sequence = 0;
                shared_.is_in_batch = true;
            }
            if (shared_.slots[slot].sequence_count == 0) {
                shared_.is_done = true;
                return;
            }
            run_batch(shared_.slots[slot]);
            if (shared_.wants_replacement) return;
            shared_.slot = (slot + 1) % exchange::SLOTS;
            shared_.is_in_batch = false;
            sem_post(&shared_.free_slots);
            if (++batches == BATCHES) {
                shared_.wants_replacement = true;
                return;
            }
        }
    }

private:
    // A client that stays: what a library does for the first and for the last one takes longer
    // than a sequence.
    void register_keeper()
    {
        std::uint32_t client = 0;
        library_.call(static_cast<sequence::operation>(op::kel_register_client),
                      {reinterpret_cast<std::uintptr_t>(&client), 0, KEL_ROLE_ALWAYS, 8});
    }

    void run_batch(const batch &whole)
    {
        for (std::uint32_t i = shared_.sequence; i < whole.sequence_count; i++) {
            shared_.sequence = i;
            const bool is_clean = run_sequence(whole, whole.sequences[i]);
            shared_.sequences_done.fetch_add(1, std::memory_order_relaxed);
            if (is_clean) continue;
            shared_.sequence = i + 1;
            shared_.wants_replacement = true;
            return;
        }
    }

    // False when the library may hold something of the sequence.
    bool run_sequence(const batch &whole, const flat_sequence &made)
    {
        known_.clear();
        bases_.clear();
        for (std::uint32_t i = 0; i < made.count; i++) {
            const flat_call &one = whole.calls.items[made.begin + i];
            const operation_plan &plan = plans()[one.operation];
            const auto &passed = memory_.lay_out(whole, one, known_);
            shared_.call.store(i, std::memory_order_relaxed);
            shared_.moves.fetch_add(1, std::memory_order_relaxed);
            shared_.is_calling.store(true, std::memory_order_relaxed);
            const std::uint64_t result = cut(plan, library_.call(one.operation, passed));
            shared_.is_calling.store(false, std::memory_order_relaxed);
            comparison comparing(whole, one, known_, bases_);
            visit_answer(plan, whole.arguments_of(one, plan.schema->parameters.size()), result,
                         memory_, comparing);
            if (comparing.has_differed()) {
                report(i, one, comparing.part());
                shared_.calls_done.fetch_add(i + 1, std::memory_order_relaxed);
                return release_all();
            }
        }
        shared_.calls_done.fetch_add(made.count, std::memory_order_relaxed);
        return true;
    }

    void report(std::uint32_t call, const flat_call &made, std::size_t part)
    {
        shared_.differences.fetch_add(1, std::memory_order_relaxed);
        std::uint32_t &times =
            shared_.reported[made.operation][std::min(part, exchange::PARTS - 1)];
        if (times++ >= exchange::REPORTED) return;
        shared_.report = {shared_.slot, shared_.sequence, call};
        shared_.has_report = true;
        wait_for(shared_.taken_reports);
    }

    // Ends the clients of a sequence that was given up.
    bool release_all()
    {
        bool is_clean = true;
        for (std::size_t i = 0; i < known_.size(); i++) {
            const auto name = static_cast<std::int32_t>(i);
            if (known_.what(name) == role::descriptor) is_clean = false;
            if (known_.what(name) != role::client) continue;
            const std::uint64_t client = known_.of({0, name});
            shared_.is_calling = true;
            library_.call(static_cast<sequence::operation>(op::kel_deregister_client), {client});
            shared_.is_calling = false;
        }
        return is_clean;
    }

    exchange &shared_;
    sequence::library library_;
    handle_numbers known_;
    std::vector<std::uint64_t> bases_;
    call_memory memory_;
};

} // namespace

void be_tested(exchange &shared, const std::string &library)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) signal(number, SIG_DFL);
    signal(SIGINT, SIG_IGN); // the one who started this asks for the end
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int standard : {0, 1, 2}) dup2(nothing, standard);
    try {
        tested(shared, library).run();
    } catch (const std::exception &) {
        shared.is_refused = true;
    }
    _exit(0);
}

} // namespace explore

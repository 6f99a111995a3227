// SPDX-License-Identifier: MIT
#include "tools/explore/maker.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>

#include "tools/explore/convert.h"
#include "tools/explore/generator.h"
#include "tools/explore/model.h"
#include "tools/sequence/arguments.h"
#include "tools/sequence/printer.h"

namespace explore {

namespace {

void wait_for(sem_t &given)
{
    while (sem_wait(&given) != 0 && errno == EINTR) continue;
}

void tell_reached(exchange &shared, const recorder &made)
{
    const auto &reached = made.reached();
    const std::size_t count = std::min(reached.size(), shared.reached.size());
    std::copy_n(reached.begin(), count, shared.reached.begin());
    shared.reached_count = count;
}

// The sequence that was the first to come to an answer, in a file that is named after it.
void keep(const std::string &folder, const recorder &made, const batch &whole)
{
    if (folder.empty()) return;
    for (const std::uint64_t pair : made.newly_reached()) {
        const auto &which = sequence::schema_of(static_cast<sequence::operation>(pair >> 32));
        const std::string path = folder + "/reached-" + std::string(which.name) + "-" +
                                 std::to_string(pair & 0xffffffff) + ".seq";
        if (std::filesystem::exists(path)) continue;
        const auto all = to_sequence(whole, whole.sequences[whole.sequence_count - 1]);
        sequence::write_file(path, to_text(all, sequence::printed::calls));
    }
}

void make_all(exchange &shared, const making &what)
{
    const model right(what.reference, what.profile);
    recorder made(right);
    generator sequences(made, what.has_device);
    std::size_t slot = 0;
    for (std::uint64_t number = what.first;; number += what.step) {
        wait_for(shared.free_slots);
        batch &into = shared.slots[slot];
        into.clear();
        const std::uint64_t begin = number * BATCH_SEQUENCES;
        const std::uint64_t end =
            shared.is_stopped ? begin : std::min(begin + BATCH_SEQUENCES, what.end);
        for (std::uint64_t i = begin; i < end; i++) {
            if (!into.has_room()) break;
            sequences.make(into, what.seed, i);
            keep(what.corpus, made, into);
        }
        tell_reached(shared, made);
        sem_post(&shared.filled_slots);
        slot = (slot + 1) % exchange::SLOTS;
        if (begin >= end) return;
    }
}

} // namespace

void be_maker(exchange &shared, const making &what)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) signal(number, SIG_DFL);
    signal(SIGINT, SIG_IGN);
    try {
        make_all(shared, what);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "kel-explore: %s\n", error.what());
        _exit(2);
    }
    shared.is_made = true;
    _exit(0);
}

} // namespace explore

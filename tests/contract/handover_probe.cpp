// SPDX-License-Identifier: MIT
//
// Hands packets from one thread to another between two marks that a tracer sees: calls of
// getppid, which nothing else here makes. The threads take turns by spinning.

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string_view>
#include <thread>

#include "kelapi/kel.h"
#include "tests/contract/traced_probe.h"

namespace {

constexpr kel_tag TAG = 1000;
// Until the library's tables have grown to what they need: freed handles rest for a while.
constexpr int WARM_UP = 600;
constexpr int PACKETS = 500;

// Due signals cost something only where the receiver has asked for its descriptor.
enum class mode { deferred, signalled_already, signal_due, signal_due_unwatched };

void hand_over(mode how)
{
    kel_client sender = 0;
    kel_client receiver = 0;
    check(kel_register_client(&sender, "sender", KEL_ROLE_ALWAYS, 32) == 0, "register_client");
    check(kel_register_client(&receiver, "receiver", KEL_ROLE_ALWAYS, 32) == 0, "register_client");
    check(kel_register_tag(receiver, TAG) == 0, "register_tag");
    check(kel_set_client_signal_interval(receiver, 600'000) == 0, "signal interval");
    if (how != mode::signal_due_unwatched) check(kel_getfd(receiver) > 0, "getfd");
    wait_for_daemon();

    const auto send = [&] {
        const kel_packet packet = kel_get_packet(sender, 0, 1500, 1, nullptr);
        check(packet != 0, "get_packet");
        check(kel_set_tag(packet, TAG) == 0, "set_tag");
        if (how == mode::deferred) check(kel_pkt_no_sig_required(packet, 1) == 0, "no_sig");
        check(kel_send(sender, packet) == 0, "send");
    };
    // A deferred packet that waits elsewhere gives the daemon a time to sleep until; without one
    // it would be woken by the first that it finds still waiting.
    kel_client bystander = 0;
    if (how == mode::deferred) {
        check(kel_register_client(&bystander, "bystander", KEL_ROLE_ALWAYS, 32) == 0, "client");
        check(kel_register_tag(bystander, TAG + 1) == 0, "register_tag");
        check(kel_set_client_signal_interval(bystander, 600'000) == 0, "signal interval");
        const kel_packet waiting = kel_get_packet(sender, 0, 1500, 1, nullptr);
        check(kel_set_tag(waiting, TAG + 1) == 0, "set_tag");
        check(kel_pkt_no_sig_required(waiting, 1) == 0, "no_sig");
        check(kel_send(sender, waiting) == 0, "send");
        wait_for_daemon();
    }
    // One more packet waits all the time, so that the descriptor stays as it is.
    if (how == mode::signalled_already) send();

    std::atomic<int> turn = 0; // even: the sender's, odd: the receiver's
    std::atomic<bool> is_marked = false;
    std::thread receiving([&] {
        for (int received = 0; received < WARM_UP + PACKETS; received++) {
            while (turn.load(std::memory_order_acquire) != 2 * received + 1) {
                std::this_thread::yield(); // on a busy machine the other thread may not run
            }
            const kel_packet packet = kel_recv(receiver);
            check(packet != 0 && kel_free_packet(packet) == 0, "recv");
            turn.store(2 * received + 2, std::memory_order_release);
        }
        // The end of a thread makes system calls, too.
        while (!is_marked.load(std::memory_order_acquire)) {
            std::this_thread::yield();
        }
    });
    for (int sent = 0; sent < WARM_UP + PACKETS; sent++) {
        if (sent == WARM_UP) getppid();
        send();
        turn.store(2 * sent + 1, std::memory_order_release);
        while (turn.load(std::memory_order_acquire) != 2 * sent + 2) {
            std::this_thread::yield();
        }
    }
    getppid();
    is_marked.store(true, std::memory_order_release);
    receiving.join();
    kel_free_packet(kel_recv(receiver));
    if (bystander) {
        check(kel_free_packet(kel_recv(bystander)) == 0, "recv");
        check(kel_deregister_client(bystander) == 0, "deregister_client");
    }
    check(kel_deregister_client(sender) == 0, "deregister_client");
    check(kel_deregister_client(receiver) == 0, "deregister_client");
}

} // namespace

int main(int count, char **arguments)
{
    const std::map<std::string_view, mode> modes = {{"deferred", mode::deferred},
                                                    {"signalled", mode::signalled_already},
                                                    {"due", mode::signal_due},
                                                    {"unwatched", mode::signal_due_unwatched}};
    const auto chosen = modes.find(count == 2 ? arguments[1] : "");
    if (chosen == modes.end()) {
        std::fprintf(stderr, "usage: handover_probe deferred|signalled|due|unwatched\n");
        return 3;
    }
    hand_over(chosen->second);
    std::printf("%d packets\n", PACKETS);
    return 0;
}

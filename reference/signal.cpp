// SPDX-License-Identifier: MIT
//
// The client's descriptor on a pair of loopback TCP sockets.
//
// A byte always stands in the client end's receive queue, which nobody but the library reads.
// The queue counts as readable when it holds as much as its low-water mark says, so moving the
// mark is all that a signal costs: one system call, as one to an eventfd would be. An urgent
// byte is the exceptional condition.
#include "reference/signal.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace kel_reference {

namespace {

// Standard input, output and error stay free for the program, and 0 is no descriptor of a
// client.
constexpr int LOWEST_DESCRIPTOR = 3;

unique_descriptor above_standard_ones(unique_descriptor descriptor)
{
    if (!descriptor.is_open() || descriptor.get() >= LOWEST_DESCRIPTOR) {
        return descriptor;
    }
    return unique_descriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, LOWEST_DESCRIPTOR));
}

unique_descriptor new_socket()
{
    return above_standard_ones(
        unique_descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP)));
}

bool set_option(const unique_descriptor &socket, int level, int name, const auto &value)
{
    return setsockopt(socket.get(), level, name, &value, sizeof value) == 0;
}

// Small bytes must not wait for each other, and a closed pair must not leave its ports busy
// for minutes.
bool prepare(const unique_descriptor &socket)
{
    const linger reset_at_close{1, 0};
    return set_option(socket, IPPROTO_TCP, TCP_NODELAY, 1) &&
           set_option(socket, SOL_SOCKET, SO_LINGER, reset_at_close);
}

sockaddr *generic(sockaddr_in &address)
{
    return reinterpret_cast<sockaddr *>(&address);
}

bool local_address(const unique_descriptor &socket, sockaddr_in &address)
{
    socklen_t size = sizeof address;
    return getsockname(socket.get(), generic(address), &size) == 0;
}

unique_descriptor listen_on_loopback(sockaddr_in &address)
{
    unique_descriptor listener = new_socket();
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool listening = listener.is_open() &&
                           bind(listener.get(), generic(address), sizeof address) == 0 &&
                           listen(listener.get(), 1) == 0 && local_address(listener, address);
    return listening ? std::move(listener) : unique_descriptor();
}

// Accepts the connection of `expected`; whatever else found the port is dropped.
unique_descriptor accept_from(const unique_descriptor &listener, const sockaddr_in &expected)
{
    while (true) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        unique_descriptor accepted(accept4(listener.get(), generic(peer), &size, SOCK_CLOEXEC));
        if (!accepted.is_open() && errno == EINTR) {
            continue;
        }
        if (!accepted.is_open() || (peer.sin_port == expected.sin_port &&
                                    peer.sin_addr.s_addr == expected.sin_addr.s_addr)) {
            return above_standard_ones(std::move(accepted));
        }
    }
}

// On loopback a connection interrupted by a signal completes without further waiting.
bool connect_to(const unique_descriptor &socket, sockaddr_in &address)
{
    if (connect(socket.get(), generic(address), sizeof address) == 0) {
        return true;
    }
    if (errno != EINTR) {
        return false;
    }
    const int again = connect(socket.get(), generic(address), sizeof address);
    return again == 0 || errno == EISCONN;
}

void send_byte(const unique_descriptor &socket, int flags)
{
    const char byte = 0;
    while (send(socket.get(), &byte, sizeof byte, MSG_NOSIGNAL | flags) < 0 && errno == EINTR) {
    }
}

// An urgent byte that was taken goes on standing in the queue. So many may.
constexpr int MAX_SPENT_URGENT_BYTES = 32;

constexpr int MARK_OF_READABLE = 1;
constexpr int MARK_OF_IDLE = 1024; // more than ever stands in the queue

void receive_bytes(const unique_descriptor &socket, int flags)
{
    char bytes[2 * MAX_SPENT_URGENT_BYTES];
    while (recv(socket.get(), bytes, sizeof bytes, flags) < 0 && errno == EINTR) {
    }
}

// In a container without network the interface is there and down. The caller sees no more than a
// client without a descriptor, so the cause is said, once.
void report_missing_loopback()
{
    static std::atomic_flag is_reported;
    const bool is_missing = errno == ENETUNREACH || errno == EADDRNOTAVAIL;
    if (!is_missing || is_reported.test_and_set()) return;
    std::fputs("libkel: no client can have a descriptor: the loopback interface is down\n", stderr);
}

bool is_acknowledged(const unique_descriptor &socket)
{
    int unacknowledged = 0;
    return ioctl(socket.get(), SIOCOUTQ, &unacknowledged) < 0 || unacknowledged == 0;
}

} // namespace

unique_descriptor::~unique_descriptor()
{
    if (is_open()) {
        close(descriptor);
    }
}

bool socket_pair::open()
{
    sockaddr_in address{};
    sockaddr_in own_address{};
    const unique_descriptor listener = listen_on_loopback(address);
    client_end = new_socket();
    if (!listener.is_open() || !client_end.is_open() || !connect_to(client_end, address) ||
        !local_address(client_end, own_address)) {
        report_missing_loopback();
        return false;
    }
    library_end = accept_from(listener, own_address);
    return library_end.is_open() && prepare(client_end) && prepare(library_end);
}

void signal_descriptor::attach(socket_pair pair)
{
    ends = std::move(pair);
    show_readable();
    send_to_client_end(0);
    if (is_exceptional) show_exceptional();
}

// Sends a byte and returns when it stands in the client end's receive queue. While it stands
// there the kernel puts off its acknowledgement, and behind a few bytes without one the next
// is held back, long enough to be seen; so an answer goes back that carries it.
void signal_descriptor::send_to_client_end(int flags)
{
    send_byte(ends.library_end, flags);
    while (true) {
        send_byte(ends.client_end, 0);
        receive_bytes(ends.library_end, 0);
        if (is_acknowledged(ends.library_end)) {
            return;
        }
        sched_yield();
    }
}

void signal_descriptor::set_readable(bool readable)
{
    if (readable == is_readable) return;
    is_readable = readable;
    if (is_open()) show_readable();
}

void signal_descriptor::set_exceptional(bool exceptional)
{
    if (exceptional == is_exceptional) return;
    is_exceptional = exceptional;
    if (is_open()) show_exceptional();
}

void signal_descriptor::show_readable()
{
    set_option(ends.client_end, SOL_SOCKET, SO_RCVLOWAT,
               is_readable ? MARK_OF_READABLE : MARK_OF_IDLE);
}

void signal_descriptor::show_exceptional()
{
    if (is_exceptional) {
        send_to_client_end(MSG_OOB);
        return;
    }
    receive_bytes(ends.client_end, MSG_OOB);
    if (++spent_urgent_bytes == MAX_SPENT_URGENT_BYTES) drop_spent_bytes();
}

// A read stops in front of the last urgent byte, so that this one and the fresh byte stay.
void signal_descriptor::drop_spent_bytes()
{
    send_to_client_end(0);
    receive_bytes(ends.client_end, MSG_DONTWAIT);
    spent_urgent_bytes = 1;
}

} // namespace kel_reference

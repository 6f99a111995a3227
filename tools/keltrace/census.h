// SPDX-License-Identifier: MIT
//
// The census: what tavor obtained, by its own calls and as it was told, and what it released. What
// a client's deregistration has to release for it is counted apart ("swept").
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kelapi/types.h"

namespace keltrace {

namespace census {

enum class kind {
    client,
    packet,
    buffer,
    bufgroup,
    tag,
    dynamic_tag,
    tlv,
    event,
    memory,
    thread,
    descriptor,
    count
};

// An object: `scope` is what its number is relative to (a registration's client, a TLV's packet),
// `detail` tells apart what has one number (the group flags of events).
struct key {
    census::kind kind;
    std::uint64_t scope;
    std::uint64_t number;
    std::uint64_t detail;

    auto operator<=>(const key &) const = default; // NOLINT(modernize-use-nullptr): clang-tidy 14
};

struct count {
    std::uint64_t obtained;
    std::uint64_t released;
    std::uint64_t swept;
    std::uint64_t left;
};

void start();
bool wanted();
// From now on the calls that obtain are kept, to be written there at the end.
void keep_calls(int descriptor);
bool calls_wanted();

// `call` is its line in a trace; looked at only where calls are kept.
void obtain(const key &which, kel_client owner, std::string_view call = {});
void release(const key &which);
// Everything of that kind and scope, e.g. the TLVs of a packet.
void release_scope(census::kind kind, std::uint64_t scope);
// The same object under another number; 0: released.
void renumber(const key &which, std::uint64_t number);
// What the client still holds, itself apart.
void sweep(kel_client owner);
// Whose it is; 0 when it is unknown.
kel_client owner_of(const key &which);

const char *name(census::kind kind);
// Safe in a signal handler.
count counted(census::kind kind);
// The library's objects that are left or were swept, each with its call. Not for signal handlers.
void write_left();

} // namespace census

} // namespace keltrace

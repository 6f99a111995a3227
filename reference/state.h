// SPDX-License-Identifier: MIT
//
// The library's objects and the state that all operations share.
//
// One lock guards everything here: every operation of the interface is entered (entry.cpp)
// with it held, and keeps it until it returns. Nothing else is locked while it is held, except
// the allocator of the C library and, where a descriptor is closed, the list of open devices
// (region_device.cpp). Waits (events, the daemon) are condition variables on that lock. What helps
// throughput is that nothing under it grows with the number of objects and nothing blocks.
//
// Tables and TLVs that cannot grow are ENOMEM; elsewhere a failure to get a few bytes for
// book-keeping from the C++ library is fatal to the process.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kelapi/kel.h"
#include "reference/arena.h"
#include "reference/handle_table.h"
#include "reference/intrusive_list.h"
#include "reference/signal.h"

namespace kel_reference {

struct client_object;
struct packet_object;
struct bufgroup_object;

using clock = std::chrono::steady_clock;

// What is counted, for a client or a group.
struct usage {
    std::uint32_t buffers = 0;
    std::uint32_t bytes = 0;
};

struct buffer_object : list_node<buffer_object> { // node in its obtainer's list
    kel_buffer handle = 0;
    std::byte *memory = nullptr; // in the arena
    std::uint32_t capacity = 0;  // bytes asked for
    std::uint32_t data_start = 0;
    std::uint32_t length = 0;
    bool space_reserved = false;
    buffer_object *next = nullptr;
    buffer_object *previous = nullptr;
    packet_object *packet = nullptr;   // whose chain it stands in
    client_object *obtainer = nullptr; // null once that client is gone
    bufgroup_object *group = nullptr;  // null: default memory
    std::uint32_t charged_bytes = 0;
};

struct tlv_block {
    std::uint32_t id = 0;
    std::uint16_t version = 0;
    std::vector<std::byte> data;
};

// Of which two have no name and exist by choice only (options.def).
constexpr std::size_t MAX_OFFSET_KINDS = 6;

struct packet_metadata {
    kel_tag tag = 0;
    std::uint32_t cause = 0;
    std::uint16_t priority = 0;
    std::uint16_t link_type = 0;
    std::uint32_t vrf_id = 0;
    std::uint32_t topology_id = 0;
    std::uint16_t ingress_vlan_id = 0;
    std::uint16_t egress_vlan_id = 0;
    std::array<std::uint32_t, 4> opaque{};
    std::uint32_t delta = 0;
    std::array<std::uint32_t, MAX_OFFSET_KINDS> offsets{}; // by offset kind
    std::array<std::uint64_t, 4> ifids{};                  // by interface kind
};

struct in_queue;

// Node in its holder's list and in the queue that it waits in.
struct packet_object : list_node<packet_object>, list_node<packet_object, in_queue> {
    kel_packet handle = 0;
    buffer_object *head = nullptr;
    buffer_object *tail = nullptr;
    std::uint32_t buffer_count = 0;
    std::uint32_t length = 0; // sum over the chain
    bool space_reserved = false;
    bool no_signal = false;
    bufgroup_object *group = nullptr; // it was obtained from
    client_object *holder = nullptr;
    client_object *queued_at = nullptr; // whose queue it waits in
    packet_metadata metadata;
    std::vector<tlv_block> tlvs; // in order of allocation
    std::uint32_t caller_pid = 0;
    std::uintptr_t caller_pc = 0;
};

using packet_queue = intrusive_list<packet_object, in_queue>;

struct bufgroup_object {
    kel_bufgroup handle = 0;
    std::string name;
    std::map<client_object *, std::uint32_t> registrations; // how often by each client
    // Buffers and packets that name it. A group that nobody has registered any more is gone
    // for callers, and stays for these.
    std::uint32_t references = 0;
    usage used;
    std::uint32_t mask = 0;
    kel_bufgroup_thresholds buffers{};
    kel_bufgroup_thresholds bytes{};
    // Reserved groups only.
    bool reserved = false;
    bool no_poison = false;
    std::uint32_t element_size = 0;
    std::uint32_t head_room = 0; // in front of each element
    block_pool elements;
};

// Where threads wait for a client's events. It outlives the client while they leave.
struct event_gate {
    std::condition_variable changed;
    std::uint64_t clears = 0;
    bool client_is_gone = false;
};

struct client_object : list_node<client_object> { // node in the list of clients to flush
    kel_client handle = 0;
    std::string name;
    std::uint32_t role = 0;
    std::uint32_t registered_role = 0;
    std::uint64_t active_since = 0; // order in which clients became ACTIVE
    std::uint32_t asked_depth = 0;
    signal_descriptor descriptor;
    packet_queue queue; // received, oldest first
    // Signalling.
    std::uint32_t signal_threshold = 0;
    std::chrono::milliseconds signal_interval{};
    bool signalled = false;     // a signal stands until the queue is empty
    bool flush_pending = false; // deferred packets wait for the daemon
    clock::time_point last_deferred_send{};
    // Events.
    std::list<kel_event> events;         // armed and not fired
    std::list<kel_event> pending_events; // fired and not reported
    bool room_is_awaited = false;        // tag events wait for room in the queue
    std::shared_ptr<event_gate> gate = std::make_shared<event_gate>();
    // What it holds.
    usage used;
    intrusive_list<packet_object> packets; // it holds now
    intrusive_list<buffer_object> buffers; // it obtained, wherever they stand
    std::set<kel_tag> tags;                // registered
    std::set<kel_tag> allocated_tags;      // dynamic
    std::set<bufgroup_object *> bufgroups; // registered
};

struct tag_object {
    client_object *owner = nullptr;       // of a dynamic tag
    std::vector<client_object *> holders; // in order of registration
    bool shared = false;                  // more holders may join those there are
};

// Type and object of an event.
using event_key = std::pair<std::uint32_t, std::uint32_t>;

struct state {
    std::mutex lock;
    const void *caller = nullptr; // where the operation in progress was called
    arena memory;
    handle_table<client_object, handle_kind::client> clients;
    handle_table<packet_object, handle_kind::packet> packets;
    handle_table<buffer_object, handle_kind::buffer> buffers;
    handle_table<bufgroup_object, handle_kind::bufgroup> bufgroups;
    std::unordered_map<std::string, bufgroup_object *> bufgroup_names;
    std::unordered_map<kel_tag, tag_object> tags;
    kel_tag next_dynamic_tag = KEL_FIRST_DYNAMIC_TAG;
    std::set<kel_tag> freed_dynamic_tags; // below the next one
    std::uint64_t activations = 0;
    intrusive_list<client_object> clients_to_flush;
    std::map<event_key, std::set<client_object *>> watchers; // with such an event armed
    std::map<std::uint32_t, kel_region_desc> regions;
    std::map<std::uint32_t, kel_subregion_desc> subregions;
    std::uint32_t released_by_deregistration = 0; // packets, buffers, groups, tags and events
};

// The one instance; lives as long as the process, so that threads that outlive main are
// safe.
state &library();

// Gives the lock up for the life of this object, so that something may take its time. What was
// found before has to be found again.
class unlocked {
public:
    explicit unlocked(state &given) : library(given) { library.lock.unlock(); }
    unlocked(const unlocked &) = delete;
    unlocked &operator=(const unlocked &) = delete;
    ~unlocked() { library.lock.lock(); }

private:
    state &library;
};

// The state, with its lock held for the life of this object: for what is no operation.
class locked_state {
public:
    locked_state() : guarded(library()), guard(guarded.lock) {}
    state *operator->() const { return &guarded; }
    state &operator*() const { return guarded; }
    std::unique_lock<std::mutex> &lock() { return guard; }

private:
    state &guarded;
    std::unique_lock<std::mutex> guard;
};

} // namespace kel_reference

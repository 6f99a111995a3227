// SPDX-License-Identifier: MIT
//
// The objects of the sequence that is being made: what may be done with them. What the model can
// be asked is asked; kept here is the rest.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/explore/random.h"
#include "tools/explore/recorder.h"

namespace explore {

// What tells one event of a client from another.
struct event_key {
    std::uint64_t type = 0;
    scalar about{};
    std::uint64_t flags = 0;

    bool operator==(const event_key &) const = default;
};

struct object {
    std::int32_t name = -1;
    role what = role::number;
    std::uint32_t number = 0; // in the model
    std::int32_t owner = -1;  // of a tag: the client
    int chain = -1;           // of buffers that have been in one
    // Clients.
    bool shares_tags = false;
    bool has_event = false; // armed, or fired and not reported
    event_key event{};
    // Packets.
    bool is_queued = false;
    bool has_reserved_buffers = false;
    // Buffers.
    bool is_reserved = false; // head room was made
    bool is_inner = false;
    bool is_in_packet = false;
    // Groups.
    bool has_thresholds = false;
    bool is_reserved_group = false;
    // Tags.
    bool is_freed = false;
};

class world {
public:
    world(const recorder &made, random_numbers &chance) : made_(made), chance_(chance) {}

    void clear();
    object &add(const given_object &given);

    std::vector<object> &all(role what) { return objects_[static_cast<std::size_t>(what)]; }
    const std::vector<object> &all(role what) const
    {
        return objects_[static_cast<std::size_t>(what)];
    }
    std::size_t count(role what) const { return objects_[static_cast<std::size_t>(what)].size(); }
    object *find(role what, std::int32_t name);

    // The model's view.
    bool is_live(const object &one) const;
    bool is_registered(const object &group, const object &client) const;
    std::uint32_t length(const object &packet) const;
    std::uint32_t head_room(const object &packet) const;
    std::uint32_t first_length(const object &packet) const;
    std::uint32_t buffer_length(std::uint32_t buffer) const;
    std::uint32_t chain_length(std::uint32_t buffer) const;
    std::uint32_t chain_count(std::uint32_t buffer) const;
    bool is_held(std::uint32_t tag) const;
    bool is_queue_empty(const object &client) const;

    // One of those that `fits`, mostly the last one again or a young one, so that calls meet on the
    // same objects; null when a few tries find none.
    template <typename predicate> object *pick(role what, predicate fits)
    {
        constexpr int TRIES = 6;
        constexpr std::size_t YOUNG = 5;
        std::vector<object> &from = all(what);
        if (from.empty()) return nullptr;
        std::int32_t &last = last_[static_cast<std::size_t>(what)];
        if (chance_.chance(50)) {
            object *again = find(what, last);
            if (again && fits(*again)) return again;
        }
        for (int i = 0; i < TRIES; i++) {
            const std::size_t range =
                chance_.chance(60) && from.size() > YOUNG ? YOUNG : from.size();
            object &tried = from[from.size() - 1 - chance_.below(range)];
            if (!fits(tried)) continue;
            last = tried.name;
            return &tried;
        }
        return nullptr;
    }
    object *pick_live(role what)
    {
        return pick(what, [this](const object &each) { return is_live(each); });
    }
    std::size_t count_live(role what);

    // All buffers of the chain of `one`, as far as they have names.
    template <typename visitor> void for_chain(const object &one, visitor visit)
    {
        const int chain = one.chain;
        for (object &each : all(role::buffer)) {
            if (each.chain == chain) visit(each);
        }
    }
    int new_chain() { return chains_++; }

private:
    static constexpr std::size_t ROLES = static_cast<std::size_t>(role::program_address) + 1;

    const recorder &made_;
    random_numbers &chance_;
    std::array<std::vector<object>, ROLES> objects_;
    std::array<std::int32_t, ROLES> last_{}; // that was picked
    int chains_ = 0;
};

} // namespace explore

// SPDX-License-Identifier: MIT
//
// Makes sequences that nobody wrote: long, deep, mostly valid, and only of calls whose answers the
// contract decides. A sequence depends on the seed, its index and the profile alone.
//
// Each sequence has weights of its own: whole families and single operations are left out or
// preferred. Handles come from the objects that live, sizes from the boundaries of what they hold;
// a small share of both is wrong.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "tools/explore/random.h"
#include "tools/explore/recorder.h"
#include "tools/explore/world.h"

namespace explore {

// What some sequences are about beside single calls.
enum class scenario : std::uint8_t {
    none,
    full_queue, // sends to the depth of a queue
    thresholds, // a group at its thresholds, and its events
    many_sinks, // more holders of a tag than there may be
    signals,    // descriptors
    regions,    // the device
    reserved,   // a reserved group until it is empty
};

class generator {
public:
    generator(recorder &into, bool has_device);
    generator(const generator &) = delete;
    generator &operator=(const generator &) = delete;

    // Adds the sequence with that index to the batch, which has room for it.
    void make(batch &into, std::uint64_t seed, std::uint64_t index);

private:
    using arguments = std::array<flat_argument, interface::ARGUMENT_MAX>;

    // weights.cpp: what is called how often in this sequence.
    void draw_weights();
    op choose();

    // arguments.cpp: null operations are refused by returning false.
    bool make_arguments(op which, arguments &all);
    bool make_argument(op which, std::size_t index, const sequence::parameter &where,
                       arguments &all);
    flat_argument client_for(op which);
    flat_argument packet_for(op which);
    flat_argument buffer_for(op which, std::size_t index);
    flat_argument group_for(op which);
    flat_argument tag_for(op which);
    flat_argument wrong_handle(role what);
    flat_argument text_for(op which);
    flat_argument timeout();
    flat_argument wrong_timeout();
    bool is_meaningful(op which, const arguments &all) const;
    bool is_tag_shared(const scalar &tag) const;

    // numbers.cpp
    struct number_draws;
    std::uint64_t number_for(op which, std::size_t index, const arguments &all);
    std::uint64_t near(std::uint64_t boundary);
    std::uint32_t obtained_size();
    std::uint32_t tlv_id(op which);
    flat_argument metadata_record(op which);
    flat_argument event_record(op which);
    flat_argument thresholds_record();
    flat_argument packet_list_record();
    flat_argument data_of(std::size_t length);

    // effects.cpp: what the answer says of the objects.
    void note(op which, const arguments &all, std::uint64_t result);
    void name_given(op which, const arguments &all);
    void note_chain(std::int32_t first, std::int32_t added);
    void free_tags(std::int32_t owner);
    void look_at(role what, std::int32_t name);
    void write_after(op which, std::int32_t packet, std::int32_t buffer);
    void look_after(op which, std::int32_t packet);
    void look_at_packet(std::int32_t name);
    void look_at_tlvs(std::int32_t name);
    void look_at_buffer(std::int32_t name);

    // scenarios.cpp
    void play(scenario which);
    void arm(std::int32_t client, const std::array<scalar, 6> &event);
    void fill_queue();
    void cross_thresholds();
    void gather_sinks();
    void watch_signals();
    void use_device();
    void empty_reserved();
    std::int32_t new_client(std::uint32_t role, std::uint32_t depth);
    std::int32_t new_packet(std::int32_t client, std::uint32_t group, std::uint32_t size);
    std::int32_t new_buffer(std::int32_t client, std::uint32_t size, bool is_one);

    // generator.cpp
    std::uint64_t call(op which, const arguments &all, std::size_t count);
    std::uint64_t call(op which, std::initializer_list<flat_argument> all);
    bool random_call();
    void last_look();
    void release_all();

    recorder &out_;
    random_numbers chance_{0};
    world world_;
    bool has_device_;
    std::array<std::uint32_t, OPERATION_COUNT> summed_weights_{};
    // Of the arguments that are being made.
    object *client_ = nullptr;
    object *packet_ = nullptr;
    object *buffer_ = nullptr;
    object *group_ = nullptr;
    bool is_wrong_ = false; // one argument is, on purpose
};

// The data that is written: bytes that depend on their place, of which any stretch can be told from
// any other.
std::string_view written_data(std::uint32_t seed, std::size_t skipped, std::size_t length);

} // namespace explore

// SPDX-License-Identifier: MIT
//
// Makes calls on the model and writes them into a batch, each with the answer that is right.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

#include "tools/explore/batch.h"
#include "tools/explore/call_memory.h"
#include "tools/explore/model.h"

namespace explore {

// The operations by name; their numbers are those of tools/sequence.
enum class op : sequence::operation {
#define OPERATION(name, ...) name,
#include "kelapi/operations.def"
    select,
    sleep,
    open_device,
    close_device,
    ioctl,
};

constexpr std::size_t OPERATION_COUNT = static_cast<std::size_t>(op::ioctl) + 1;

// What a variable stands for, when a call has given it.
struct given_object {
    std::int32_t name;
    role what;
    std::uint32_t number; // in the model
};

class recorder {
public:
    explicit recorder(const model &right) : model_(right) {}
    recorder(const recorder &) = delete;
    recorder &operator=(const recorder &) = delete;

    // A new sequence at the end of the batch, which must have room for it.
    void begin(batch &into, std::uint64_t index);
    void end();

    // Makes the call and returns its result.
    std::uint64_t make(op which, std::span<const flat_argument> arguments);
    std::uint64_t make(op which, std::initializer_list<flat_argument> arguments)
    {
        return make(which, std::span(arguments.begin(), arguments.size()));
    }

    // Of the last call: the objects it gave that had no name, and those that it named anew or
    // again, in the answer's order.
    const std::vector<given_object> &given() const { return given_; }
    const std::vector<std::int32_t> &named() const { return named_; }

    const scalar &field(const flat_argument &record, std::size_t index) const
    {
        return into_->scalars.items[record.begin + index];
    }
    // What the last kel_event_wait stored.
    std::uint32_t last_event_type() const
    {
        return static_cast<std::uint32_t>(load(memory_.at(1), 4));
    }

    std::size_t calls() const { return into_->calls.used - begin_; }
    std::uint32_t number_of(std::int32_t name) const
    {
        return static_cast<std::uint32_t>(numbers_.of({0, name}));
    }
    const kel_functions &asked() const { return model_.asked(); }

    // Arguments.
    static flat_argument number(std::uint64_t one);
    static flat_argument variable(std::int32_t name);
    static flat_argument nothing();
    static flat_argument output() { return {}; }
    flat_argument data(std::string_view bytes);
    flat_argument record(std::span<const scalar> fields);

    // Those that the sequence was the first to come to.
    const std::vector<std::uint64_t> &newly_reached() const { return newly_reached_; }
    // What calls have ended with so far: operation in the upper half, error in the lower.
    const std::vector<std::uint64_t> &reached() const { return reached_; }

private:
    void note_reached(op which, std::uint64_t error);

    class reader;

    const model &model_;
    batch *into_ = nullptr;
    std::uint32_t begin_ = 0;
    std::uint32_t names_begin_ = 0;
    std::uint64_t index_ = 0;
    std::vector<std::uint64_t> newly_reached_;
    handle_numbers numbers_;
    call_memory memory_;
    call_memory shadow_memory_;
    std::vector<given_object> given_;
    std::vector<std::int32_t> named_;
    std::vector<std::uint64_t> bases_; // of addresses
    // Each address of an answer about an object has distances of its own.
    struct address_space {
        std::int32_t owner;
        op which;
        std::size_t number;
        bool operator==(const address_space &) const = default;
    };
    std::vector<address_space> spaces_;
    std::vector<std::uint64_t> reached_;
};

} // namespace explore

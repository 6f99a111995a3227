// SPDX-License-Identifier: MIT
//
// Compact calls laid out in memory, and their answers taken from there. The same code serves the
// model and the library under test, so that both are asked and read alike.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tools/explore/batch.h"
#include "tools/sequence/memory.h"

namespace explore {

using sequence::role;

// The numbers that variables stand for in one library.
class handle_numbers {
public:
    void clear() { numbers_.clear(); }
    std::uint64_t of(const scalar &named) const
    {
        return named.name < 0
                   ? named.number
                   : numbers_[static_cast<std::size_t>(named.name)].number + named.number;
    }
    void bind(std::int32_t name, role what, std::uint64_t number)
    {
        const auto index = static_cast<std::size_t>(name);
        if (index >= numbers_.size()) numbers_.resize(index + 1);
        numbers_[index] = {number, what};
    }
    // The youngest variable with that number; NO_VARIABLE when there is none.
    std::int32_t name_of(role what, std::uint64_t number) const
    {
        for (std::size_t i = numbers_.size(); i-- > 0;) {
            if (numbers_[i].number == number && is_kind(numbers_[i].what, what)) {
                return static_cast<std::int32_t>(i);
            }
        }
        return sequence::NO_VARIABLE;
    }
    role what(std::int32_t name) const { return numbers_[static_cast<std::size_t>(name)].what; }
    std::size_t size() const { return numbers_.size(); }

private:
    struct entry {
        std::uint64_t number = 0;
        role what = role::number;
    };
    static bool is_kind(role is, role asked)
    {
        return is == asked || (asked == role::object && (is == role::tag || is == role::bufgroup));
    }

    std::vector<entry> numbers_;
};

// A number of a record, with all that reading it takes.
inline constexpr std::uint32_t NO_ENTRY = ~std::uint32_t{0};

struct field_plan {
    std::uint16_t offset;
    std::uint8_t width;
    role what;
    std::uint32_t mask;  // 0: always
    std::uint32_t entry; // an array's; NO_ENTRY: none
    bool is_request;     // of a list: the caller's
    bool may_name;
    bool is_compared;
};

struct output_plan {
    const sequence::parameter *where;
    int parameter; // -1: the result
    bool may_name;
    bool gives_new;
    std::vector<field_plan> fields{};
    bool has_mask = false; // the record's first word selects fields
    bool has_count = false;
};

struct operation_plan {
    const sequence::operation_schema *schema;
    output_plan result;
    std::vector<output_plan> outputs{};
};

// One for each operation, in their order.
std::span<const operation_plan> plans();

class call_memory {
public:
    call_memory();
    call_memory(const call_memory &) = delete;
    call_memory &operator=(const call_memory &) = delete;

    sequence::raw_arguments &lay_out(const batch &whole, const flat_call &made,
                                     const handle_numbers &known);

    // Where a parameter's memory stands.
    const std::byte *at(std::size_t parameter) const { return memory_[parameter]; }
    // What a count held before the call.
    std::uint64_t count_before(std::size_t parameter) const { return counts_[parameter]; }

    // The longest data.
    static constexpr std::size_t DATA_MAX = std::size_t{128} << 10;

private:
    void lay_out_one(const batch &whole, std::size_t index, const flat_argument &given,
                     const sequence::parameter &where, const handle_numbers &known);
    void clear_output(std::size_t index, std::span<const flat_argument> all,
                      const sequence::parameter &where, const handle_numbers &known);

    std::vector<std::byte> owned_;
    std::array<std::byte *, interface::ARGUMENT_MAX> memory_{};
    std::array<std::uint64_t, interface::ARGUMENT_MAX> counts_{};
    sequence::raw_arguments raw_{};
};

std::uint64_t load(const std::byte *from, std::size_t width);

// The result of a call, as wide as it is.
std::uint64_t cut(const operation_plan &plan, std::uint64_t result);

// The error that a call ended with: its result, or what it stored beside a handle.
std::uint64_t error_of(const operation_plan &plan, std::span<const flat_argument> arguments,
                       std::uint64_t result, const call_memory &memory);

// Calls, for all that an answer consists of and in its order,
//   to.number(output, what, may_name, is_compared, number) for each number,
//   to.data(output, bytes, count) for data,
//   to.pass_over() for a number that could have given a name and is not there.
template <typename visitor>
void visit_answer(const operation_plan &plan, std::span<const flat_argument> arguments,
                  std::uint64_t result, const call_memory &memory, visitor &to)
{
    const output_plan &returned = plan.result;
    if (returned.where->shape == sequence::shape::number) {
        to.number(returned, returned.where->what, returned.may_name,
                  returned.where->uncompared == nullptr, result);
    }
    for (const output_plan &each : plan.outputs) {
        const auto index = static_cast<std::size_t>(each.parameter);
        const sequence::parameter &where = *each.where;
        if (arguments[index].kind == sequence::value_kind::null) continue;
        if (!has_stored(*plan.schema, where, result)) {
            if (where.shape == sequence::shape::number && each.may_name) to.pass_over();
            continue;
        }
        const std::byte *bytes = memory.at(index);
        std::uint64_t count = 1;
        if (where.count_at >= 0) {
            const auto at = static_cast<std::size_t>(where.count_at);
            if (plan.schema->is_system()) {
                count = arguments[index].count;
            } else {
                if (arguments[at].kind == sequence::value_kind::null) continue;
                count = std::min(load(memory.at(at), 4), memory.count_before(at));
            }
        } else if (where.shape == sequence::shape::bytes) {
            count = arguments[index].count;
        }
        if (where.shape == sequence::shape::bytes) {
            to.data(each, bytes, count);
        } else if (each.fields.empty()) {
            to.number(each, where.what, each.may_name, where.uncompared == nullptr,
                      load(bytes, where.width));
        } else {
            const std::uint64_t mask = each.has_mask ? load(bytes, 4) : ~std::uint64_t{0};
            const std::uint64_t entries = each.has_count ? load(bytes, 2) : ~std::uint64_t{0};
            for (std::uint64_t entry = 0; entry < count; entry++) {
                for (const field_plan &part : each.fields) {
                    if (part.is_request) continue;
                    if ((part.mask != 0 && (part.mask & mask) == 0) ||
                        (part.entry != NO_ENTRY && part.entry >= entries)) {
                        if (part.may_name) to.pass_over();
                        continue;
                    }
                    to.number(each, part.what, part.may_name, part.is_compared,
                              load(bytes + entry * where.record->size + part.offset, part.width));
                }
            }
        }
    }
}

} // namespace explore

// SPDX-License-Identifier: MIT
#include "tools/explore/recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace explore {

using sequence::value_kind;

// Writes an answer of the model as the expected one, and names what is new.
class recorder::reader {
public:
    reader(recorder &of, op which, std::int32_t owner) : of_(of), which_(which), owner_(owner) {}

    void number(const output_plan &output, role what, bool may_name, bool is_compared,
                std::uint64_t number)
    {
        of_.into_->scalars.add(scalar_of(output, what, may_name, is_compared, number));
        if (may_name) place_++;
    }

    void pass_over() { place_++; }

    void data(const output_plan &output, const std::byte *bytes, std::uint64_t count)
    {
        auto &pool = of_.into_->bytes;
        const std::byte *shadow = of_.shadow_memory_.at(static_cast<std::size_t>(output.parameter));
        scalar written{count, static_cast<std::int32_t>(pool.used)};
        std::memcpy(&pool.items[pool.used], bytes, count);
        pool.used += static_cast<std::uint32_t>(count);
        if (std::memcmp(bytes, shadow, count) != 0) {
            written.number |= HAS_MASK;
            for (std::uint64_t i = 0; i < count; i++) pool.add(bytes[i] != shadow[i] ? 1 : 0);
        }
        of_.into_->scalars.add(written);
    }

private:
    scalar scalar_of(const output_plan &output, role what, bool may_name, bool is_compared,
                     std::uint64_t number)
    {
        if (what == role::process) {
            return {number == static_cast<std::uint64_t>(getpid()) ? 1U : 0U};
        }
        if (!is_compared || what == role::program_address) return {number != 0 ? 1U : 0U};
        if (what == role::address) return number == 0 ? scalar{} : address_of(number);
        const bool is_named = what >= role::client && what <= role::descriptor;
        if (!is_named || number == 0 || is_plain(what, number, may_name)) return {number};
        const std::int32_t known = may_name && output.gives_new
                                       ? sequence::NO_VARIABLE
                                       : of_.numbers_.name_of(what, number);
        if (known >= 0 && may_name) of_.named_.push_back(known);
        if (known >= 0) return {0, known};
        if (!may_name) return {number};
        const auto name = static_cast<std::int32_t>(of_.numbers_.size());
        of_.numbers_.bind(name, what, number);
        of_.given_.push_back({name, what, static_cast<std::uint32_t>(number)});
        note_name(what, name);
        of_.named_.push_back(name);
        return {IS_NEW, name};
    }

    static bool is_plain(role what, std::uint64_t number, bool may_name)
    {
        if (what == role::descriptor) return static_cast<std::int32_t>(number) < 0;
        return what == role::tag && may_name && number < KEL_FIRST_DYNAMIC_TAG;
    }

    // By its distance from the first one of the same object.
    scalar address_of(std::uint64_t address)
    {
        const address_space space{owner_, which_, addresses_++};
        const auto found = std::find(of_.spaces_.begin(), of_.spaces_.end(), space);
        const auto index = static_cast<std::size_t>(found - of_.spaces_.begin());
        if (found == of_.spaces_.end()) {
            of_.spaces_.push_back(space);
            of_.bases_.push_back(address);
            note_name(role::address, sequence::NO_VARIABLE);
        }
        return {address - of_.bases_[index], static_cast<std::int32_t>(index)};
    }

    void note_name(role what, std::int32_t name)
    {
        of_.into_->names.add({of_.into_->calls.used - of_.begin_, place_, what, name});
    }

    recorder &of_;
    op which_;
    std::int32_t owner_;
    std::uint16_t place_ = 0;
    std::size_t addresses_ = 0;
};

void recorder::begin(batch &into, std::uint64_t index)
{
    into_ = &into;
    begin_ = into.calls.used;
    names_begin_ = into.names.used;
    index_ = index;
    newly_reached_.clear();
    numbers_.clear();
    spaces_.clear();
    bases_.clear();
}

void recorder::end()
{
    into_->sequences[into_->sequence_count++] = {index_, begin_, into_->calls.used - begin_,
                                                 names_begin_, into_->names.used - names_begin_};
}

std::uint64_t recorder::make(op which, std::span<const flat_argument> arguments)
{
    const operation_plan &plan = plans()[static_cast<std::size_t>(which)];
    flat_call made{static_cast<sequence::operation>(which), into_->arguments.used,
                   into_->scalars.used, 0};
    for (const flat_argument &each : arguments) into_->arguments.add(each);
    sequence::raw_arguments &passed = memory_.lay_out(*into_, made, numbers_);
    // Memory that is left as it was would look like written memory.
    constexpr std::size_t NO_POISON = 6;
    if (which == op::kel_register_reserved_bufgroup) passed[NO_POISON] = 0;
    const std::uint64_t result = cut(plan, model_.right().call(made.operation, passed));
    sequence::raw_arguments &shadow = shadow_memory_.lay_out(*into_, made, numbers_);
    if (which == op::kel_register_reserved_bufgroup) shadow[NO_POISON] = 0;
    model_.shadow().call(made.operation, shadow);
    given_.clear();
    named_.clear();
    const std::int32_t owner =
        arguments.empty() || arguments[0].kind != value_kind::number ? -1 : arguments[0].one.name;
    reader reading(*this, which, owner);
    visit_answer(plan, arguments, result, memory_, reading);
    made.expected_count = into_->scalars.used - made.expected;
    into_->calls.add(made);
    note_reached(which, error_of(plan, arguments, result, memory_));
    return result;
}

flat_argument recorder::number(std::uint64_t one)
{
    return {value_kind::number, 0, 0, {one}};
}

flat_argument recorder::variable(std::int32_t name)
{
    return {value_kind::number, 0, 0, {0, name}};
}

flat_argument recorder::nothing()
{
    return {value_kind::null};
}

flat_argument recorder::data(std::string_view bytes)
{
    auto &pool = into_->bytes;
    const flat_argument made{value_kind::bytes, pool.used,
                             static_cast<std::uint32_t>(bytes.size())};
    std::memcpy(&pool.items[pool.used], bytes.data(), bytes.size());
    pool.used += static_cast<std::uint32_t>(bytes.size());
    return made;
}

flat_argument recorder::record(std::span<const scalar> fields)
{
    const flat_argument made{value_kind::record, into_->scalars.used,
                             static_cast<std::uint32_t>(fields.size())};
    for (const scalar &each : fields) into_->scalars.add(each);
    return made;
}

void recorder::note_reached(op which, std::uint64_t error)
{
    const std::uint64_t pair = static_cast<std::uint64_t>(which) << 32 | (error & 0xffffffff);
    const auto place = std::lower_bound(reached_.begin(), reached_.end(), pair);
    if (place != reached_.end() && *place == pair) return;
    reached_.insert(place, pair);
    newly_reached_.push_back(pair);
}

} // namespace explore

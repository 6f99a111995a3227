// SPDX-License-Identifier: MIT
#include "tools/explore/call_memory.h"

#include <algorithm>
#include <cstring>

namespace explore {

namespace {

using sequence::shape;
using sequence::value_kind;

// Where a library stores more than it should, it does no harm.
constexpr std::size_t SPARE = 4096;

void store(std::byte *to, std::size_t width, std::uint64_t value)
{
    std::memcpy(to, &value, width); // little-endian, as the records are
}

std::uint32_t entry_of(std::string_view name)
{
    const std::size_t at = name.find('[');
    if (at == std::string_view::npos) return NO_ENTRY;
    std::uint32_t entry = 0;
    for (std::size_t i = at + 1; i < name.size() && name[i] != ']'; i++) {
        entry = entry * 10 + static_cast<std::uint32_t>(name[i] - '0');
    }
    return entry;
}

output_plan plan_of(const sequence::operation_schema &which, const sequence::parameter &where,
                    int index)
{
    output_plan made{&where, index, may_name(where, where.what), gives_new_object(which, where)};
    if (where.shape != shape::record || index < 0) return made;
    for (const sequence::field &part : where.record->fields) {
        // An entry of a chain may be another buffer the next time: no distance means anything.
        const bool is_compared = part.uncompared == nullptr && part.what != role::address;
        made.fields.push_back({part.offset, part.width, part.what, part.mask, entry_of(part.name),
                               part.name.starts_with("requests"), may_name(where, part.what),
                               is_compared});
    }
    made.has_mask = where.record->fields.front().name == "mask";
    made.has_count = where.record->fields.front().name == "count";
    return made;
}

std::vector<operation_plan> make_plans()
{
    std::vector<operation_plan> all;
    for (const sequence::operation_schema &which : sequence::operations()) {
        operation_plan made{&which, plan_of(which, which.result, -1)};
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            if (!which.parameters[i].is_written()) continue;
            made.outputs.push_back(plan_of(which, which.parameters[i], static_cast<int>(i)));
        }
        all.push_back(std::move(made));
    }
    return all;
}

} // namespace

std::span<const operation_plan> plans()
{
    static const std::vector<operation_plan> ALL = make_plans();
    return ALL;
}

std::uint64_t load(const std::byte *from, std::size_t width)
{
    std::uint64_t number = 0;
    std::memcpy(&number, from, width);
    return number;
}

std::uint64_t cut(const operation_plan &plan, std::uint64_t result)
{
    const sequence::parameter &returned = *plan.result.where;
    if (returned.is_signed || returned.width >= 8) return result;
    return result & ((std::uint64_t{1} << returned.width * 8) - 1);
}

std::uint64_t error_of(const operation_plan &plan, std::span<const flat_argument> arguments,
                       std::uint64_t result, const call_memory &memory)
{
    if (plan.result.where->what == role::error) return result;
    for (const output_plan &each : plan.outputs) {
        const auto index = static_cast<std::size_t>(each.parameter);
        if (each.where->form != interface::form::error) continue;
        if (arguments[index].kind == value_kind::null) continue;
        return load(memory.at(index), each.where->width);
    }
    return result != 0 ? 1 : 0;
}

call_memory::call_memory() : owned_((DATA_MAX + SPARE) * interface::ARGUMENT_MAX)
{
    for (std::size_t i = 0; i < memory_.size(); i++) {
        memory_[i] = owned_.data() + i * (DATA_MAX + SPARE);
    }
}

void call_memory::clear_output(std::size_t index, std::span<const flat_argument> all,
                               const sequence::parameter &where, const handle_numbers &known)
{
    std::size_t size = where.record ? where.record->size : where.width;
    if (where.count_at >= 0) {
        const flat_argument &count = all[static_cast<std::size_t>(where.count_at)];
        const std::uint64_t counted = count.kind == value_kind::number ? known.of(count.one) : 0;
        size = std::min<std::uint64_t>(where.record ? size * counted : counted, DATA_MAX);
    }
    std::memset(memory_[index], 0, size);
}

void call_memory::lay_out_one(const batch &whole, std::size_t index, const flat_argument &given,
                              const sequence::parameter &where, const handle_numbers &known)
{
    raw_[index] = reinterpret_cast<std::uintptr_t>(memory_[index]);
    switch (given.kind) {
    case value_kind::null:
        raw_[index] = 0;
        break;
    case value_kind::number: {
        const std::uint64_t number = known.of(given.one);
        if (where.by_address) {
            store(memory_[index], where.width, number);
        } else {
            raw_[index] = number;
        }
        counts_[index] = number;
        break;
    }
    case value_kind::record: {
        std::memset(memory_[index], 0, where.record->size);
        for (std::uint32_t i = 0; i < given.count; i++) {
            const sequence::field &part = where.record->fields[i];
            store(memory_[index] + part.offset, part.width,
                  known.of(whole.scalars.items[given.begin + i]));
        }
        break;
    }
    case value_kind::bytes:
        std::memcpy(memory_[index], &whole.bytes.items[given.begin], given.count);
        memory_[index][given.count] = std::byte{0};
        break;
    default: // unreadable addresses and data without meaning are never made
        break;
    }
}

sequence::raw_arguments &call_memory::lay_out(const batch &whole, const flat_call &made,
                                              const handle_numbers &known)
{
    const auto &parameters = sequence::schema_of(made.operation).parameters;
    const auto given = whole.arguments_of(made, parameters.size());
    for (std::size_t i = 0; i < parameters.size(); i++) {
        lay_out_one(whole, i, given[i], parameters[i], known);
        if (given[i].kind == value_kind::absent) clear_output(i, given, parameters[i], known);
    }
    return raw_;
}

} // namespace explore

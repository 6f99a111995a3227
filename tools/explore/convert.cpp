// SPDX-License-Identifier: MIT
#include "tools/explore/convert.h"

#include <string>
#include <vector>

namespace explore {

namespace {

using sequence::call_sequence;
using sequence::value;
using sequence::value_kind;

value to_value(const batch &whole, const flat_argument &given, const sequence::parameter &where)
{
    switch (given.kind) {
    case value_kind::number:
        return sequence::number_value(given.one);
    case value_kind::bytes:
        return sequence::bytes_value(
            {reinterpret_cast<const char *>(&whole.bytes.items[given.begin]), given.count});
    case value_kind::record: {
        value made{value_kind::record, {}, {}};
        const auto fields = std::span(whole.scalars.items).subspan(given.begin, given.count);
        made.scalars.assign(fields.begin(), fields.end());
        made.scalars.resize(where.record->fields.size());
        return made;
    }
    default:
        return {given.kind, {}, {}};
    }
}

// Variables are numbered by role: packet1, packet2.
class variable_names {
public:
    sequence::variable_info next(sequence::role what)
    {
        const std::size_t number = ++counts_[static_cast<std::size_t>(what)];
        return {std::string(name_of(what)) + std::to_string(number), what};
    }

private:
    std::array<std::size_t, static_cast<std::size_t>(sequence::role::program_address) + 1>
        counts_{};
};

} // namespace

call_sequence to_sequence(const batch &whole, const flat_sequence &made)
{
    call_sequence all;
    for (std::uint32_t i = 0; i < made.count; i++) {
        const flat_call &flat = whole.calls.items[made.begin + i];
        const auto &parameters = sequence::schema_of(flat.operation).parameters;
        const auto given = whole.arguments_of(flat, parameters.size());
        sequence::call one;
        one.operation = flat.operation;
        for (std::size_t j = 0; j < parameters.size(); j++) {
            one.arguments.push_back(to_value(whole, given[j], parameters[j]));
        }
        all.add(std::move(one));
    }
    // Objects first, since arguments name them by these numbers; then addresses.
    variable_names names;
    const auto given = std::span(whole.names.items).subspan(made.names_begin, made.names_count);
    const auto name = [&](const flat_name &each) {
        auto &places = all.calls[each.call].names;
        if (places.size() <= each.place) places.resize(each.place + 1U, sequence::NO_VARIABLE);
        places[each.place] = static_cast<sequence::variable>(all.variables.size());
        all.variables.push_back(names.next(each.what));
    };
    for (const flat_name &each : given) {
        if (each.name != sequence::NO_VARIABLE) name(each);
    }
    for (const flat_name &each : given) {
        if (each.name == sequence::NO_VARIABLE) name(each);
    }
    return all;
}

} // namespace explore

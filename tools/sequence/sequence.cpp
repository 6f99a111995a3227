// SPDX-License-Identifier: MIT
//
// What follows from a sequence's calls.
#include "tools/sequence/sequence.h"

#include <algorithm>
#include <utility>

namespace sequence {

value number_value(scalar one)
{
    return {value_kind::number, {one}, {}};
}

value bytes_value(std::string bytes)
{
    return {value_kind::bytes, {}, std::move(bytes)};
}

void call_sequence::add(call added)
{
    steps.push_back({static_cast<std::uint32_t>(calls.size()), phase::whole});
    calls.push_back(std::move(added));
}

const field &field_at(const record_layout &layout, std::size_t index)
{
    return layout.fields[index % layout.fields.size()];
}

namespace {

constexpr std::size_t ENTRIES_MAX = 64;

void add_places(std::vector<place> &all, const parameter &where, int index, const value &given,
                std::size_t entries)
{
    if (given.kind == value_kind::null || !where.is_written()) return;
    if (where.shape == shape::number && may_name(where, where.what)) {
        all.push_back({index, 0, where.what});
    }
    if (where.shape != shape::record) return;
    for (std::size_t i = 0; i < entries * where.record->fields.size(); i++) {
        const field &part = field_at(*where.record, i);
        const bool is_request = part.name.starts_with("requests");
        if (!is_request && may_name(where, part.what)) all.push_back({index, i, part.what, &part});
    }
}

std::size_t entries_of(const call &made, const parameter &where)
{
    if (where.count_at < 0) return 1;
    const value &count = made.arguments[static_cast<std::size_t>(where.count_at)];
    return count.kind == value_kind::number ? std::min<std::size_t>(count.one().number, ENTRIES_MAX)
                                            : 0;
}

} // namespace

std::vector<place> named_places(const call &made)
{
    const operation_schema &which = schema_of(made.operation);
    std::vector<place> all;
    if (which.result.shape == shape::number && may_name(which.result, which.result.what)) {
        all.push_back({-1, 0, which.result.what});
    }
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const parameter &where = which.parameters[i];
        add_places(all, where, static_cast<int>(i), made.arguments[i], entries_of(made, where));
    }
    return all;
}

bool has_timed_out(const call &made, const answer &given)
{
    if (given.outcome != outcome::returned) return false;
    if (made.operation == SELECT && given.result.one() == scalar{}) return true;
    return std::ranges::any_of(given.stored, [&made](const value &stored) {
        return may_wait(made.operation) && stored.kind == value_kind::record &&
               stored.scalars[0] == scalar{};
    });
}

std::size_t ordinal_of(const call_sequence &whole, std::size_t index)
{
    std::size_t count = 0;
    for (std::size_t i = 0; i <= index; i++) {
        if (whole.calls[i].operation == whole.calls[index].operation) count++;
    }
    return count;
}

std::size_t begun_until_return(const call_sequence &whole, std::size_t index)
{
    std::size_t count = index + 1;
    for (const step &each : whole.steps) {
        if (each.call == index && each.phase != phase::begin) break;
        count = std::max<std::size_t>(count, each.call + 1);
    }
    return count;
}

call_sequence selection(const call_sequence &whole, const std::vector<bool> &kept)
{
    call_sequence part;
    part.header = whole.header;
    part.variables = whole.variables;
    std::vector<std::uint32_t> moved(whole.calls.size());
    for (std::size_t i = 0; i < whole.calls.size(); i++) {
        moved[i] = static_cast<std::uint32_t>(part.calls.size());
        if (!kept[i]) continue;
        part.calls.push_back(whole.calls[i]);
        if (whole.has_answers()) part.answers.push_back(whole.answers[i]);
        if (const answer *other = whole.shadow_of(i)) part.shadow.push_back(*other);
    }
    for (const step &each : whole.steps) {
        if (kept[each.call]) part.steps.push_back({moved[each.call], each.phase});
    }
    return part;
}

} // namespace sequence

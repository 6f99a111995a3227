// SPDX-License-Identifier: MIT
#include "tools/sequence/comparison.h"

#include <algorithm>

#include "tools/sequence/printer.h"

namespace sequence {

namespace {

// What libraries are free to choose still tells nothing from something.
bool is_something(const scalar &one)
{
    return one.name != NO_VARIABLE || one.number != 0;
}

class comparer {
public:
    comparer(const call &made, const std::vector<variable_info> &variables)
        : which_(schema_of(made.operation)), variables_(variables)
    {
    }

    std::optional<difference> values(std::string_view name, const parameter &where,
                                     const value &expected, const value &got,
                                     const value *shadow) const
    {
        if (expected.kind != got.kind) {
            return difference{std::string(name), value_text(expected, where, variables_),
                              value_text(got, where, variables_)};
        }
        if (expected.kind == value_kind::number) {
            return scalars(std::string(name), expected.one(), got.one(), where.what, where.form,
                           where.is_signed, where.uncompared);
        }
        if (expected.kind == value_kind::record) return records(name, where, expected, got);
        if (expected.kind == value_kind::bytes) return bytes(name, where, expected, got, shadow);
        return std::nullopt;
    }

private:
    std::optional<difference> scalars(std::string part, const scalar &expected, const scalar &got,
                                      role what, interface::form shown, bool is_signed,
                                      const char *uncompared) const
    {
        if (expected == got) return std::nullopt;
        if (uncompared != nullptr && is_something(expected) == is_something(got)) {
            return std::nullopt;
        }
        return difference{std::move(part),
                          scalar_text(expected, what, shown, is_signed, variables_),
                          scalar_text(got, what, shown, is_signed, variables_)};
    }

    std::optional<difference> records(std::string_view name, const parameter &where,
                                      const value &expected, const value &got) const
    {
        const std::size_t width = where.record->fields.size();
        if (expected.scalars.size() != got.scalars.size()) {
            return difference{std::string(name),
                              std::to_string(expected.scalars.size() / width) + " entries",
                              std::to_string(got.scalars.size() / width) + " entries"};
        }
        for (std::size_t i = 0; i < expected.scalars.size(); i++) {
            const field &part = field_at(*where.record, i);
            if (part.uncompared != nullptr) continue;
            std::string path(name);
            if (where.count_at >= 0) path += "[" + std::to_string(i / width) + "]";
            auto found = scalars(path + "." + std::string(part.name), expected.scalars[i],
                                 got.scalars[i], part.what, part.form, false, part.uncompared);
            if (found) return found;
        }
        return std::nullopt;
    }

    std::optional<difference> bytes(std::string_view name, const parameter &where,
                                    const value &expected, const value &got,
                                    const value *shadow) const
    {
        const bool has_shadow = shadow != nullptr && shadow->kind == value_kind::bytes &&
                                shadow->bytes.size() == expected.bytes.size();
        const std::size_t common = std::min(expected.bytes.size(), got.bytes.size());
        std::size_t wrong = 0;
        std::size_t first = common;
        for (std::size_t i = common; i-- > 0;) {
            if (expected.bytes[i] == got.bytes[i]) continue;
            if (has_shadow && expected.bytes[i] != shadow->bytes[i]) continue;
            wrong++;
            first = i;
        }
        if (wrong == 0 && expected.bytes.size() == got.bytes.size()) return std::nullopt;
        // Of long data the stretch from the first wrong byte on.
        const auto shown = [&](const value &one) {
            constexpr std::size_t SHOWN = 16;
            value part = bytes_value(one.bytes.substr(first, SHOWN));
            return value_text(part, where, variables_) + " at byte " + std::to_string(first) +
                   " of " + std::to_string(one.bytes.size());
        };
        return difference{std::string(name), shown(expected), shown(got)};
    }

    const operation_schema &which_;
    const std::vector<variable_info> &variables_;
};

std::string outcome_text(const call &made, const answer &given,
                         const std::vector<variable_info> &variables)
{
    return given.outcome == outcome::returned ? "a return" : answer_text(made, given, variables);
}

} // namespace

std::optional<difference> compare(const call &made, const answer &expected, const answer &got,
                                  const std::vector<variable_info> &variables, const answer *shadow)
{
    const bool both_returned =
        expected.outcome == outcome::returned && got.outcome == outcome::returned;
    if (!both_returned) {
        // A recording does not tell a hang from a crash.
        const bool is_same =
            expected.outcome == got.outcome ||
            (expected.outcome != outcome::returned && got.outcome == outcome::unreturned);
        if (is_same) return std::nullopt;
        return difference{"result",
                          expected.outcome == outcome::returned
                              ? answer_text(made, expected, variables)
                              : outcome_text(made, expected, variables),
                          got.outcome == outcome::returned ? answer_text(made, got, variables)
                                                           : outcome_text(made, got, variables)};
    }
    const operation_schema &which = schema_of(made.operation);
    const comparer comparing(made, variables);
    if (auto found =
            comparing.values("result", which.result, expected.result, got.result, nullptr)) {
        return found;
    }
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const bool has_shadow = shadow != nullptr && shadow->outcome == outcome::returned;
        auto found =
            comparing.values(which.parameters[i].name, which.parameters[i], expected.stored[i],
                             got.stored[i], has_shadow ? &shadow->stored[i] : nullptr);
        if (found) return found;
    }
    return std::nullopt;
}

std::vector<uncompared_part> uncompared_parts(const call_sequence &whole)
{
    std::vector<uncompared_part> all;
    const auto count = [&all](std::string_view name, std::string_view part, const char *reason) {
        if (reason == nullptr) return;
        for (uncompared_part &each : all) {
            if (each.operation == name && each.part == part) {
                each.times++;
                return;
            }
        }
        all.push_back({std::string(name), std::string(part), reason, 1});
    };
    for (std::size_t i = 0; i < whole.answers.size(); i++) {
        const answer &given = whole.answers[i];
        const operation_schema &which = schema_of(whole.calls[i].operation);
        if (given.outcome != outcome::returned) continue;
        count(which.name, "result", which.result.uncompared);
        for (std::size_t j = 0; j < which.parameters.size(); j++) {
            const parameter &where = which.parameters[j];
            const value &stored = given.stored[j];
            if (stored.kind == value_kind::absent) continue;
            count(which.name, where.name, where.uncompared);
            for (std::size_t k = 0; k < stored.scalars.size() && where.record; k++) {
                const field &part = field_at(*where.record, k);
                if (stored.scalars[k] != scalar{}) count(which.name, part.name, part.uncompared);
            }
        }
    }
    return all;
}

} // namespace sequence

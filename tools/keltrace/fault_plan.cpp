// SPDX-License-Identifier: MIT
//
// Parsing of faults, and which action applies to which operation.
#include "tools/keltrace/fault_plan.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "tools/keltrace/numbers.h"

namespace keltrace {

namespace {

using problem = std::string; // empty: none

std::optional<operation> find_operation(std::string_view name)
{
    const auto *found =
        std::find_if(std::begin(OPERATION_INFO), std::end(OPERATION_INFO),
                     [&](const operation_info &entry) { return name == entry.name; });
    if (found == std::end(OPERATION_INFO)) return std::nullopt;
    return static_cast<operation>(found - OPERATION_INFO.begin());
}

// Reads a count from 1 up; the rest of the text is left over.
std::optional<std::uint64_t> take_count(std::string_view &text)
{
    std::uint64_t count = 0;
    auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc{} || count == 0) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return count;
}

problem read_value(std::string_view text, std::size_t width, fault &parsed)
{
    auto value = parse_number(text);
    if (!value) return "bad number '" + std::string(text) + "'";
    if (!value->fits(width)) return "number out of range '" + std::string(text) + "'";
    parsed.value = value->bits();
    return {};
}

problem read_error(std::string_view text, fault &parsed)
{
    auto value = parse_number(text);
    if (!value || value->negative || value->magnitude == 0 || !value->fits(sizeof(std::uint32_t))) {
        return "bad error '" + std::string(text) + "'";
    }
    parsed.value = value->bits();
    return {};
}

problem read_milliseconds(std::string_view text, fault &parsed)
{
    constexpr std::uint64_t A_DAY = 86400000;
    auto value = parse_number(text);
    if (!value || value->negative || value->magnitude > A_DAY) {
        return "bad number of milliseconds '" + std::string(text) + "'";
    }
    parsed.value = value->bits();
    return {};
}

const char *const NOT_APPLICABLE = "action does not apply to this operation";

// The target of `argK=` and `argK+=`: a value, or one word of a record.
problem check_target(const fault &parsed, const argument_info &target, std::size_t &width)
{
    const bool written = target.direction != direction::in && target.target_width != 0;
    if (!written) return "argument is not written by the operation";
    if (!parsed.word) {
        if (!target.scalar_target) return "argument names a record: say which word, argK[N]=V";
        width = target.target_width;
        return {};
    }
    if (target.scalar_target) return "argument names no record";
    if (*parsed.word >= target.target_width / sizeof(std::uint32_t)) {
        return "record has no such word";
    }
    width = sizeof(std::uint32_t);
    return {};
}

// Takes `K` and, in brackets, the word of a record.
problem take_argument(std::string_view &text, fault &parsed)
{
    const auto &entry = info(parsed.target);
    auto position = take_count(text);
    if (!position || *position > entry.argument_count) return "operation has no such argument";
    parsed.argument = static_cast<std::size_t>(*position) - 1;
    if (!text.starts_with('[')) return {};

    text.remove_prefix(1);
    std::size_t word = 0;
    auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), word);
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    if (error != std::errc{} || !text.starts_with(']')) return "bad word number";
    parsed.word = word;
    text.remove_prefix(1);
    return {};
}

// argK=V, argK+=V, inK=V
problem parse_argument_action(std::string_view text, bool passed, fault &parsed)
{
    if (info(parsed.target).system) return NOT_APPLICABLE;
    if (auto wrong = take_argument(text, parsed); !wrong.empty()) return wrong;

    parsed.what = passed ? action::pass_argument : action::set_argument;
    if (!passed && text.starts_with("+=")) {
        parsed.what = action::add_argument;
        text.remove_prefix(1);
    }
    if (!text.starts_with('=')) return "unknown action";
    text.remove_prefix(1);

    const auto &target = info(info(parsed.target).arguments[parsed.argument].kind);
    std::size_t width = target.width;
    if (passed) {
        if (parsed.word) return "unknown action";
    } else if (auto wrong = check_target(parsed, target, width); !wrong.empty()) {
        return wrong;
    }
    return read_value(text, width, parsed);
}

problem parse_library_action(std::string_view name, std::string_view value, fault &parsed)
{
    const auto &entry = info(parsed.target);
    const auto &result = info(entry.result);
    if (name == "error") {
        if (result.width == 0) return NOT_APPLICABLE;
        parsed.what = action::error;
        return read_error(value, parsed);
    }
    if (name == "after") {
        const bool handle = result.form == form::handle;
        if (result.width == 0 || (handle && entry.find(argument_kind::out_error) < 0)) {
            return NOT_APPLICABLE;
        }
        parsed.what = action::after;
        return read_error(value, parsed);
    }
    if (name == "result") {
        if (result.width == 0) return NOT_APPLICABLE;
        parsed.what = action::result;
        return read_value(value, result.width, parsed);
    }
    if (name == "flip") {
        const bool copies =
            entry.find(argument_kind::source) >= 0 || entry.find(argument_kind::destination) >= 0;
        if (!copies) return NOT_APPLICABLE;
        parsed.what = action::flip;
        return read_value(value, sizeof(std::int32_t), parsed);
    }
    return "unknown action";
}

problem parse_system_action(std::string_view name, std::string_view value, fault &parsed)
{
    using enum operation;
    const operation target = parsed.target;
    const bool refusable = target == system_select || target == system_ioctl ||
                           target == system_open || target == system_pthread_create;
    if (name == "error") {
        if (!refusable) return NOT_APPLICABLE;
        parsed.what = action::error;
        return read_error(value, parsed);
    }
    if (name == "result") {
        if (!refusable || target == system_pthread_create) return NOT_APPLICABLE;
        parsed.what = action::result;
        return read_value(value, sizeof(int), parsed);
    }
    if (name == "add") {
        if (target != system_gettimeofday) return NOT_APPLICABLE;
        parsed.what = action::add;
        return read_value(value, sizeof(std::int64_t), parsed);
    }
    if (name == "after" || name == "flip") return NOT_APPLICABLE;
    return "unknown action";
}

problem parse_bare_action(std::string_view name, fault &parsed)
{
    using enum operation;
    const bool system = info(parsed.target).system;
    if (name == "nothing") {
        parsed.what = action::nothing;
        return {};
    }
    if (name == "lost") {
        parsed.what = action::lost;
        return !system || parsed.target == system_sleep ? "" : NOT_APPLICABLE;
    }
    if (name == "fail") {
        parsed.what = action::fail;
        return parsed.target == system_malloc || parsed.target == system_calloc ? ""
                                                                                : NOT_APPLICABLE;
    }
    return "unknown action";
}

problem parse_action(std::string_view text, fault &parsed)
{
    const auto starts_argument = [&](std::string_view prefix) {
        return text.size() > prefix.size() && text.starts_with(prefix) &&
               text[prefix.size()] >= '0' && text[prefix.size()] <= '9';
    };
    if (starts_argument("arg")) return parse_argument_action(text.substr(3), false, parsed);
    if (starts_argument("in")) return parse_argument_action(text.substr(2), true, parsed);

    const auto equals = text.find('=');
    if (equals == text.npos) return parse_bare_action(text, parsed);
    const auto name = text.substr(0, equals);
    const auto value = text.substr(equals + 1);
    if (name == "delay") {
        parsed.what = action::delay;
        return read_milliseconds(value, parsed);
    }
    return info(parsed.target).system ? parse_system_action(name, value, parsed)
                                      : parse_library_action(name, value, parsed);
}

problem parse_fault(std::string_view text, fault &parsed)
{
    parsed.text = text;
    if (const char *wrong = kel_reference::read_fault(parsed.text, parsed.written)) return wrong;
    auto target = find_operation(parsed.written.target);
    if (!target) return "unknown operation '" + std::string(parsed.written.target) + "'";
    parsed.target = *target;
    return parse_action(parsed.written.action, parsed);
}

} // namespace

std::string parse_plan(std::string_view list, fault_plan &plan, offer_to_library *offer)
{
    constexpr std::string_view BLANKS = " \t\n";
    for (;;) {
        const auto begin = list.find_first_not_of(BLANKS);
        if (begin == list.npos) return {};
        list.remove_prefix(begin);
        const auto text = list.substr(0, list.find_first_of(BLANKS));
        list.remove_prefix(text.size());

        fault &parsed = plan.faults.emplace_back();
        if (auto wrong = parse_fault(text, parsed); !wrong.empty()) {
            const bool is_librarys = wrong.starts_with("unknown") && offer != nullptr &&
                                     offer(parsed.text.c_str()) == nullptr;
            if (!is_librarys) return parsed.text + ": " + wrong;
            parsed.of_library = true;
            continue;
        }
        plan.by_operation[static_cast<std::size_t>(parsed.target)].push_back(&parsed);
    }
}

} // namespace keltrace

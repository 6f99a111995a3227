// SPDX-License-Identifier: MIT
#include "tools/sequence/printer.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "tools/sequence/constants.h"
#include "tools/sequence/data.h"

namespace sequence {

namespace {

using interface::form;

std::string number_text(std::uint64_t number, form shown, bool is_signed)
{
    if (const char *name = constant_name(shown, number)) return name;
    const bool in_hexadecimal =
        shown == form::hexadecimal || shown == form::handle || shown == form::address;
    if (in_hexadecimal && number != 0) return hexadecimal(number);
    if (is_signed) return std::to_string(static_cast<std::int64_t>(number));
    return std::to_string(number);
}

std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        std::array<char, 8> escaped;
        if (each == '"' || each == '\\') {
            result += std::string("\\") + each;
        } else if (byte < 0x20 || byte >= 0x7f) {
            std::snprintf(escaped.data(), escaped.size(), "\\x%02x", byte);
            result += escaped.data();
        } else {
            result += each;
        }
    }
    return result + "\"";
}

std::string plain_text(std::string_view bytes)
{
    constexpr const char *DIGITS = "0123456789abcdef";
    std::string text = "hex(";
    for (const char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 0xf];
    }
    return text + ")";
}

std::string stretch_text(const stretch &one)
{
    if (one.kind == stretch_kind::plain) return plain_text(one.bytes);
    const bool is_pattern = one.kind == stretch_kind::pattern;
    std::string text = is_pattern ? "pattern(" : "fill(";
    text += is_pattern ? std::to_string(one.number) : hexadecimal(one.number);
    text += ", " + std::to_string(one.length);
    if (one.skipped > 0) text += ", " + std::to_string(one.skipped);
    return text + ")";
}

std::string data_text(const std::string &bytes)
{
    std::string text;
    for (const stretch &each : stretches_of(bytes)) {
        text += (text.empty() ? "" : " ") + stretch_text(each);
    }
    return text.empty() ? "hex()" : text;
}

std::string record_text(const value &one, const record_layout &layout,
                        const std::vector<variable_info> &variables)
{
    std::string text = "{";
    const std::size_t width = layout.fields.size();
    for (std::size_t i = 0; i < one.scalars.size(); i++) {
        const field &part = field_at(layout, i);
        if (i > 0 && i % width == 0) text += "} {";
        if (one.scalars[i] == scalar{}) continue;
        if (!text.ends_with("{")) text += ", ";
        text += std::string(part.name) + "=" +
                scalar_text(one.scalars[i], part.what, part.form, false, variables);
    }
    return text + "}";
}

std::string name_or_blank(variable name, const std::vector<variable_info> &variables)
{
    return name < 0 ? "_" : variables[static_cast<std::size_t>(name)].name;
}

} // namespace

std::string hexadecimal(std::uint64_t number)
{
    std::array<char, 24> text;
    std::snprintf(text.data(), text.size(), "0x%llx", static_cast<unsigned long long>(number));
    return text.data();
}

std::string header_text(const header &printed)
{
    return "sequence version=" + std::to_string(printed.version) +
           " library=" + quoted(printed.library) + " program=" + quoted(printed.program) + "\n";
}

std::string scalar_text(const scalar &one, role what, form shown, bool is_signed,
                        const std::vector<variable_info> &variables)
{
    if (one.name == UNSEEN) return "?";
    if (what == role::process && one == OWN_PROCESS) return "self";
    if (one.name < 0) return number_text(one.number, shown, is_signed);
    const std::string &name = variables[static_cast<std::size_t>(one.name)].name;
    const auto distance = static_cast<std::int64_t>(one.number);
    if (distance == 0) return name;
    return name + (distance > 0 ? "+" : "") + std::to_string(distance);
}

std::string value_text(const value &one, const parameter &where,
                       const std::vector<variable_info> &variables)
{
    switch (one.kind) {
    case value_kind::absent:
        return "_";
    case value_kind::null:
        return "null";
    case value_kind::unreadable:
        return "unreadable";
    case value_kind::any_bytes:
        return "any(" + std::to_string(one.one().number) + ")";
    case value_kind::number:
        return scalar_text(one.one(), where.what, where.form, where.is_signed, variables);
    case value_kind::record:
        return record_text(one, *where.record, variables);
    case value_kind::bytes:
        return where.shape == shape::text ? quoted(one.bytes) : data_text(one.bytes);
    }
    return "";
}

std::string names_text(const call &made, const std::vector<variable_info> &variables)
{
    std::size_t count = made.names.size();
    while (count > 0 && made.names[count - 1] < 0) count--;
    std::string text;
    for (std::size_t i = 0; i < count; i++) {
        text += (i > 0 ? ", " : "") + name_or_blank(made.names[i], variables);
    }
    return text.empty() ? "" : text + " = ";
}

std::string thread_text(std::uint16_t thread)
{
    return thread == 1 ? "" : "@" + std::to_string(thread) + " ";
}

std::string call_text(const call &made, const std::vector<variable_info> &variables,
                      bool with_names)
{
    const operation_schema &which = schema_of(made.operation);
    std::string text = with_names ? names_text(made, variables) : "";
    text += std::string(which.name) + "(";
    const char *separator = "";
    // Null addresses that would be written through stand behind the arguments that are read.
    for (const bool is_read : {true, false}) {
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            const parameter &where = which.parameters[i];
            const value &given = made.arguments[i];
            if (where.is_read() != is_read) continue;
            if (!is_read && given.kind != value_kind::null) continue;
            text += separator;
            if (!is_read) text += std::string(where.name) + "=";
            text += value_text(given, where, variables);
            separator = ", ";
        }
    }
    return text + ")";
}

std::string answer_text(const call &made, const answer &given,
                        const std::vector<variable_info> &variables)
{
    switch (given.outcome) {
    case outcome::unreturned:
        return "not returned";
    case outcome::hang:
        return "hang";
    case outcome::flood:
        return "flood";
    case outcome::crash:
        return given.signal ? std::string("crash SIG") + sigabbrev_np(given.signal) : "crash";
    case outcome::returned:
        break;
    }
    const operation_schema &which = schema_of(made.operation);
    std::string text = which.result.shape == shape::nothing
                           ? "done"
                           : value_text(given.result, which.result, variables);
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        if (given.stored[i].kind == value_kind::absent) continue;
        text += ", " + std::string(which.parameters[i].name) + "=" +
                value_text(given.stored[i], which.parameters[i], variables);
    }
    return text;
}

std::string to_text(const call_sequence &whole, printed what)
{
    const bool with_answers = what == printed::calls_and_answers && whole.has_answers();
    std::string text = header_text(whole.header);
    for (const step &each : whole.steps) {
        const call &made = whole.calls[each.call];
        const bool is_end = each.phase == phase::end;
        if (!is_end) {
            for (const std::string &comment : made.comments) text += "#" + comment + "\n";
        }
        text += thread_text(made.thread);
        if (is_end) {
            text += names_text(made, whole.variables) + "returned()";
        } else {
            text += call_text(made, whole.variables, each.phase == phase::whole);
        }
        if (each.phase == phase::begin) {
            text += " ...";
        } else if (with_answers) {
            text += " -> " + answer_text(made, whole.answers[each.call], whole.variables);
        }
        text += "\n";
    }
    for (const std::string &comment : whole.closing_comments) text += "#" + comment + "\n";
    return text;
}

} // namespace sequence

// SPDX-License-Identifier: MIT
#include "tools/sequence/c_calls.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/sequence/constants.h"
#include "tools/sequence/data.h"
#include "tools/sequence/printer.h"

namespace sequence {

namespace {

using interface::form;

std::string plain_number(std::size_t width, std::uint64_t number, bool is_signed, bool is_decimal)
{
    if (width > 4) return "UINT64_C(" + hexadecimal(number) + ")";
    if (is_signed) return std::to_string(static_cast<std::int32_t>(number));
    const auto narrow = static_cast<std::uint32_t>(number);
    if (narrow < 10 || (is_decimal && narrow <= INT32_MAX)) return std::to_string(narrow);
    return hexadecimal(narrow) + "u";
}

std::string width_type(std::size_t width)
{
    return width == 1 ? "uint8_t" : width == 2 ? "uint16_t" : width == 4 ? "uint32_t" : "int64_t";
}

std::string record_type(form shown)
{
    switch (shown) {
    case form::event:
        return "kel_event";
    case form::thresholds:
        return "kel_bufgroup_thresholds";
    case form::metadata:
        return "kel_metadata_group";
    case form::iovecs:
        return "kel_iovec";
    case form::packet_list:
        return "kel_packet_list";
    case form::buffer_list:
        return "kel_buffer_list";
    default:
        return "struct timeval";
    }
}

// "requests[0].size" is what C calls it; a time-out's fields are not.
std::string c_field(const field &part)
{
    if (part.name == "seconds") return "tv_sec";
    if (part.name == "microseconds") return "tv_usec";
    return std::string(part.name);
}

std::size_t count_of(const call &made, const parameter &where)
{
    const value &count = made.arguments[static_cast<std::size_t>(where.count_at)];
    return count.kind == value_kind::number ? std::min<std::uint64_t>(count.one().number, 1u << 24)
                                            : 0;
}

bool has_field(const value &given, const field &part)
{
    return given.kind == value_kind::record && (given.scalars[0].number & part.mask) != 0;
}

// What a call has copied from is the caller's again.
void wipe_sources(std::string &body, const call &made)
{
    const operation_schema &which = schema_of(made.operation);
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        const parameter &where = which.parameters[i];
        if (where.is_written()) continue;
        const std::string name(where.name);
        if (made.arguments[i].kind == value_kind::bytes && where.shape == shape::bytes) {
            body += "    memset(" + name + ", 0xee, sizeof " + name + ");\n";
        } else if (made.arguments[i].kind == value_kind::record) {
            body += "    memset(&" + name + ", 0, sizeof " + name + ");\n";
        }
    }
}

} // namespace

std::string c_text(std::string_view text)
{
    std::string quoted = "\"";
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte < 0x20 || byte >= 0x7f || each == '"' || each == '\\' || each == '?') {
            std::array<char, 8> escaped;
            std::snprintf(escaped.data(), escaped.size(), "\\%03o", byte);
            quoted += escaped.data();
        } else {
            quoted += each;
        }
    }
    return quoted + "\"";
}

std::string c_type(const parameter &where)
{
    if (where.record != nullptr) return record_type(where.form);
    if (where.what == role::program_address) return "uintptr_t";
    if (where.form == form::address && where.by_address) return "void *";
    if (where.width == 4 && where.is_signed) return "int32_t";
    return where.width == 8 ? "uint64_t" : width_type(where.width);
}

std::string calls_as_comment(const call_sequence &whole, const std::string &margin)
{
    std::string text;
    const std::string calls = to_text(whole, printed::calls_and_answers);
    for (std::size_t at = calls.find('\n') + 1; at < calls.size();) {
        const std::size_t end = calls.find('\n', at);
        std::string line = calls.substr(at, end - at).substr(0, 160);
        for (std::size_t i = 0; (i = line.find("*/")) != std::string::npos;) line[i] = '+';
        if (line.ends_with('\\')) line += ' ';
        text += margin + line + "\n";
        at = end + 1;
    }
    return text;
}

std::string c_calls::number_text(const parameter &where, const scalar &one) const
{
    if (one.name >= 0) return number_text(where.width, one);
    const char *const name = constant_name(where.form, one.number);
    if (name != nullptr) return (where.form == form::role ? "KEL_ROLE_" : "") + std::string(name);
    return plain_number(where.width, one.number, where.is_signed, where.form == form::decimal);
}

std::string c_calls::number_text(std::size_t width, const scalar &one) const
{
    if (one.name < 0) return plain_number(width, one.number, false, true);
    const std::string text = variable_text(one.name);
    return one.number == 0 ? text : "(" + text + " + " + hexadecimal(one.number) + "u" + ")";
}

void c_calls::fill_bytes(std::string &body, const std::string &target,
                         const std::string &bytes) const
{
    std::size_t at = 0;
    for (const stretch &each : stretches_of(bytes)) {
        const std::string place = at == 0 ? target : target + " + " + std::to_string(at);
        const std::string length = std::to_string(each.length);
        if (each.kind == stretch_kind::pattern) {
            fill_pattern(body, place, each.length, each.skipped, each.number);
        } else if (each.kind == stretch_kind::fill) {
            add(body,
                "memset(" + place + ", " + std::to_string(each.number) + ", " + length + ");");
        } else {
            std::string list;
            for (const char byte : each.bytes) {
                list +=
                    (list.empty() ? "" : ", ") + std::to_string(static_cast<unsigned char>(byte));
            }
            const std::string name = target + "_bytes" + std::to_string(at);
            add(body, "static const unsigned char " + name + "[] = {" + list + "};");
            add(body, "memcpy(" + place + ", " + name + ", " + length + ");");
        }
        at += each.length;
    }
}

// Static: a thread's stack may be small.
std::string c_calls::passed_bytes(std::string &body, const call &made, std::size_t i) const
{
    const parameter &where = schema_of(made.operation).parameters[i];
    const value &given = made.arguments[i];
    const std::string name(where.name);
    const std::size_t size = given.kind == value_kind::bytes       ? given.bytes.size()
                             : given.kind == value_kind::any_bytes ? given.one().number
                                                                   : count_of(made, where);
    add(body, "static unsigned char " + name + "[" + std::to_string(size + 1) + "];");
    if (given.kind == value_kind::bytes) fill_bytes(body, name, given.bytes);
    return name;
}

std::string c_calls::passed_record(std::string &body, const value &given,
                                   const parameter &where) const
{
    const std::string name(where.name);
    add(body, "static " + c_type(where) + " " + name + ";");
    add(body, "memset(&" + name + ", 0, sizeof " + name + ");");
    for (std::size_t i = 0; i < given.scalars.size(); i++) {
        if (given.scalars[i] == scalar{}) continue;
        const field &part = field_at(*where.record, i);
        add(body, name + "." + c_field(part) + " = (" + width_type(part.width) + ")" +
                      number_text(part.width, given.scalars[i]) + ";");
    }
    return "&" + name;
}

// Declares what the parameter needs and returns what is passed.
std::string c_calls::passed(std::string &body, const call &made, std::size_t i) const
{
    const parameter &where = schema_of(made.operation).parameters[i];
    const value &given = made.arguments[i];
    const std::string name(where.name);
    if (given.kind == value_kind::null) return "NULL";
    if (given.kind == value_kind::unreadable) return "(void *)UINTPTR_MAX";
    if (where.shape == shape::text) return c_text(given.bytes);
    if (where.shape == shape::bytes) return passed_bytes(body, made, i);
    if (!where.by_address) return number_text(where, given.one());
    if (where.count_at >= 0) {
        const std::size_t entries = std::max<std::size_t>(count_of(made, where), 1);
        add(body, "static kel_iovec " + name + "[" + std::to_string(entries) + "];");
        return name;
    }
    if (where.record != nullptr) return passed_record(body, given, where);
    const bool is_set = given.kind == value_kind::number;
    add(body, c_type(where) + " " + name + " = " +
                  (is_set ? number_text(where, given.one()) : std::string("0")) + ";");
    return "&" + name;
}

std::string c_calls::arguments_text(std::string &body, const call &made) const
{
    std::string list;
    const operation_schema &which = schema_of(made.operation);
    for (std::size_t i = 0; i < which.parameters.size(); i++) {
        list += (i > 0 ? ", " : "") + passed(body, made, i);
    }
    return list;
}

std::string c_calls::system_call(std::string &body, const call &made) const
{
    const auto number = [&](std::size_t i) {
        return "(int)" + number_text(4, made.arguments[i].one());
    };
    if (made.operation == SLEEP) return "(int)sleep((unsigned)" + number(0) + ")";
    if (made.operation == OPEN_DEVICE) return "open(KEL_DEVICE, O_RDWR)";
    if (made.operation == CLOSE_DEVICE) return "(close(" + number(0) + ") < 0 ? errno : 0)";
    if (made.operation == IOCTL) {
        const std::string argument = passed(body, made, 2);
        return "(ioctl(" + number(0) + ", (unsigned long)" +
               number_text(8, made.arguments[1].one()) + ", " + argument + ") < 0 ? errno : 0)";
    }
    const std::string timeout = passed(body, made, 2);
    add(body, "fd_set readable, exceptional;");
    add(body, "FD_ZERO(&readable);");
    add(body, "FD_ZERO(&exceptional);");
    add(body, "if (" + number(0) + " > 0) FD_SET(" + number(0) + ", &readable);");
    add(body, "if (" + number(1) + " > 0) FD_SET(" + number(1) + ", &exceptional);");
    return "select(FD_SETSIZE, &readable, NULL, &exceptional, " + timeout + ")";
}

// One number that was given: checked, or kept as what it defines.
void c_calls::take(std::string &body, const checked &what, const std::string &expected,
                   const std::string &got, const scalar &given, bool is_compared)
{
    if (given.name >= 0 && !bound_.contains(given.name)) {
        bound_.insert(given.name);
        add(body, variable_text(given.name) + " = " + got + ";");
        check_given(body, what, got);
    } else if (given.name == UNSEEN) {
        check_given(body, what, got);
    } else if (is_compared) {
        check_number(body, what, expected, got);
    }
}

void c_calls::check_stored_number(std::string &body, const checked &what, const value &stored)
{
    const parameter &where = *what.where;
    const std::string name(where.name);
    if (where.what == role::process) {
        check_number(body, what, "(uint32_t)getpid()", name);
        return;
    }
    const std::string got = where.form == form::address ? "(uintptr_t)" + name : name;
    take(body, what, number_text(where, stored.one()), got, stored.one(),
         where.uncompared == nullptr);
    if (where.object == interface::object::dynamic_tag && stored.one() != scalar{}) {
        check_number(body, {what.made, what.where, what.part + " is dynamic"}, "1",
                     "(" + name + " >= KEL_FIRST_DYNAMIC_TAG)");
    }
}

void c_calls::check_stored_record(std::string &body, const checked &what, const value &given,
                                  const value &stored)
{
    const parameter &where = *what.where;
    const std::size_t width = where.record->fields.size();
    for (std::size_t i = 0; i < stored.scalars.size(); i++) {
        const field &each = field_at(*where.record, i);
        if (each.name.starts_with("requests") || (each.mask && !has_field(given, each))) continue;
        const std::string entry =
            where.count_at >= 0 ? "[" + std::to_string(i / width) + "]" : std::string();
        take(body, {what.made, what.where, what.part + entry + "." + std::string(each.name)},
             number_text(each.width, stored.scalars[i]),
             std::string(where.name) + entry + "." + c_field(each), stored.scalars[i],
             each.uncompared == nullptr);
    }
}

// Without the bytes that nobody has written, which `other` has otherwise; null: there are none.
void c_calls::check_stored_bytes(std::string &body, const checked &what, const std::string &bytes,
                                 const std::string *other)
{
    const auto is_meant = [&](std::size_t at) {
        return other == nullptr || other->size() != bytes.size() || (*other)[at] == bytes[at];
    };
    const std::string name(what.where->name);
    bool is_filled = false;
    for (std::size_t begin = 0; begin < bytes.size();) {
        std::size_t end = begin;
        while (end < bytes.size() && is_meant(end)) end++;
        if (end == begin) {
            begin++;
            continue;
        }
        if (!is_filled) {
            add(body, "static unsigned char expected_" + name + "[" +
                          std::to_string(bytes.size() + 1) + "];");
            fill_bytes(body, "expected_" + name, bytes);
            is_filled = true;
        }
        const std::string from = begin == 0 ? "" : " + " + std::to_string(begin);
        const std::string part = begin == 0 ? "" : " from byte " + std::to_string(begin);
        check_bytes(body, {what.made, what.where, what.part + part}, "expected_" + name + from,
                    name + from, end - begin);
        begin = end;
    }
}

void c_calls::check_stored(std::string &body, std::size_t index, std::size_t i)
{
    const call &made = whole_.calls[index];
    const parameter &where = schema_of(made.operation).parameters[i];
    const value &stored = whole_.answers[index].stored[i];
    const answer *const shadow = whole_.shadow_of(index);
    const std::string *const unwritten =
        shadow && shadow->outcome == outcome::returned ? &shadow->stored[i].bytes : nullptr;
    const std::string name(where.name);
    const checked what{&made, &where, name};
    if (stored.kind == value_kind::bytes) {
        check_stored_bytes(body, what, stored.bytes, unwritten);
    } else if (stored.kind == value_kind::number) {
        check_stored_number(body, what, stored);
    } else if (stored.kind == value_kind::record) {
        check_stored_record(body, what, made.arguments[i], stored);
    }
}

void c_calls::check_select(std::string &body, const call &made, const answer &given)
{
    const operation_schema &which = schema_of(made.operation);
    for (const std::size_t i : {std::size_t{0}, std::size_t{1}}) {
        const std::string set = i == 0 ? "readable" : "exceptional";
        const value &stored = given.stored[3 + i];
        if (made.arguments[i].one() == scalar{} || stored.kind != value_kind::number) continue;
        take(body, {&made, &which.parameters[3 + i], "is_" + set},
             std::to_string(stored.one().number),
             "(FD_ISSET((int)" + number_text(4, made.arguments[i].one()) + ", &" + set + ") != 0)",
             stored.one(), true);
    }
}

void c_calls::check_result(std::string &body, const call &made, const answer &given)
{
    const parameter &where = schema_of(made.operation).result;
    if (where.shape == shape::nothing) return;
    const scalar &expected = given.result.one();
    if (where.uncompared != nullptr && expected.name == NO_VARIABLE) add(body, "(void)result;");
    take(body, {&made, &where, "result"}, number_text(where, expected), "result", expected,
         where.uncompared == nullptr);
    if (made.operation == SELECT && expected != scalar{}) {
        check_select(body, made, given);
    }
}

std::string c_calls::statements(std::size_t index)
{
    const call &made = whole_.calls[index];
    const answer &given = whole_.answers[index];
    const operation_schema &which = schema_of(made.operation);
    std::string body;
    std::string invocation;
    if (which.is_system()) {
        invocation = system_call(body, made);
    } else {
        const std::string list = arguments_text(body, made);
        invocation = std::string(which.function) + "(" + list + ")";
    }
    if (which.result.shape == shape::nothing) {
        add(body, invocation + ";");
    } else {
        add(body, (which.is_system() ? "int" : c_type(which.result)) + std::string(" result = ") +
                      invocation + ";");
    }
    wipe_sources(body, made);
    if (given.outcome != outcome::returned) {
        if (which.result.shape != shape::nothing) add(body, "(void)result;");
        return body;
    }
    check_result(body, made, given);
    for (std::size_t i = 0; i < which.parameters.size() && made.operation != SELECT; i++) {
        if (given.stored[i].kind != value_kind::absent) check_stored(body, index, i);
    }
    return body;
}

} // namespace sequence

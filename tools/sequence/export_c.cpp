// SPDX-License-Identifier: MIT
//
// The program has a function a call: what waits runs in a thread of its own where it is overlapped.
#include "tools/sequence/export_c.h"

#include <array>
#include <cstdio>
#include <set>

#include "tools/sequence/constants.h"
#include "tools/sequence/data.h"
#include "tools/sequence/printer.h"

namespace sequence {

namespace {

using interface::form;

constexpr const char *HEAD = R"(#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include "kelapi/kel.h"

static int differences;
static const char *current_call = "the start";

)";

// What the program needs of it stands in it.
struct helper_function {
    std::string_view name;
    const char *text;
};

constexpr auto HELPERS = std::to_array<helper_function>({
    {"expect_number",
     R"(static void expect_number(const char *part, uint64_t expected, uint64_t got)
{
    if (expected == got) return;
    printf("%s\n  %s: expected %" PRIu64 " (0x%" PRIx64 "), got %" PRIu64 " (0x%" PRIx64 ")\n",
           current_call, part, expected, expected, got, got);
    differences++;
}

)"},
    {"expect_something", R"(static void expect_something(const char *part, uint64_t got)
{
    if (got != 0) return;
    printf("%s\n  %s: expected anything but 0, got 0\n", current_call, part);
    differences++;
}

)"},
    {"expect_bytes",
     R"(static void expect_bytes(const char *part, const void *expected, const void *got, size_t count)
{
    const unsigned char *right = expected;
    const unsigned char *bytes = got;
    for (size_t i = 0; i < count; i++) {
        if (right[i] == bytes[i]) continue;
        printf("%s\n  %s: byte %zu: expected 0x%02x, got 0x%02x\n", current_call, part, i, right[i],
               bytes[i]);
        differences++;
        return;
    }
}

)"},
    {"fill_pattern",
     R"(static void fill_pattern(void *data, size_t length, size_t skipped, unsigned seed)
{
    unsigned char *bytes = data;
    for (size_t i = 0; i < skipped + length; i++) {
        const unsigned char byte = (unsigned char)(i * seed + 1);
        if (i >= skipped) bytes[i - skipped] = byte;
        seed += byte;
    }
}

)"},
    {"end_early", R"(static void end_early(int number)
{
    const char *text = number == SIGALRM ? "hang" : "crash";
    const size_t length = strlen(current_call);
    if (write(1, current_call, length) < 0 || write(1, "\n  got ", 7) < 0 ||
        write(1, text, strlen(text)) < 0 || write(1, "\n", 1) < 0) {
        _exit(1);
    }
    _exit(1);
}

)"},
});

std::string decimal(std::uint64_t number)
{
    return std::to_string(number) + "u";
}

std::string long_number(std::uint64_t number)
{
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "UINT64_C(0x%llx)",
                  static_cast<unsigned long long>(number));
    return text.data();
}

std::string c_text(std::string_view text)
{
    std::string quoted = "\"";
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        std::array<char, 8> escaped;
        std::snprintf(escaped.data(), escaped.size(), "\\%03o", byte);
        if (byte < 0x20 || byte >= 0x7f || each == '"' || each == '\\' || each == '?') {
            quoted += escaped.data();
        } else {
            quoted += each;
        }
    }
    return quoted + "\"";
}

std::string c_type(const parameter &where)
{
    if (where.record != nullptr) {
        switch (where.form) {
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
    if (where.what == role::program_address) return "uintptr_t";
    if (where.form == form::address && where.by_address) return "void *";
    switch (where.width) {
    case 1:
        return "uint8_t";
    case 2:
        return "uint16_t";
    case 4:
        return where.is_signed ? "int32_t" : "uint32_t";
    default:
        return "uint64_t";
    }
}

// "requests[0].size" is what C calls it; a time-out's fields are not.
std::string c_field(const field &part)
{
    if (part.name == "seconds") return "tv_sec";
    if (part.name == "microseconds") return "tv_usec";
    return std::string(part.name);
}

class program {
public:
    explicit program(const call_sequence &whole) : whole_(whole)
    {
        for (const step &each : whole.steps) {
            if (each.phase == phase::begin) begun_.insert(each.call);
        }
    }

    std::string text()
    {
        std::string all = "/* " + whole_.header.program + "\n * Made by kel-sequence from:\n *\n";
        const std::string calls = to_text(whole_, printed::calls_and_answers);
        for (std::size_t at = calls.find('\n') + 1; at < calls.size();) {
            const std::size_t end = calls.find('\n', at);
            std::string line = calls.substr(at, end - at);
            for (std::size_t i = 0; (i = line.find("*/")) != std::string::npos;) line[i] = '+';
            all += " *   " + line.substr(0, 160) + "\n";
            at = end + 1;
        }
        all += " *\n * cc -std=c11 -I<folder of kelapi> this.c -lkel -lpthread\n */\n";
        all += HEAD;
        std::string bodies;
        for (std::size_t i = 0; i < whole_.calls.size(); i++) bodies += function(i);
        bodies += main_function();
        for (const helper_function &each : HELPERS) {
            if (bodies.find(std::string(each.name)) != std::string::npos) all += each.text;
        }
        return all + variables() + bodies;
    }

private:
    // Those that a call defines.
    std::string variables() const
    {
        std::string text;
        for (const variable each : bound_) {
            text +=
                "static uint64_t " + whole_.variables[static_cast<std::size_t>(each)].name + "_;\n";
        }
        return text;
    }

    std::string number_text(const scalar &one) const
    {
        if (one.name < 0) return long_number(one.number);
        std::string text = whole_.variables[static_cast<std::size_t>(one.name)].name + "_";
        return one.number == 0 ? text : "(" + text + " + " + long_number(one.number) + ")";
    }

    static void add(std::string &body, const std::string &line) { body += "    " + line + "\n"; }

    void fill_bytes(std::string &body, const std::string &target, const std::string &bytes) const
    {
        std::size_t at = 0;
        for (const stretch &each : stretches_of(bytes)) {
            const std::string place = target + " + " + std::to_string(at);
            const std::string length = std::to_string(each.length);
            if (each.kind == stretch_kind::pattern) {
                add(body, "fill_pattern(" + place + ", " + length + ", " +
                              std::to_string(each.skipped) + ", " + decimal(each.number) + ");");
            } else if (each.kind == stretch_kind::fill) {
                add(body,
                    "memset(" + place + ", " + std::to_string(each.number) + ", " + length + ");");
            } else {
                std::string list;
                for (const char byte : each.bytes) {
                    list += (list.empty() ? "" : ", ") +
                            std::to_string(static_cast<unsigned char>(byte));
                }
                const std::string name = "bytes" + std::to_string(at);
                add(body,
                    "static const unsigned char " + target + "_" + name + "[] = {" + list + "};");
                add(body, "memcpy(" + place + ", " + target + "_" + name + ", " + length + ");");
            }
            at += each.length;
        }
    }

    // Declares what the parameter needs and returns what is passed.
    std::string passed(std::string &body, const call &made, std::size_t i) const
    {
        const parameter &where = schema_of(made.operation).parameters[i];
        const value &given = made.arguments[i];
        const std::string name = "a" + std::to_string(i);
        if (given.kind == value_kind::null) return "NULL";
        if (given.kind == value_kind::unreadable) return "(void *)UINTPTR_MAX";
        if (where.shape == shape::text) return c_text(given.bytes);
        if (where.shape == shape::bytes) {
            const std::size_t size = given.kind == value_kind::bytes       ? given.bytes.size()
                                     : given.kind == value_kind::any_bytes ? given.one().number
                                                                           : count_of(made, where);
            // Static: a thread's stack may be small.
            add(body, "static unsigned char " + name + "[" + std::to_string(size + 1) + "];");
            if (given.kind == value_kind::bytes) fill_bytes(body, name, given.bytes);
            return name;
        }
        if (!where.by_address) return "(" + c_type(where) + ")" + number_text(given.one());
        if (where.count_at >= 0) {
            const std::size_t entries = std::max<std::size_t>(count_of(made, where), 1);
            add(body, "static kel_iovec " + name + "[" + std::to_string(entries) + "];");
            return name;
        }
        if (where.record != nullptr) {
            add(body, c_type(where) + " " + name + ";");
            add(body, "memset(&" + name + ", 0, sizeof " + name + ");");
            for (std::size_t j = 0; j < given.scalars.size(); j++) {
                if (given.scalars[j] == scalar{}) continue;
                const field &part = field_at(*where.record, j);
                add(body, name + "." + c_field(part) + " = (" + width_type(part.width) + ")" +
                              number_text(given.scalars[j]) + ";");
            }
            return "&" + name;
        }
        const std::string start = given.kind == value_kind::number
                                      ? "(" + c_type(where) + ")" + number_text(given.one())
                                      : "0";
        add(body, c_type(where) + " " + name + " = " + start + ";");
        return "&" + name;
    }

    static std::string width_type(std::size_t width)
    {
        return width == 1   ? "uint8_t"
               : width == 2 ? "uint16_t"
               : width == 4 ? "uint32_t"
                            : "int64_t";
    }

    std::size_t count_of(const call &made, const parameter &where) const
    {
        const value &count = made.arguments[static_cast<std::size_t>(where.count_at)];
        return count.kind == value_kind::number
                   ? std::min<std::uint64_t>(count.one().number, 1u << 24)
                   : 0;
    }

    // One number that was given: checked, or bound to the name that it defines.
    void take(std::string &body, const std::string &part, const std::string &got,
              const scalar &expected, bool is_compared)
    {
        if (expected.name >= 0 && !bound_.contains(expected.name)) {
            bound_.insert(expected.name);
            add(body, whole_.variables[static_cast<std::size_t>(expected.name)].name +
                          "_ = (uint64_t)" + got + ";");
            add(body, "expect_something(" + c_text(part) + ", (uint64_t)" + got + ");");
        } else if (expected.name == UNSEEN) {
            add(body, "expect_something(" + c_text(part) + ", (uint64_t)" + got + ");");
        } else if (is_compared) {
            add(body, "expect_number(" + c_text(part) + ", " + number_text(expected) +
                          ", (uint64_t)" + got + ");");
        }
    }

    void check_stored(std::string &body, const call &made, const answer &given, std::size_t i)
    {
        const parameter &where = schema_of(made.operation).parameters[i];
        const value &stored = given.stored[i];
        const std::string name = "a" + std::to_string(i);
        const std::string part(where.name);
        if (stored.kind == value_kind::bytes) {
            add(body, "static unsigned char expected" + std::to_string(i) + "[" +
                          std::to_string(stored.bytes.size() + 1) + "];");
            fill_bytes(body, "expected" + std::to_string(i), stored.bytes);
            add(body, "expect_bytes(" + c_text(part) + ", expected" + std::to_string(i) + ", " +
                          name + ", " + std::to_string(stored.bytes.size()) + ");");
        } else if (stored.kind == value_kind::number) {
            if (where.what == role::process) {
                add(body, "expect_number(" + c_text(part) + ", (uint64_t)getpid(), " + name + ");");
                return;
            }
            const std::string got = where.form == form::address ? "(uintptr_t)" + name : name;
            take(body, part, got, stored.one(), where.uncompared == nullptr);
            if (where.object == interface::object::dynamic_tag && stored.one() != scalar{}) {
                add(body, "expect_number(" + c_text(part + " is dynamic") + ", 1, " + name +
                              " >= KEL_FIRST_DYNAMIC_TAG);");
            }
        } else if (stored.kind == value_kind::record) {
            const std::size_t width = where.record->fields.size();
            for (std::size_t j = 0; j < stored.scalars.size(); j++) {
                const field &each = field_at(*where.record, j);
                if (each.name.starts_with("requests") || (each.mask && !has_field(made, i, each))) {
                    continue;
                }
                const std::string entry =
                    where.count_at >= 0 ? "[" + std::to_string(j / width) + "]" : "";
                take(body, part + entry + "." + std::string(each.name),
                     name + entry + "." + c_field(each), stored.scalars[j],
                     each.uncompared == nullptr);
            }
        }
    }

    static bool has_field(const call &made, std::size_t i, const field &part)
    {
        const value &given = made.arguments[i];
        return given.kind == value_kind::record && (given.scalars[0].number & part.mask) != 0;
    }

    std::string arguments_text(std::string &body, const call &made) const
    {
        std::string list;
        const operation_schema &which = schema_of(made.operation);
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            list += (i > 0 ? ", " : "") + passed(body, made, i);
        }
        return list;
    }

    std::string system_call(std::string &body, const call &made) const
    {
        const auto number = [&](std::size_t i) {
            return "(int)" + number_text(made.arguments[i].one());
        };
        if (made.operation == SLEEP)
            return "sleep((unsigned)" + number_text(made.arguments[0].one()) + ")";
        if (made.operation == OPEN_DEVICE) return "open(KEL_DEVICE, O_RDWR)";
        if (made.operation == CLOSE_DEVICE) return "(close(" + number(0) + ") < 0 ? errno : 0)";
        if (made.operation == IOCTL) {
            const std::string argument = passed(body, made, 2);
            return "(ioctl(" + number(0) + ", (unsigned long)" +
                   number_text(made.arguments[1].one()) + ", " + argument + ") < 0 ? errno : 0)";
        }
        const std::string timeout = passed(body, made, 2);
        add(body, "fd_set readable, exceptional;");
        add(body, "FD_ZERO(&readable);");
        add(body, "FD_ZERO(&exceptional);");
        add(body, "if (" + number(0) + " > 0) FD_SET(" + number(0) + ", &readable);");
        add(body, "if (" + number(1) + " > 0) FD_SET(" + number(1) + ", &exceptional);");
        return "select(FD_SETSIZE, &readable, NULL, &exceptional, " + timeout + ")";
    }

    void check_result(std::string &body, const call &made, const answer &given)
    {
        const operation_schema &which = schema_of(made.operation);
        if (which.result.shape == shape::nothing) return;
        add(body, "(void)result;");
        take(body, "result", "result", given.result.one(), which.result.uncompared == nullptr);
        if (made.operation != SELECT || given.result.one() == scalar{}) return;
        for (const std::size_t i : {std::size_t{0}, std::size_t{1}}) {
            const std::string set = i == 0 ? "readable" : "exceptional";
            const value &stored = given.stored[3 + i];
            if (made.arguments[i].one() == scalar{} || stored.kind != value_kind::number) continue;
            take(body, "is_" + set,
                 "(FD_ISSET((int)" + number_text(made.arguments[i].one()) + ", &" + set + ") != 0)",
                 stored.one(), true);
        }
    }

    // What a call has copied from is the caller's again.
    static void wipe_sources(std::string &body, const call &made)
    {
        const operation_schema &which = schema_of(made.operation);
        for (std::size_t i = 0; i < which.parameters.size(); i++) {
            const bool is_source =
                which.parameters[i].shape == shape::bytes && !which.parameters[i].is_written();
            const std::string name = "a" + std::to_string(i);
            if (is_source && made.arguments[i].kind == value_kind::bytes) {
                add(body, "memset(" + name + ", 0xee, sizeof " + name + ");");
            }
        }
    }

    std::string function(std::size_t index)
    {
        const call &made = whole_.calls[index];
        const answer &given = whole_.answers[index];
        const operation_schema &which = schema_of(made.operation);
        std::string body;
        add(body,
            "current_call = " + c_text(call_text(made, whole_.variables).substr(0, 200)) + ";");
        const std::string invocation = which.is_system() ? system_call(body, made)
                                                         : std::string(which.function) + "(" +
                                                               arguments_text(body, made) + ")";
        if (which.result.shape == shape::nothing) {
            add(body, invocation + ";");
        } else {
            add(body, (which.is_system() ? "int" : c_type(which.result)) +
                          std::string(" result = ") + invocation + ";");
        }
        wipe_sources(body, made);
        if (given.outcome == outcome::returned) {
            check_result(body, made, given);
            for (std::size_t i = 0; i < which.parameters.size(); i++) {
                const bool is_select = made.operation == SELECT;
                if (given.stored[i].kind != value_kind::absent && !is_select) {
                    check_stored(body, made, given, i);
                }
            }
        } else if (which.result.shape != shape::nothing) {
            add(body, "(void)result;");
        }
        const std::string name = "call" + std::to_string(index);
        if (!begun_.contains(static_cast<std::uint32_t>(index))) {
            return "\nstatic void " + name + "(void)\n{\n" + body + "}\n";
        }
        return "\nstatic pthread_t thread" + std::to_string(index) + ";\nstatic void *" + name +
               "(void *unused)\n{\n    (void)unused;\n" + body + "    return NULL;\n}\n";
    }

    std::string main_function() const
    {
        std::string body;
        add(body, "signal(SIGSEGV, end_early);");
        add(body, "signal(SIGBUS, end_early);");
        add(body, "signal(SIGABRT, end_early);");
        add(body, "signal(SIGFPE, end_early);");
        add(body, "signal(SIGALRM, end_early);");
        for (const step &each : whole_.steps) {
            const std::string number = std::to_string(each.call);
            if (each.phase == phase::begin) {
                add(body, "if (pthread_create(&thread" + number + ", NULL, call" + number +
                              ", NULL) != 0) return 2;");
                add(body, "usleep(100000);");
                continue;
            }
            add(body, "alarm(10);");
            add(body, each.phase == phase::whole ? "call" + number + "();"
                                                 : "pthread_join(thread" + number + ", NULL);");
        }
        add(body, R"(printf("answers that differ from the contract: %d\n", differences);)");
        add(body, "return differences ? 1 : 0;");
        return "\nint main(void)\n{\n" + body + "}\n";
    }

    const call_sequence &whole_;
    std::set<std::uint32_t> begun_;
    std::set<variable> bound_;
};

} // namespace

std::string to_c(const call_sequence &expected)
{
    return program(expected).text();
}

} // namespace sequence

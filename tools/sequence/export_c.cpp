// SPDX-License-Identifier: MIT
//
// The program has a function a call: what waits runs in a thread of its own where it is overlapped.
#include "tools/sequence/export_c.h"

#include <array>
#include <set>

#include "tools/sequence/c_calls.h"
#include "tools/sequence/printer.h"

namespace sequence {

namespace {

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
static volatile sig_atomic_t hang_is_right;
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
    {"expect_hang", R"(static void expect_hang(void)
{
    hang_is_right = 0;
    printf("%s\n  expected hang, got a return\n", current_call);
    differences++;
}

)"},
    {"end_early", R"(static void end_early(int number)
{
    if (number == SIGALRM && hang_is_right) _exit(differences ? 1 : 0);
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

class program : public c_calls {
public:
    explicit program(const call_sequence &whole) : c_calls(whole)
    {
        for (const step &each : whole.steps) {
            if (each.phase == phase::begin) begun_.insert(each.call);
        }
    }

    std::string text()
    {
        std::string all = "/* " + whole().header.program + "\n * Made by kel-sequence from:\n *\n" +
                          calls_as_comment(whole(), " *   ") +
                          " *\n * cc -std=c11 -I<folder of kelapi> this.c -lkel -lpthread\n */\n";
        all += HEAD;
        std::string bodies;
        for (std::size_t i = 0; i < whole().calls.size(); i++) bodies += function(i);
        bodies += main_function();
        for (const helper_function &each : HELPERS) {
            if (bodies.find(std::string(each.name)) != std::string::npos) all += each.text;
        }
        return all + variables() + bodies;
    }

protected:
    std::string variable_text(variable name) const override
    {
        return whole().variables[static_cast<std::size_t>(name)].name + "_";
    }

    void check_number(std::string &body, const checked &what, const std::string &expected,
                      const std::string &got) const override
    {
        add(body, "expect_number(" + c_text(what.part) + ", (uint64_t)" + expected +
                      ", (uint64_t)" + got + ");");
    }

    void check_given(std::string &body, const checked &what, const std::string &got) const override
    {
        add(body, "expect_something(" + c_text(what.part) + ", (uint64_t)" + got + ");");
    }

    void check_bytes(std::string &body, const checked &what, const std::string &expected,
                     const std::string &got, std::size_t size) const override
    {
        add(body, "expect_bytes(" + c_text(what.part) + ", " + expected + ", " + got + ", " +
                      std::to_string(size) + ");");
    }

    void fill_pattern(std::string &body, const std::string &place, std::size_t length,
                      std::size_t skipped, unsigned seed) const override
    {
        add(body, "fill_pattern(" + place + ", " + std::to_string(length) + ", " +
                      std::to_string(skipped) + ", " + std::to_string(seed) + ");");
    }

private:
    // Those that a call defines.
    std::string variables() const
    {
        std::string text;
        for (const variable each : bound()) {
            const variable_info &about = whole().variables[static_cast<std::size_t>(each)];
            const bool is_wide = about.what == role::address;
            text += std::string("static ") + (is_wide ? "uint64_t " : "uint32_t ") +
                    variable_text(each) + ";\n";
        }
        return text;
    }

    std::string naming(std::size_t index) const
    {
        const std::string text = call_text(whole().calls[index], whole().variables);
        return "current_call = " + c_text(text.substr(0, 200)) + ";";
    }

    std::string function(std::size_t index)
    {
        std::string body;
        add(body, naming(index));
        body += statements(index);
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
        for (const step &each : whole().steps) {
            const std::string number = std::to_string(each.call);
            if (each.phase == phase::begin) {
                add(body, "if (pthread_create(&thread" + number + ", NULL, call" + number +
                              ", NULL) != 0) return 2;");
                add(body, "usleep(100000);");
                continue;
            }
            const bool hangs = whole().answers[each.call].outcome == outcome::hang;
            if (hangs) add(body, "hang_is_right = 1;");
            add(body, hangs ? "alarm(2);" : "alarm(10);");
            if (each.phase == phase::end) add(body, naming(each.call));
            add(body, each.phase == phase::whole ? "call" + number + "();"
                                                 : "pthread_join(thread" + number + ", NULL);");
            if (hangs) add(body, "expect_hang();");
        }
        add(body, R"(printf("answers that differ from the contract: %d\n", differences);)");
        add(body, "return differences ? 1 : 0;");
        return "\nint main(void)\n{\n" + body + "}\n";
    }

    std::set<std::uint32_t> begun_;
};

} // namespace

std::string to_c(const call_sequence &expected)
{
    return program(expected).text();
}

} // namespace sequence

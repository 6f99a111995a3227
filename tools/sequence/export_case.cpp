// SPDX-License-Identifier: MIT
//
// The record holds what the calls give. A handle that was released or given away becomes 0 once no
// call needs it any more; the frame's release frees what is left, a client with all that it holds.
#include "tools/sequence/export_case.h"

#include <algorithm>

#include "tools/common/usage_error.h"
#include "tools/sequence/c_calls.h"
#include "tools/sequence/dependencies.h"
#include "tools/sequence/printer.h"

namespace sequence {

namespace {

using interface::effect;

// Of the case, not of this file.
std::string includes()
{
    std::string text;
    for (const char *const each :
         {"<errno.h>", "<fcntl.h>", "<stdint.h>", "<string.h>", "<sys/ioctl.h>", "<sys/select.h>",
          "<unistd.h>", "", "\"fixtures/frame.h\"", "\"fixtures/pattern.h\"", "\"kelapi/kel.h\"",
          ""}) {
        text += std::string(*each == '\0' ? ""
                                          : "#"
                                            "include ") +
                each + "\n";
    }
    return text;
}

std::string type_of(role what)
{
    switch (what) {
    case role::client:
        return "kel_client";
    case role::packet:
        return "kel_packet";
    case role::buffer:
        return "kel_buffer";
    case role::bufgroup:
        return "kel_bufgroup";
    case role::tag:
        return "kel_tag";
    case role::descriptor:
        return "int32_t";
    case role::address:
        return "uint64_t";
    default:
        return "uint32_t";
    }
}

// What the operation is without its prefix: the words of messages.
std::string words_of(const call &made)
{
    const operation_schema &which = schema_of(made.operation);
    return std::string(which.is_system() ? which.name : which.function);
}

class source : public c_calls {
public:
    using c_calls::c_calls;

    std::string text(const std::string &suite, const std::string &name)
    {
        std::string steps;
        for (std::size_t i = 0; i < whole().calls.size(); i++) {
            const std::string title = call_text(whole().calls[i], whole().variables).substr(0, 90);
            steps += "    { // " + title + "\n" + indented(statements(i)) + released(i) + "    }\n";
        }
        const std::string &program = whole().header.program;
        return "// " + (program.empty() ? "" : program + ", ") + "made by kel-sequence of\n//\n" +
               calls_as_comment(whole(), "//   ") + includes() + "TEST_FILE(" + suite + ", " +
               name + ")\n\nnamespace {\n\n" + record() + "\n" + release() +
               "\nconstexpr case_frame<given> with_given = {nullptr, release};\n\n"
               "} // namespace\n\nCASE(" +
               suite + ", " + name + ", with_given)\n{\n" + steps + "    return nullptr;\n}\n";
    }

protected:
    std::string variable_text(variable name) const override
    {
        return "held." + whole().variables[static_cast<std::size_t>(name)].name;
    }

    void check_number(std::string &body, const checked &what, const std::string &expected,
                      const std::string &got) const override
    {
        const bool must_work =
            what.part == "result" && expected == "0" && what.where->form == interface::form::error;
        const std::string message =
            words_of(*what.made) +
            (must_work ? " failed" : " wrong " + (what.part == "result" ? "result" : what.part));
        add(body, "if (" + got + " != " + expected + ") return " + c_text(message) + ";");
    }

    void check_given(std::string &body, const checked &what, const std::string &got) const override
    {
        const std::string part = what.part == "result" ? "" : ": no " + what.part;
        add(body, "if (" + got + " == 0) return " +
                      c_text(words_of(*what.made) + " failed" + part) + ";");
    }

    void check_bytes(std::string &body, const checked &what, const std::string &expected,
                     const std::string &got, std::size_t size) const override
    {
        add(body, "if (memcmp(" + expected + ", " + got + ", " + std::to_string(size) +
                      ") != 0) return " + c_text(words_of(*what.made) + " wrong " + what.part) +
                      ";");
    }

    void fill_pattern(std::string &body, const std::string &place, std::size_t length,
                      std::size_t skipped, unsigned seed) const override
    {
        const std::string numbers = std::to_string(skipped + length) + ", " + std::to_string(seed);
        if (skipped == 0) {
            add(body, "set_data(" + place + ", " + numbers + ");");
            return;
        }
        add(body, "{");
        add(body, "    static unsigned char whole[" + std::to_string(skipped + length) + "];");
        add(body, "    set_data(whole, " + numbers + ");");
        add(body, "    memcpy(" + place + ", whole + " + std::to_string(skipped) + ", " +
                      std::to_string(length) + ");");
        add(body, "}");
    }

private:
    static std::string indented(const std::string &text)
    {
        std::string all;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find('\n', at) + 1;
            all += "    " + text.substr(at, end - at);
            at = end;
        }
        return all;
    }

    // The handles that the call ends, and that no later call names.
    std::string released(std::size_t index)
    {
        const call &made = whole().calls[index];
        const operation_schema &which = schema_of(made.operation);
        const answer &given = whole().answers[index];
        const bool has_worked =
            given.result.scalars.empty() || has_succeeded(which, given.result.one().number);
        for (std::size_t i = 0; i < which.parameters.size() && has_worked; i++) {
            const effect does = which.parameters[i].effect;
            const bool ends = does == effect::releases || does == effect::gives;
            if (!ends || made.arguments[i].scalars.empty()) continue;
            if (made.arguments[i].one().name >= 0) ended_.insert(made.arguments[i].one().name);
        }
        std::string text;
        for (const variable each : ended_) {
            if (last_use(each) == index) text += "        " + variable_text(each) + " = 0;\n";
        }
        return text;
    }

    std::size_t last_use(variable name) const
    {
        std::size_t last = 0;
        for (std::size_t i = 0; i < whole().calls.size(); i++) {
            if (used_by(whole().calls[i]).contains(name)) last = i;
        }
        return last;
    }

    std::string record() const
    {
        std::string text = "struct given {\n";
        for (const variable each : bound()) {
            const variable_info &about = whole().variables[static_cast<std::size_t>(each)];
            text += "    " + type_of(about.what) + " " + about.name + ";\n";
        }
        return text + "};\n";
    }

    std::string release() const
    {
        static constexpr std::pair<role, const char *> RELEASES[] = {
            {role::packet, "kel_free_packet"},
            {role::buffer, "kel_free_bufchain"},
            {role::client, "kel_deregister_client"}};
        std::string text;
        for (const auto &[what, function] : RELEASES) {
            for (const variable each : bound()) {
                if (whole().variables[static_cast<std::size_t>(each)].what != what) continue;
                const std::string held = variable_text(each);
                text += "    if (" + held + ") " + function + "(" + held + ");\n";
            }
        }
        return "void release([[maybe_unused]] given &held)\n{\n" + text + "}\n";
    }

    std::set<variable> ended_;
};

} // namespace

std::string to_case(const call_sequence &expected, const std::string &suite,
                    const std::string &name)
{
    for (const step &each : expected.steps) {
        if (each.phase != phase::whole || expected.calls[each.call].thread != 1) {
            throw tools::usage_error("no case of calls in threads: --c makes a program of them");
        }
    }
    return source(expected).text(suite, name);
}

} // namespace sequence

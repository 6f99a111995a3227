// SPDX-License-Identifier: MIT
//
// Calls of a sequence as statements of C, which are C++, too: with the checks of what they answer.
// How a check ends, and where what a call gives is kept, is the business of the kind of program.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "tools/sequence/sequence.h"

namespace sequence {

class c_calls {
public:
    // The sequence has the answers that the contract asks for, and perhaps their shadow; it
    // outlives this.
    explicit c_calls(const call_sequence &whole) : whole_(whole) {}
    c_calls(const c_calls &) = delete;
    c_calls &operator=(const c_calls &) = delete;
    virtual ~c_calls() = default;

protected:
    static void add(std::string &body, const std::string &line) { body += "    " + line + "\n"; }
    // What a check is about.
    struct checked {
        const call *made;
        const parameter *where;
        std::string part; // as a sequence names it
    };

    // Makes the call and checks its answer.
    std::string statements(std::size_t index);

    // The variables that calls have defined so far.
    const std::set<variable> &bound() const { return bound_; }
    const call_sequence &whole() const { return whole_; }

    // Where what a call gave is kept.
    virtual std::string variable_text(variable name) const = 0;
    virtual void check_number(std::string &body, const checked &what, const std::string &expected,
                              const std::string &got) const = 0;
    virtual void check_given(std::string &body, const checked &what,
                             const std::string &got) const = 0;
    virtual void check_bytes(std::string &body, const checked &what, const std::string &expected,
                             const std::string &got, std::size_t size) const = 0;
    virtual void fill_pattern(std::string &body, const std::string &place, std::size_t length,
                              std::size_t skipped, unsigned seed) const = 0;

private:
    std::string number_text(const parameter &where, const scalar &one) const;
    std::string number_text(std::size_t width, const scalar &one) const;
    void fill_bytes(std::string &body, const std::string &target, const std::string &bytes) const;
    std::string passed(std::string &body, const call &made, std::size_t i) const;
    std::string passed_bytes(std::string &body, const call &made, std::size_t i) const;
    std::string passed_record(std::string &body, const value &given, const parameter &where) const;
    std::string arguments_text(std::string &body, const call &made) const;
    std::string system_call(std::string &body, const call &made) const;
    void take(std::string &body, const checked &what, const std::string &expected,
              const std::string &got, const scalar &given, bool is_compared);
    void check_result(std::string &body, const call &made, const answer &given);
    void check_select(std::string &body, const call &made, const answer &given);
    void check_stored(std::string &body, std::size_t index, std::size_t i);
    void check_stored_bytes(std::string &body, const checked &what, const std::string &bytes,
                            const std::string *other);
    void check_stored_number(std::string &body, const checked &what, const value &stored);
    void check_stored_record(std::string &body, const checked &what, const value &given,
                             const value &stored);

    const call_sequence &whole_;
    std::set<variable> bound_;
};

// A text as a literal.
std::string c_text(std::string_view text);

// The type of a parameter, or of what it is the address of.
std::string c_type(const parameter &where);

// A comment's lines, each after `margin`, with the calls and their answers.
std::string calls_as_comment(const call_sequence &whole, const std::string &margin);

} // namespace sequence

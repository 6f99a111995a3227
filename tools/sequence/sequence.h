// SPDX-License-Identifier: MIT
//
// A sequence: calls of a libkel with handles by name, and perhaps what they answered. It holds no
// address, no time and no number that a library chose, so it means the same to every library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/sequence/schema.h"

namespace sequence {

// An index of call_sequence::variables, or one of:
using variable = std::int32_t;
inline constexpr variable NO_VARIABLE = -1;
inline constexpr variable UNSEEN = -2; // a handle, or an address, that nothing has named before

// A number, or what a variable stands for with the number added to it.
struct scalar {
    std::uint64_t number = 0;
    variable name = NO_VARIABLE;

    bool operator==(const scalar &) const = default;
};

// The calling process, where an id of one is stored.
inline constexpr scalar OWN_PROCESS{1};

enum class value_kind : std::uint8_t {
    absent,     // an argument that is only written through; what was not stored
    null,       // the null address
    unreadable, // an address that cannot be read
    number,     // one scalar
    record,     // a scalar for each field of the layout, an array's entries one after the other
    bytes,      // text and data
    any_bytes,  // so many of them, their content without meaning: one scalar
};

struct value {
    value_kind kind = value_kind::absent;
    std::vector<scalar> scalars{};
    std::string bytes{};

    bool operator==(const value &) const = default;
    const scalar &one() const { return scalars.front(); }
};

value number_value(scalar one);
value bytes_value(std::string bytes);

// Where a call's outcome can get a name: its result, then what it stores, field by field.
struct call {
    sequence::operation operation = 0;
    std::uint16_t thread = 1;
    std::vector<value> arguments{}; // one a parameter
    std::vector<variable> names{};  // what the outcome defines, place by place; may be shorter
    std::vector<std::string> comments{};
};

enum class outcome : std::uint8_t { returned, unreturned, hang, crash, flood };

struct answer {
    sequence::outcome outcome = outcome::returned;
    int signal = 0; // of a crash, where it is known
    value result{};
    std::vector<value> stored{}; // one a parameter; absent where nothing was stored
};

// When a call begins and ends. Most do both before any other call begins.
enum class phase : std::uint8_t { whole, begin, end };

struct step {
    std::uint32_t call = 0;
    sequence::phase phase = phase::whole;
};

struct variable_info {
    std::string name;
    role what;
};

struct header {
    int version = 1;
    std::string library{};
    std::string program{};
};

struct call_sequence {
    struct header header {};
    std::vector<variable_info> variables{};
    std::vector<call> calls{};
    std::vector<answer> answers{}; // one a call, or none at all
    // The same with other bytes in memory that nobody has written: data in which these two differ
    // means nothing. May end before the calls do.
    std::vector<answer> shadow{};
    std::vector<step> steps{};
    std::vector<std::string> closing_comments{};

    bool has_answers() const { return !answers.empty(); }
    // Null where there is none.
    const answer *shadow_of(std::size_t call) const
    {
        return call < shadow.size() ? &shadow[call] : nullptr;
    }
    // The calls in the order in which they began.
    void add(call added);
};

// Places that a call's outcome can name, in the order of call::names: the parameter (-1: the
// result), and in a record the scalar's index.
struct place {
    int parameter = -1;
    std::size_t index = 0;
    role what = role::number;
    const field *part = nullptr;
};
// `entries` is how many entries the call's array has room for.
std::vector<place> named_places(const call &made);

// The field that the scalar with that index belongs to.
const field &field_at(const record_layout &layout, std::size_t index);

// Whether the call waited in vain for as long as it was told to.
bool has_timed_out(const call &made, const answer &given);

// How many times the call's operation has been called up to and with it.
std::size_t ordinal_of(const call_sequence &whole, std::size_t index);

// How many calls begin before that one has returned, itself included.
std::size_t begun_until_return(const call_sequence &whole, std::size_t index);

// The calls with these indices alone, with what they need of the variables and the order.
call_sequence selection(const call_sequence &whole, const std::vector<bool> &kept);

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// What a call in a sequence may be: the operations of libkel as kelapi/operations.def has them, and
// the calls to the system by which programs use the library, each with its parameters. All that
// reads, writes, makes or compares calls goes by this table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "tools/common/interface.h"

namespace sequence {

// What a number stands for, and so how it is carried from one library to another.
enum class role : std::uint8_t {
    number,          // itself
    error,           // an error number or a notice
    client,          // these name an object: they are called by a variable
    packet,          //
    buffer,          //
    bufgroup,        //
    tag,             // dynamic ones; a static tag is itself
    object,          // of an event: a tag or a buffer group
    descriptor,      // a client's, or the device's
    address,         // only distances mean something
    process,         // the calling process's id
    program_address, // of the program's code: it is never told
};

enum class shape : std::uint8_t { nothing, number, text, bytes, record };

// One number in a record.
struct field {
    std::string_view name;
    std::uint16_t offset;
    std::uint8_t width;
    role what = role::number;
    interface::form form = interface::form::decimal;
    std::uint32_t mask = 0; // the bit of the record's first word that selects it; 0: always
    // Why libraries may differ in it; null: they may not.
    const char *uncompared = nullptr;
};

struct record_layout {
    std::size_t size;
    std::vector<field> fields;
};

struct parameter {
    std::string_view name;
    sequence::shape shape = shape::number;
    interface::direction direction = interface::direction::in;
    interface::form form = interface::form::decimal;
    interface::object object = interface::object::none;
    interface::effect effect = interface::effect::keeps;
    role what = role::number;
    bool by_address = false;
    bool is_signed = false;
    std::uint8_t width = 4; // of the number, or of the number at the address
    // bytes and iovecs: the parameter that holds their number; else -1.
    int count_at = -1;
    const record_layout *record = nullptr;
    const char *uncompared = nullptr;

    bool is_read() const { return direction != interface::direction::out; }
    bool is_written() const { return direction != interface::direction::in; }
    bool is_count() const { return counts >= 0; }
    int counts = -1; // the parameter whose bytes or entries it counts
};

using operation = std::uint16_t;

struct operation_schema {
    std::string_view name;     // without the kel_ prefix
    std::string_view function; // as the linker knows it; empty: a call to the system
    parameter result;
    std::vector<parameter> parameters;

    bool is_system() const { return function.empty(); }
};

// Those of the library first, in the order of the interface; then the system's.
std::span<const operation_schema> operations();
inline const operation_schema &schema_of(operation which)
{
    return operations()[which];
}

// Null when there is none of that name.
const operation_schema *find_operation(std::string_view name);
operation number_of(const operation_schema &which);

// The system's calls.
extern const operation SELECT, SLEEP, OPEN_DEVICE, CLOSE_DEVICE, IOCTL;

// Whether the call may last while others are made.
bool may_wait(operation which);

// Whether the value at that place is a new object whatever its number: a library may give out
// the number of one that is gone.
bool gives_new_object(const operation_schema &which, const parameter &where);
// Whether a handle that was never seen gets a name there.
bool may_name(const parameter &where, role what);

// Whether the result of a call says that its work was done.
bool has_succeeded(const operation_schema &which, std::uint64_t result);
// Whether a call with that result has stored through that parameter.
bool has_stored(const operation_schema &which, const parameter &where, std::uint64_t result);

// How many bytes a request to the device reads and writes; 0: none that is known.
std::size_t request_size(std::uint64_t request);

// The name that variables of that role begin with.
std::string_view name_of(role what);

} // namespace sequence

// SPDX-License-Identifier: MIT
//
// Arguments in memory and back: from the values of a call to what a library is passed, and from
// what a library was passed and has stored to values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "tools/sequence/bindings.h"
#include "tools/sequence/sequence.h"

namespace sequence {

using raw_arguments = std::array<std::uint64_t, interface::ARGUMENT_MAX>;

// Gives a new variable of that role; NO_VARIABLE where none is wanted.
using namer = std::function<variable(role)>;

// The arguments that a program passes, read before the call.
std::vector<value> read_arguments(const operation_schema &which, const raw_arguments &passed,
                                  const bindings &known);

// What a call that has returned gave and stored. `call` says what its outcome defines; where it
// says nothing of a new object, `give` is asked and call.names filled. `room` is what the counts
// held before the call.
answer read_answer(call &made, std::uint64_t result, const raw_arguments &passed,
                   const raw_arguments &room, bindings &known, const namer &give);

// What the counts that a call is passed by address hold, at their places. `is_readable`: their
// addresses are known to be good.
raw_arguments counts_before(const operation_schema &which, const raw_arguments &passed,
                            bool is_readable);

// The arguments of a call laid out for a library. Lives until the call has returned.
class laid_out_arguments {
public:
    void lay_out(const call &made, const bindings &known);
    const raw_arguments &raw() const { return raw_; }

private:
    std::byte *room(std::size_t index, std::size_t size);

    raw_arguments raw_{};
    std::array<std::vector<std::byte>, interface::ARGUMENT_MAX> memory_;
};

// Copies from an address that may not be readable; false when it is not.
bool read_safely(std::uint64_t address, void *target, std::size_t size);

} // namespace sequence

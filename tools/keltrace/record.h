// SPDX-License-Identifier: MIT
//
// The program's calls written down as a sequence that can be made again (docs/sequences.md). A call
// stands in the file before it is made, so that a crash or a hang is recorded, too. Calls that do
// not wait are made one at a time, so that the order in the file is the order in the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>

#include "tools/keltrace/operations.h"
#include "tools/keltrace/widths.h"
#include "tools/sequence/memory.h"

namespace keltrace {

namespace record {

// Returns what is wrong, or an empty text.
std::string open_file(const char *path);

bool wanted();

using sequence::raw_arguments;

template <typename Arguments> raw_arguments raw(const Arguments &arguments)
{
    raw_arguments passed{};
    std::apply(
        [&passed](auto... each) {
            std::size_t i = 0;
            ((passed[i++] = widened(each)), ...);
        },
        arguments);
    return passed;
}

// One call, from before it is made until it has returned.
class call {
public:
    call(sequence::operation which, const raw_arguments &passed);
    call(const call &) = delete;
    call &operator=(const call &) = delete;

    void returned(std::uint64_t result);

private:
    std::unique_lock<std::mutex> turn_;
    sequence::call made_;
    raw_arguments passed_;
    raw_arguments room_{};
};

// Whether the descriptor is a client's or the device's; others are no part of a sequence.
bool is_known_descriptor(int descriptor);

void comment(const char *text);

} // namespace record

} // namespace keltrace

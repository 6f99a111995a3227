// SPDX-License-Identifier: MIT
//
// Data as it is written in a sequence: patterns and runs of one byte where it is made of them,
// else hexadecimal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sequence {

enum class stretch_kind : std::uint8_t { pattern, fill, plain };

// A part of some data. A pattern's bytes begin `skipped` bytes behind its start.
struct stretch {
    stretch_kind kind = stretch_kind::plain;
    std::uint8_t number = 0; // a pattern's seed, or the byte
    std::size_t length = 0;
    std::size_t skipped = 0;
    std::string_view bytes{}; // of a plain one
};

// The stretches in order; `data` outlives them.
std::vector<stretch> stretches_of(std::string_view data);

std::string bytes_of(const stretch &one);

} // namespace sequence

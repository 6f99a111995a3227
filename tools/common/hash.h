// SPDX-License-Identifier: MIT
//
// A hash that is the same on every machine and in every version.
#pragma once

#include <cstdint>
#include <string_view>

namespace tools {

constexpr std::uint64_t HASH_OF_NOTHING = 0xcbf29ce484222325U;

// FNV-1a; `before` is the hash of the bytes that came first.
constexpr std::uint64_t hash_of(std::string_view bytes, std::uint64_t before = HASH_OF_NOTHING)
{
    std::uint64_t hash = before;
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3U;
    }
    return hash;
}

} // namespace tools

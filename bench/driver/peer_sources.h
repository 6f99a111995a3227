// SPDX-License-Identifier: MIT
//
// Writes the same trivial cases for tavor's runner and for its peers: the names are those of
// tavor's registry, a source file for each of its families.
#pragma once

#include <filesystem>

namespace bench {

// A family of many cases, whose source is what a rebuild follows from.
constexpr const char *TOUCHED_FAMILY = "kel_metadata";

// Files that already hold what they are to hold are left alone.
void write_peer_sources(const std::filesystem::path &folder);

} // namespace bench

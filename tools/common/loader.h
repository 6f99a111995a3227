// SPDX-License-Identifier: MIT
//
// Which library a program would load, and the bytes of either.
#pragma once

#include <string>

namespace tools {

// The path behind "libkel.so... => " in what the loader lists, empty when there is none.
std::string library_in_listing(const std::string &listing);

// A file's content; empty when it cannot be read.
std::string read_bytes(const std::string &path);

} // namespace tools

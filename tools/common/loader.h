// SPDX-License-Identifier: MIT
//
// Which file a program is, which library it would load, and the bytes of either.
#pragma once

#include <string>

namespace tools {

// The path behind "libkel.so... => " in what the loader lists, empty when there is none.
std::string library_in_listing(const std::string &listing);

// The libkel that the program loads on this machine; with a folder, with it in LD_LIBRARY_PATH.
// Empty when it cannot be told.
std::string loaded_library(const std::string &program, const std::string &folder);

// Whether a library that the loader found is from this folder, or from one below it that is made
// for the processor.
bool is_from(const std::string &library, const std::string &folder);

// Whether these bytes are the reference library's.
bool is_reference_library(const std::string &bytes);

// A file's content; empty when it cannot be read.
std::string read_bytes(const std::string &path);

// The file that is started by this name: what the search path finds, else the name itself.
std::string found_in_path(const std::string &program);

} // namespace tools

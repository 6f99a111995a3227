// SPDX-License-Identifier: MIT
//
// Where the tools find the shim when nobody says.
#pragma once

#include <filesystem>
#include <string>

namespace tools {

// The folder that this program was started from, links followed.
std::filesystem::path own_folder();

// libkeltrace.so where a build and where an installation has it, seen from the program under test,
// else from this program. Empty when it is in none of these places.
std::string find_shim(const std::string &program_under_test);

// Why the loader would not preload this file, and say so at most where nobody looks; empty: it
// would.
std::string why_not_preloaded(const std::string &shim);

// The one that is named, else the one that is found; an exception when there is neither, or when it
// cannot be preloaded.
std::string required_shim(const std::string &named, const std::string &program_under_test);

} // namespace tools

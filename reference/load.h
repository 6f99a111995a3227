// SPDX-License-Identifier: MIT
//
// What is read from the environment when the library is loaded, before any operation.
#pragma once

#include <string_view>
#include <vector>

namespace kel_reference {

// The text's words, which stand between blanks and commas.
std::vector<std::string_view> words_of(const char *text);

// Ends the process with a message about `word` and status 2: a library that quietly was not
// what was asked for would prove nothing.
[[noreturn]] void refuse_setting(const char *variable, std::string_view word, const char *why);

// options.cpp, faults/faults.cpp: take the settings; print what may be set.
void choose_options(const std::vector<std::string_view> &words);
void list_options();
void choose_faults(const std::vector<std::string_view> &words);
void list_faults();

} // namespace kel_reference

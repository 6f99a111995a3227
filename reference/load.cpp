// SPDX-License-Identifier: MIT
//
// Reads the environment when the library is loaded:
//
//   KEL_REFERENCE_OPTIONS="name=value ..."   open choices (options.h)
//   KEL_REFERENCE_FAULTS="op#n[+]:kind ..."   faults (faults/faults.h)
//   KEL_REFERENCE_LIST=options|faults        prints what may be chosen and ends the process

#include "reference/load.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kel_reference {

std::vector<std::string_view> words_of(const char *text)
{
    constexpr std::string_view SEPARATORS = " ,\t\n";
    std::vector<std::string_view> words;
    std::string_view rest = text ? text : "";
    while (true) {
        const std::size_t begin = rest.find_first_not_of(SEPARATORS);
        if (begin == std::string_view::npos) return words;
        rest.remove_prefix(begin);
        const std::string_view word = rest.substr(0, rest.find_first_of(SEPARATORS));
        words.push_back(word);
        rest.remove_prefix(word.size());
    }
}

void refuse_setting(const char *variable, std::string_view word, const char *why)
{
    std::fprintf(stderr, "libkel: %s: %.*s: %s\n", variable, static_cast<int>(word.size()),
                 word.data(), why);
    _exit(2);
}

namespace {

[[noreturn]] void list(const char *what)
{
    if (std::strcmp(what, "options") == 0) {
        list_options();
    } else if (std::strcmp(what, "faults") == 0) {
        list_faults();
    } else {
        refuse_setting("KEL_REFERENCE_LIST", what, "neither options nor faults");
    }
    std::fflush(stdout);
    _exit(0);
}

__attribute__((constructor)) void read_environment()
{
    if (const char *what = std::getenv("KEL_REFERENCE_LIST")) list(what);
    choose_options(words_of(std::getenv("KEL_REFERENCE_OPTIONS")));
    choose_faults(words_of(std::getenv("KEL_REFERENCE_FAULTS")));
}

} // namespace

} // namespace kel_reference

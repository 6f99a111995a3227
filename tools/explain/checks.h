// SPDX-License-Identifier: MIT
//
// Where in the sources of tavor and tavor-more a case and its checks stand.
#pragma once

#include <string>
#include <string_view>

namespace explain {

struct place {
    std::string file; // empty: not known
    int line = 0;
};

place place_of_case(std::string_view name);

// The check that gave the message: by the line that it names, else by its text, in the case or in
// what cases of its file share. The case's own place when the text is nowhere.
place place_of_check(std::string_view case_name, std::string_view message);

} // namespace explain

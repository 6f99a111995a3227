// SPDX-License-Identifier: MIT
//
// Which program and which library: read from the loader and from the files themselves.
#pragma once

#include <string>
#include <vector>

namespace tavor_run {

struct library_identity {
    std::string path{};
    std::string soname{};
    std::string build_id{}; // hexadecimal
    bool is_reference = false;
    bool was_read = false; // false: its file is out of reach
};

struct program_identity {
    std::string host{}; // the machine's own name
    std::string path{};
    std::string target{}; // tavor's own records
    std::string tree{};
    std::string image{};
    library_identity library{};
    // What steers library and shim from the environment, as assignments for a shell: a run with
    // faults is not a plain one.
    std::string settings{};
};

// What an ELF file says of itself; the fields stay empty where it does not.
library_identity describe_library(const std::string &path, const std::string &bytes);

// The records that tavor carries for being found by their markers.
void read_build_records(const std::string &bytes, program_identity &identity);

} // namespace tavor_run

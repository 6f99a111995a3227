// SPDX-License-Identifier: MIT
//
// A libkel, opened by its file name, and its operations called by number.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/sequence/memory.h"

namespace sequence {

class library {
public:
    // `path` is a file, or a folder that has libkel.so. Throws tools::usage_error when it cannot
    // be opened or lacks an operation.
    explicit library(const std::string &path);
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    // The result widened to 64 bits; a system call's failure is its error number, negative.
    std::uint64_t call(operation which, const raw_arguments &arguments) const;

private:
    std::uint64_t call_system(operation which, const raw_arguments &arguments) const;

    std::vector<void *> functions_;
    void *open_ = nullptr;
    void *close_ = nullptr;
    void *ioctl_ = nullptr;
};

// The file that such a path means.
std::string library_file(const std::string &path);

} // namespace sequence

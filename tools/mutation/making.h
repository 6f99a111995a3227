// SPDX-License-Identifier: MIT
//
// What building and trying a mutant takes.
#pragma once

#include <filesystem>
#include <string>

#include "tools/common/process.h"

namespace mutation {

// Throws std::runtime_error when the file cannot be read.
std::string read_text(const std::filesystem::path &path);

// Exchanges the first `from`. Throws std::runtime_error when there is none.
void replace(std::string &text, const std::string &from, const std::string &to);

// The result of a process that was started and not interrupted. Throws tools::interrupted or
// std::runtime_error otherwise.
tools::process_result finished(tools::process_options process);

// Whether a line for the shell ends with 0 in that folder; throws as `finished`.
bool succeeds(const std::filesystem::path &folder, const std::string &line);

// A folder of its own, removed at the end. Throws std::system_error when there can be none.
class scratch_folder {
public:
    scratch_folder();
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    ~scratch_folder();

    std::filesystem::path path;
};

} // namespace mutation

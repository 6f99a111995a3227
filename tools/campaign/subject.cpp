// SPDX-License-Identifier: MIT
//
// Fingerprints of files.
#include "tools/campaign/subject.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "tools/common/hash.h"
#include "tools/common/loader.h"

namespace campaign {

namespace {

namespace fs = std::filesystem;

std::string hexadecimal(std::uint64_t number)
{
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(number));
    return text.data();
}

std::uint64_t hash_of_file(const std::string &path, std::uint64_t before)
{
    if (!fs::is_regular_file(path)) {
        throw std::runtime_error(path + ": no such file");
    }
    return tools::hash_of(tools::read_bytes(path), before);
}

std::uint64_t hash_of_table(const std::string &folder, std::uint64_t before)
{
    std::vector<fs::path> files;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".txt") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path &file : files) {
        before = tools::hash_of(file.filename().string(), before);
        before = hash_of_file(file, before);
    }
    return before;
}

} // namespace

subject subject_of(const setting &where, const std::string &pairs_folder)
{
    std::uint64_t build = hash_of_file(tools::found_in_path(where.tavor), tools::HASH_OF_NOTHING);
    build = hash_of_file(where.shim, build);
    build = tools::hash_of(where.options, build);
    build = hash_of_table(pairs_folder, build);
    const std::string library =
        tools::read_bytes(tools::loaded_library(where.tavor, where.library_path));
    return {hexadecimal(build), library.empty() ? "" : hexadecimal(tools::hash_of(library))};
}

} // namespace campaign
